# Turns the headers' comments into Doxygen's, line by line. A comment above declarations documents all of them, up to the
# next comment or empty line; one behind a declaration documents that alone. A comment above an empty line is a heading,
# and the first one of a file documents the file. What a record of the wire or of a driver means stands above it: its
# fields need no comment of their own.

function print_comment(start, marker,   i) {
    for (i = 0; i < comments; i++) {
        sub("//", marker, comment[i])
        print (i ? "" : start) comment[i]
    }
    comments = 0
}

# What ends the group that is open, if any.
function end(   text) {
    text = grouped ? "/**@}*/ " : ""
    grouped = 0
    return text
}

/^ *\/\// {
    if (!comments) before = end()
    comment[comments++] = $0
    next
}
/^#pragma once/ {
    print_comment("", "///")
    print "/// @file"
    next
}
comments && !/^$/ {
    grouped = !/^ *(class|struct|enum|union|template|extern "C"$|typedef (struct|enum)|#pragma)/
    print_comment(before (grouped ? "/**@{*/ " : ""), "///")
}
/^$/ || /^ *};/ || /^ *(public|protected|private):/ || /^ *(virtual )?~/ {
    if (comments) print_comment(before, "//")
    $0 = end() $0
}
/pragma pack/ { record = /push/ }
{ sub(/ \/\/ /, " ///< ") }
record && /^    +[^ (){}]+ [^(){}]*;$/ { $0 = $0 "  ///< Field of the record." }
{ print }
END {
    print_comment(before, "//")
    print end()
}
