# Compares the tables of records in a page with the list of layouts. A table stands behind a line
#     ### `RECORD`, N bytes
# and has a row "| offset | bytes | `field` |" per field. Every field of a record that the page shows must be there, and
# every record of another program's concern must be shown.
#
# usage: awk -f offsets.awk LAYOUT PAGE

function wrong(text) { print FILENAME ": " text; failed = 1 }

FNR == NR {
    if ($2 == "size") { bytes[$1] = $3; next }
    if ($2 != "at") next
    split($1, part, ".")
    fields[part[1]]++
    offset[$1] = $3
    size[$1] = $5
    next
}

/^### `[A-Za-z0-9_]+`, [0-9]+ bytes/ {
    record = $2
    gsub(/[`,]/, "", record)
    if (bytes[record] != $3) wrong(record " has " bytes[record] " bytes, not " $3)
    shown[record] = 1
    next
}
/^#/ { record = "" }
record != "" && /^\| [0-9]+ \|/ {
    split($0, cell, / *\| */)
    field = cell[4]
    gsub(/`/, "", field)
    name = record "." field
    if (!(name in offset)) { wrong("no field " name); next }
    if (offset[name] != cell[2] || size[name] != cell[3])
        wrong(name " is at " offset[name] " with " size[name] " bytes")
    rows[record] += !seen[name]++
}

END {
    for (r in bytes) {
        if (r !~ /^(zrk4_|C_shm_(global|buf|BufferQ)$|reader_message|time_stamp)/) continue
        if (!(r in shown)) wrong(r " is missing")
        else if (rows[r] != fields[r]) wrong(r " has " fields[r] " fields, shown are " rows[r] + 0)
    }
    exit failed
}
