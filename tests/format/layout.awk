# Makes, out of what readelf prints of an object's debug information, a list of the records and classes that the headers
# named in `headers` declare: sizes, offsets, bases, virtual operations, and the numbers behind enumerators.
#
# usage: readelf --debug-dump=rawline,info OBJECT | awk -v headers="BM.h event.h" -f layout.awk

BEGIN {
    split(headers, list, " ")
    for (i in list) ours[list[i]] = 1
}

function value_of(line)
{
    sub(/^[^:]*: */, "", line)
    sub(/^\((indirect|indirect line|alt indirect) string, offset: 0x[0-9a-f]+\): /, "", line)
    sub(/[ \t]+$/, "", line)
    return line
}

# The table of files: number and name, whatever stands between.
/The File Name Table/ { in_files = 1; next }
in_files && /^ +[0-9]+\t/ { if ($NF in ours) our_file[$1] = 1; next }
in_files && NF == 0 { in_files = 0 }

# <depth><offset>: Abbrev Number: n (DW_TAG_...)
/^ <[0-9a-f]+><[0-9a-f]+>: Abbrev Number: [0-9]+ \(/ {
    split($0, part, /[<>]/)
    depth = part[2]
    at = "<0x" part[4] ">"
    open[depth] = at
    parent[at] = depth > 0 ? open[depth - 1] : ""
    tag[at] = $NF
    gsub(/[()]|DW_TAG_/, "", tag[at])
    if (depth == 1) global[++globals] = at
    child[parent[at], ++children[parent[at]]] = at
    next
}
/DW_AT_name/ { name[at] = value_of($0) }
/DW_AT_byte_size/ { size[at] = value_of($0) }
/DW_AT_type / || /DW_AT_type\t/ { type[at] = value_of($0) }
/DW_AT_decl_file/ { file[at] = value_of($0) + 0 }
/DW_AT_data_member_location/ { place[at] = value_of($0) }
/DW_AT_upper_bound/ { count[at] = value_of($0) + 1 }
/DW_AT_count/ { count[at] = value_of($0) + 0 }
/DW_AT_const_value/ { number[at] = value_of($0) }
/DW_AT_vtable_elem_location/ { virtual[at] = value_of($0); sub(/.*: /, "", virtual[at]); sub(/\).*/, "", virtual[at]) }

function bytes_of(t,    i, n)
{
    if (tag[t] == "array_type") {
        n = bytes_of(type[t])
        for (i = 1; i <= children[t]; ++i) n *= count[child[t, i]]
        return n
    }
    if (t in size) return size[t]
    if (tag[t] ~ /pointer_type|reference_type/) return 8
    return t in type ? bytes_of(type[t]) : "?"
}

function say(line) { if (!(line in said)) print line; said[line] = 1 }

function say_members(t, record, base,    i, m, begin)
{
    for (i = 1; i <= children[t]; ++i) {
        m = child[t, i]
        if (tag[m] == "inheritance") say(record " is " name[type[m]] " at " place[m])
        # A destructor has two entries, and compilers name another one of them.
        if (m in virtual && name[m] !~ /^~/) say(record "." name[m] " virtual " virtual[m])
        if (tag[m] != "member" || !(m in place) && tag[t] != "union_type") continue
        begin = base + place[m]
        if (m in name && name[m] !~ /^_vptr/) say(record "." name[m] " at " begin " size " bytes_of(type[m]))
        else if (m in name) say(record ".(table of virtual operations) at " begin " size 8")
        else say_members(type[m], record, begin)
    }
}

END {
    for (g = 1; g <= globals; ++g) {
        t = global[g]
        if (!(file[t] in our_file) || !(t in size)) continue
        if (tag[t] ~ /^(structure|class|union)_type$/) {
            if (!(t in name)) continue # a lambda's
            say(name[t] " size " size[t])
            say_members(t, name[t], 0)
        } else if (tag[t] == "enumeration_type") {
            if (t in name) say(name[t] " size " size[t])
            for (i = 1; i <= children[t]; ++i) say(name[child[t, i]] " = " number[child[t, i]])
        }
    }
}
