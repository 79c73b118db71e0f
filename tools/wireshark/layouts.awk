# Makes Lua tables of the records and enumerations in the headers that it reads: "layouts" and "enums". Holds the records'
# sizes and offsets against what the compiler asserts, FLASHLIB_LAYOUT and the OFFSET lines of layout.cpp, on a machine
# with pointers of 4 bytes.
#
#   awk -f layouts.awk HEADER ... layout.cpp
#
# A field of a layout has a name, what it is ("uint", "text", "bytes", "pointer" or another layout), the bytes of one, how
# many there are (0: not an array), its enumeration, which is the first word of its comment or its own name, and its bits,
# which the comment tells as "bits 12 to 15: major, 8 to 11: minor".

function fail(why) { print FILENAME ":" FNR ": " why >"/dev/stderr"; failed = 1; exit 1 }
function quote(text) { gsub(/["\\]/, "\\\\&", text); return "\"" text "\"" }
function trim(text) { gsub(/^[[:space:]]+|[[:space:]]+$/, "", text); return text }

function size_of(type) {
    if (type in bytes) return bytes[type]
    if (type in total) return total[type]
    fail("there is no type " type)
}

# The bits that a comment names, as Lua.
function bits_of(comment,   part, parts, i, count, text) {
    if (!match(comment, /bits? [0-9]+( to [0-9]+)?: /)) return ""
    count = split(substr(comment, RSTART), parts, /, */)
    for (i = 1; i <= count; i++) {
        part = parts[i]
        sub(/^bits? /, "", part)
        if (part !~ /^[0-9]+( to [0-9]+)?: /) continue
        low = part + 0
        high = low
        if (match(part, /^[0-9]+ to [0-9]+/)) { high = part; sub(/^[0-9]+ to /, "", high); high += 0 }
        sub(/^[^:]*: /, "", part)
        text = text "{ low = " low ", high = " high ", name = " quote(part) " }, "
    }
    return text
}

function add_field(name, type, kind, size, count, comment, bits) {
    if (is_union) {
        if (size > total[record]) total[record] = size
        return
    }
    offset[record, name] = total[record]
    fields[record] = fields[record] "        { name = " quote(name) ", kind = " quote(kind) ", size = " size ", count = " \
        count ", comment = " quote(comment) ", bits = { " bits "} },\n"
    total[record] += size * (count ? count : 1)
}

function end_bits() {
    if (packed == "") return
    add_field("Packed", "DWORD", "uint", 4, 0, "", packed)
    packed = ""
    low_bit = 0
}

BEGIN {
    split("BYTE UCHAR UINT8 char WORD UINT16 std::uint16_t DWORD ULONG UINT32 std::uint32_t void* std::uintptr_t", names, " ")
    split("1 1 1 1 2 2 2 4 4 4 4 4 4", sizes, " ")
    for (i in names) bytes[names[i]] = sizes[i]
}

FNR == 1 { record = ""; enumeration = ""; in_enum = 0 }
/#pragma pack\(push, 1\)/ { is_packed = 1 }
/#pragma pack\(pop\)/ { is_packed = 0 }

# Enumerations, one without a name by what its enumerators begin with.
/^[[:space:]]*(typedef )?enum[^;]*$/ {
    in_enum = 1
    enumeration = $0
    sub(/^[[:space:]]*(typedef )?enum( class)? ?_?/, "", enumeration)
    sub(/[ :{].*/, "", enumeration)
    next
}
in_enum && /}/ { in_enum = 0; next }
in_enum && match($0, /^[[:space:]]*[A-Za-z0-9_]+ = -?(0x)?[0-9A-Fa-f]+/) {
    split(trim(substr($0, RSTART, RLENGTH)), names, " = ")
    if (enumeration == "") { enumeration = names[1]; sub(/_.*/, "", enumeration) }
    # What captures know is shown without the type: Execute, not FlashOperation_Execute.
    if (FILENAME ~ /capture\.h$/) sub("^" enumeration "_", "", names[1])
    if (!(enumeration in values)) order_enums[++enum_count] = enumeration
    constant[names[1]] = names[2]
    if (names[2] ~ /^-/) names[2] = "0x100000000 " names[2]
    values[enumeration] = values[enumeration] "        [" names[2] "] = " quote(names[1]) ",\n"
    next
}
in_enum { next }

# Records.
is_packed && /^(struct|union) [A-Za-z_0-9]+/ {
    record = $2
    is_union = $1 == "union"
    base[record] = $3 == ":" ? $4 : ""
    total[record] = base[record] == "" ? 0 : size_of(base[record])
    fields[record] = ""
    order[++count_records] = record
    next
}
record != "" && /^};/ { end_bits(); record = ""; next }
record != "" && /^    [A-Za-z_:]+[A-Za-z_0-9:]*\*? [A-Za-z_0-9]+(\[[A-Za-z0-9_]+\])?( : [0-9]+)?;/ {
    type = $1
    name = $2
    sub(/;.*/, "", name)
    comment = ""
    if (match($0, /\/\/ .*/)) comment = substr($0, RSTART + 3)
    if ($3 == ":") {
        width = $4 + 0
        packed = packed "{ low = " low_bit + 0 ", high = " (low_bit + width - 1) ", name = " quote(name) " }, "
        low_bit += width
        next
    }
    many = 0
    if (match(name, /\[.*\]/)) {
        many = substr(name, RSTART + 1, RLENGTH - 2)
        if (many in constant) many = constant[many]
        name = substr(name, 1, RSTART - 1)
    }
    kind = type in bytes ? "uint" : type
    if (type == "void*" || type == "std::uintptr_t") kind = "pointer"
    if (type == "char") kind = "text"
    if (many && type in bytes && bytes[type] == 1 && type != "char") kind = "bytes"
    if (kind == "text" || kind == "bytes") { add_field(name, type, kind, many ? many : 1, 0, comment, ""); next }
    add_field(name, type, kind, size_of(type), many, comment, bits_of(comment))
    next
}

# What the compiler asserts.
/^FLASHLIB_LAYOUT\(/ || /^OFFSET\(/ {
    line = $0
    sub(/^[A-Z_]+\(/, "", line)
    sub(/\);.*/, "", line)
    gsub(/sizeof\(void\*\)/, "4", line)
    parts = split(line, part, /, /)
    if (split(part[parts], sum, / \+ /) == 2) part[parts] = sum[1] + sum[2]
    if (!(part[1] in total)) next
    if (parts == 2 && total[part[1]] != part[2]) fail(part[1] " has " total[part[1]] " bytes, not " part[2])
    if (parts == 3 && !((part[1], part[2]) in offset)) fail(part[1] " has no field " part[2])
    if (parts == 3 && offset[part[1], part[2]] != part[3]) fail(part[1] "::" part[2] " is at " offset[part[1], part[2]])
    checked++
}

/^#define SMIFCMD_/ {
    code = substr($2, 9)
    commands = commands "    [" $3 "] = " quote(code) ",\n"
}

END {
    if (failed) exit 1
    if (checked < 150) fail("there are only " checked + 0 " assertions to hold against")
    print "local layouts = {"
    for (i = 1; i <= count_records; i++) if (fields[order[i]] != "" || base[order[i]] != "")
        print "    " order[i] " = { base = " quote(base[order[i]]) ",\n" fields[order[i]] "    },"
    print "}\n\nlocal enums = {"
    for (i = 1; i <= enum_count; i++) print "    " order_enums[i] " = {\n" values[order_enums[i]] "    },"
    print "}\n\nlocal commands = {\n" commands "}\n"
}
