# Prints a page with its snippets as the sources have them. A snippet is a block of code behind a line
#     <!-- FILE NAME -->     the lines between the two marks "// [NAME]" of FILE
#     <!-- FILE -->          the whole file
# File names begin at the top of the tree, where this runs.

function source_lines(file, mark,    line, inside, found, other)
{
    inside = mark == ""
    while ((getline line < file) > 0) {
        other = line ~ /^ *\/\/ \[[a-z]+\]$/
        if (mark != "" && line ~ "^ *// \\[" mark "\\]$") { inside = !inside; ++found; continue }
        if (inside && !other) print line
    }
    close(file)
    if (mark != "" && found != 2) {
        print "no snippet " mark " in " file > "/dev/stderr"
        failed = 1
    }
}

/^<!-- [^ ]+\.(cpp|h|sh)( [a-z]+)? -->$/ { wanted = $2; mark = NF == 4 ? $3 : ""; print; next }
wanted != "" && /^```/ {
    print
    source_lines(wanted, mark)
    wanted = ""
    skipping = 1
    next
}
skipping && /^```$/ { skipping = 0 }
!skipping { print }
END { exit failed }
