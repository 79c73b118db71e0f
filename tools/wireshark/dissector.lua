-- What Wireshark and tshark show of a capture that zalsim --capture wrote. The tables above are made of the headers.
--
-- Every frame but those of IPMI begins with a CAPTURE_HEADER; its link type says what follows. A reply is matched with its
-- request, and what went wrong is told as expert information.

local capture = Proto("zalsim", "Simulated server")  -- has the fields of all of them
local smif = Proto("smif", "SMIF, management processor")
local i2c = Proto("zali2c", "I2C transaction")
local power = Proto("powerctl", "Power controller")
local event_log = Proto("vrl", "Server event log")
local driver = Proto("romdriver", "ROM utility driver")
local flash = Proto("flashtable", "Flash-table driver library")
local journal = Proto("zaljournal", "Journal of the simulated server")

capture.prefs.address = Pref.uint("Power controller", 0x30, "The power controller's address on its I2C bus")

-- Fields

local no_yes = { [0] = "no", [1] = "yes" }
local errors = { [0] = "done", [4] = "EINTR", [5] = "EIO", [11] = "EAGAIN", [14] = "EFAULT", [22] = "EINVAL", [90] = "EMSGSIZE" }
enums.SmifCommand = commands

-- Those whose headers do not say which enumeration they have.
local enumeration_of = {
    ["SMIFHDR.Command"] = "SmifCommand",
    ["SMIFRESPONSE.ErrorCode"] = "SmifError",
    ["SMIFRSP_DEVICE_FLASH._Operation"] = "DeviceFlashOp",
    ["TABLE_EXEC_REQUEST.TableNumber"] = "FlashTable",
    ["TABLE_EXEC_REQUEST.Status"] = "FlashStatus",
}
local unsigned = { [1] = ProtoField.uint8, [2] = ProtoField.uint16, [4] = ProtoField.uint32 }

local fields = {}
local function add(field)
    table.insert(fields, field)
    return field
end

-- "smif.reply.io_access." for SMIFRSP_IO_ACCESS.
local function prefix_of(proto, record)
    local name = record:gsub("^SMIFHDR$", ""):gsub("^SMIFRESPONSE$", ""):gsub("^CAPTURE_HEADER", "")
    name = name:gsub("^SMIFREQ_", "request."):gsub("^SMIFRSP_", "reply."):gsub("^_", ""):lower()
    return proto.name:lower() .. "." .. (name == "" and "" or name .. ".")
end

local function make_number(field, abbreviation, record, help)
    local enumeration = enumeration_of[record .. "." .. field.name] or field.comment:match("^%w+$") or field.name
    field.names = enums[enumeration]
    field.proto = add(unsigned[field.size](abbreviation, field.name, field.names and base.DEC or base.DEC_HEX, field.names, nil, help))
    for _, bits in ipairs(field.bits) do
        local flag = bits.low == bits.high
        local mask = (2 ^ (bits.high - bits.low + 1) - 1) * 2 ^ bits.low
        local name = abbreviation .. "." .. bits.name:lower():gsub("%W+", "_")
        bits.proto = add(unsigned[field.size](name, bits.name, base.DEC, flag and no_yes or nil, mask))
    end
end

-- Makes the fields of a record, those of the records in it first.
local function make(proto, record)
    local layout = layouts[record]
    if not layout or layout.made then return end
    layout.made = true
    make(proto, layout.base)
    for _, field in ipairs(layout) do
        local abbreviation = prefix_of(proto, record) .. field.name:lower()
        local help = field.comment ~= "" and field.comment or nil
        make(proto, field.kind)
        if field.kind == "uint" then
            make_number(field, abbreviation, record, help)
        elseif field.kind == "text" then
            field.proto = add(ProtoField.string(abbreviation, field.name, base.ASCII, help))
        elseif field.kind == "bytes" then
            field.proto = add(ProtoField.bytes(abbreviation, field.name, base.NONE, help))
        elseif field.kind == "pointer" then
            field.proto = add(ProtoField.uint64(abbreviation, field.name, base.HEX, nil, nil, help))
        else
            field.proto = add(ProtoField.none(abbreviation, field.name, help))
        end
    end
end

make(capture, "CAPTURE_HEADER")
for _, name in pairs(commands) do
    make(smif, "SMIFREQ_" .. name)
    make(smif, "SMIFRSP_" .. name)
end
make(i2c, "CAPTURE_I2C")
for _, record in ipairs({ "LOG_VRL_REQUEST", "LOG_VRL_RESPONSE", "_evtLogHdr" }) do make(event_log, record) end
for _, record in ipairs({ "_pmemRead", "_versioninfo" }) do make(driver, record) end
for _, record in ipairs({ "ZALFLSH_HEADER", "TABLE_QUERY_RESULT", "TABLE_EXEC_REQUEST" }) do make(flash, record) end

local registers = {}
for number, name in pairs(enums.PowerRegister) do registers[number] = name:match("_(.*)") end
registers[0x16], registers[0x5C] = "Control of Opal", "Keyhole of Opal"
registers[0x18], registers[0x36] = "Control of Zephyra", "Keyhole of Zephyra"
local families = { [1] = "Opal", [2] = "Opal", [3] = "Opal", [4] = "Zephyra", [5] = "Tamberline", [6] = "Tamberline", [7] = "Quillon", [12] = "Brisk" }
local modes = { [0] = "itself", [1] = "Opal", [2] = "Zephyra" }
local record_types = { [0] = "data", [1] = "end of file: the reset packet", [4] = "extended linear address" }

local f = {
    fault = add(ProtoField.string("zalsim.fault", "Fault")),
    request_in = add(ProtoField.framenum("zalsim.request_in", "Request in", base.NONE, frametype.REQUEST)),
    response_in = add(ProtoField.framenum("zalsim.response_in", "Response in", base.NONE, frametype.RESPONSE)),
    time = add(ProtoField.relative_time("zalsim.time", "Time since the request")),
    channel_status = add(ProtoField.uint32("smif.channel_status", "Channel status", base.DEC, enums.ZALCISTATUS)),
    unknown = add(ProtoField.bytes("smif.data", "Data")),
    running = add(ProtoField.uint16("smif.reply.get_powerpic_info.boot_loader", "the boot loader is running", base.DEC, no_yes, 8)),
    acknowledged = add(ProtoField.uint32("zali2c.status", "Status", base.DEC, { [0] = "acknowledged", [1] = "not acknowledged" })),
    written = add(ProtoField.bytes("zali2c.written", "Written")),
    read = add(ProtoField.bytes("zali2c.read", "Read")),
    errno = add(ProtoField.uint32("zalsim.errno", "Result", base.DEC, errors)),
    request = add(ProtoField.uint32("romdriver.request", "Request", base.DEC, enums.RomDriverRequest)),
    memory = add(ProtoField.bytes("romdriver.memory", "Memory")),
    operation = add(ProtoField.uint32("flashtable.operation", "Operation", base.DEC, enums.FlashOperation)),
    table_set = add(ProtoField.string("flashtable.name", "Table set")),
    strings = add(ProtoField.string("flashtable.string", "String")),
    table = add(ProtoField.bytes("flashtable.table", "Table")),
    line = add(ProtoField.string("zaljournal.line", "Line")),
    text = add(ProtoField.string("vrl.text", "Text")),
    register = add(ProtoField.uint8("powerctl.register", "Register", base.HEX, registers)),
    value = add(ProtoField.uint16("powerctl.value", "Value", base.HEX)),
    programming = add(ProtoField.uint16("powerctl.programming", "Programming status", base.DEC, enums.ProgrammingStatus, 0x0007)),
    loader = add(ProtoField.uint16("powerctl.boot_loader", "Boot loader is running", base.DEC, no_yes, 0x0008)),
    minor = add(ProtoField.uint16("powerctl.minor", "Minor version", base.DEC, nil, 0x0F00)),
    major = add(ProtoField.uint16("powerctl.major", "Major version", base.DEC, nil, 0xF000)),
    family = add(ProtoField.uint16("powerctl.family", "PIC family", base.DEC, families, 0xFF00)),
    system = add(ProtoField.uint16("powerctl.system", "System type", base.DEC, nil, 0x00FF)),
    mode = add(ProtoField.uint16("powerctl.mode", "Acts as", base.DEC, modes, 0x00C0)),
    update = add(ProtoField.uint16("powerctl.update", "Update", base.DEC, no_yes, 0x0080)),
    checksum = add(ProtoField.uint8("powerctl.checksum", "Checksum", base.HEX)),
    count = add(ProtoField.uint8("powerctl.count", "Count")),
    address = add(ProtoField.uint16("powerctl.address", "Address", base.HEX)),
    type = add(ProtoField.uint8("powerctl.type", "Type", base.DEC, record_types)),
    data = add(ProtoField.bytes("powerctl.data", "Data")),
}
capture.fields = fields

local function information(name, text, group, severity)
    return ProtoExpert.new("zalsim." .. name, text, group, severity)
end
local x = {
    fault = information("has_fault", "Fault", expert.group.COMMENTS_GROUP, expert.severity.NOTE),
    failed = information("failed", "Failed", expert.group.RESPONSE_CODE, expert.severity.ERROR),
    busy = information("busy", "Busy", expert.group.RESPONSE_CODE, expert.severity.CHAT),
    nothing = information("nothing", "Nothing came", expert.group.SEQUENCE, expert.severity.WARN),
    stale = information("stale", "Stale reply", expert.group.SEQUENCE, expert.severity.WARN),
    unanswered = information("unanswered", "No reply", expert.group.SEQUENCE, expert.severity.NOTE),
    format = information("format", "Not as it should be", expert.group.PROTOCOL, expert.severity.WARN),
    checksum = information("checksum", "Wrong checksum", expert.group.CHECKSUM, expert.severity.ERROR),
}
local experts = {}
for _, value in pairs(x) do table.insert(experts, value) end
capture.experts = experts

-- Records

-- The text in a range, up to a NUL.
local function text_of(range) return range:raw():match("^[^\0]*") end

local function short(name) return name and name:match("_(.*)") or name end

-- What is known of a record: fields that a frame is too short for are 0.
local absent = { __index = function(_, name) if type(name) == "string" then return 0 end end }
local function values_of(frame)
    frame = frame or {}
    frame.is_request = frame.is_request or false
    return setmetatable(frame, absent)
end

-- Adds a record's fields to a tree, as many as there are bytes for. Puts the fields' values into values, their names in
-- words into its list, and returns the offset behind the last one.
local function show(record, range, tree, values, at)
    local layout = layouts[record]
    at = at or 0
    if layout.base ~= "" then at = show(layout.base, range, tree, values, at) end
    for _, field in ipairs(layout) do
        local size = field.kind == "pointer" and values.pointer_size or field.size
        for index = 1, math.max(field.count, 1) do
            if at + size > range:len() then return at end
            local part = range(at, size)
            local item
            if layouts[field.kind] then
                item = tree:add(field.proto, part)
                local inner = values_of({ pointer_size = values.pointer_size })
                show(field.kind, part, item, inner)
                if not rawget(values, field.name) then values[field.name] = inner end
            elseif field.kind == "uint" then
                item = tree:add_le(field.proto, part)
                local number = part:le_uint()
                if index == 1 then values[field.name] = number end
                if field.names and field.name ~= "Command" and not (field.name == "ErrorCode" and number == 0) then
                    table.insert(values, short(field.names[number]) or tostring(number))
                end
                for _, bits in ipairs(field.bits) do item:add_le(bits.proto, part) end
            else
                item = field.kind == "pointer" and tree:add_le(field.proto, part) or tree:add(field.proto, part)
                values[field.name] = field.kind == "text" and text_of(part) or part
            end
            if field.count > 0 then item:prepend_text("[" .. index - 1 .. "] ") end
            if values.is_request and field.name:lower():find("^_?reserved") and part:bytes():tohex():find("[^0]") then
                item:add_proto_expert_info(x.format, "A reserved field that is not 0")
            end
            at = at + size
        end
    end
    return at
end

-- Exchanges: what is known of each frame after the first pass over the capture.

local frames = {}
local open_requests = {}
function capture.init()
    frames = {}
    open_requests = {}
end

-- Matches a frame with the one it answers, or that answers it; key is what both have in common. Returns what is known of
-- the frame and of its request.
local function match(pinfo, tree, key, is_request)
    local number = pinfo.number
    if not pinfo.visited then
        local open = open_requests[key]
        local frame = {}
        frames[number] = frame
        if is_request then
            open_requests[key] = number
            frame.sent = pinfo.rel_ts
        elseif open then
            frame.request = open
            frame.again = frames[open].response
            frame.time = pinfo.rel_ts - frames[open].sent
            frames[open].response = frame.again or number
        end
    end
    local frame = frames[number]
    if frame.request then
        tree:add(f.request_in, frame.request):set_generated()
        local nanoseconds = math.floor(frame.time * 1e9 + 0.5)
        local seconds = math.floor(nanoseconds / 1e9)
        tree:add(f.time, NSTime.new(seconds, nanoseconds - seconds * 1e9)):set_generated()
        if frame.again then
            tree:add_proto_expert_info(x.stale, "The request was answered before, in frame " .. frame.again)
        end
    elseif not is_request then
        tree:add_proto_expert_info(x.stale, "There is no request that this answers")
    elseif frame.response then
        tree:add(f.response_in, frame.response):set_generated()
    elseif pinfo.visited then
        tree:add_proto_expert_info(x.unanswered, "No reply came")
    end
    return frame, frames[frame.request] or {}
end

local function fail(item, text) item:add_proto_expert_info(x.failed, text) end

-- The power controller's side of an I2C transaction.

local function sum_of(bytes)
    local sum = 0
    for index = 1, #bytes do sum = (sum + bytes:byte(index)) % 256 end
    return sum
end

local function show_checksum(range, tree, right)
    local item = tree:add(f.checksum, range)
    if not right then item:add_proto_expert_info(x.checksum) end
end

local function show_value(number, range, tree)
    local item = tree:add_le(f.value, range)
    local value = range:le_uint()
    local function bits(...)
        for _, field in ipairs({ ... }) do item:add_le(field, range) end
    end
    if number == 0 then
        bits(f.programming, f.loader, f.minor, f.major)
        local status = value % 8
        if status == 7 then
            item:add_proto_expert_info(x.busy, "Programming is in progress")
        elseif status ~= 0 then
            fail(item, "Programming failed: " .. enums.ProgrammingStatus[status])
        end
    elseif number == 2 then
        bits(f.family, f.system)
    elseif number == 0x6A then
        bits(f.mode)
    elseif number == 0x16 or number == 0x18 then
        bits(f.update)
    elseif value == 0x4D2B then
        item:append_text(", which unlocks the boot loader")
    end
    return string.format("0x%04X", value)
end

local function register_name(number)
    return string.format("register 0x%02X", number) .. (registers[number] and " (" .. registers[number] .. ")" or "")
end

local function show_record(range, tree)
    local length = range:len()
    tree:add(f.count, range(0, 1))
    tree:add(f.address, range(1, 2))
    tree:add(f.type, range(3, 1))
    if length > 5 then tree:add(f.data, range(4, length - 5)) end
    show_checksum(range(length - 1, 1), tree, sum_of(range:raw()) == 0)
    if range(0, 1):uint() ~= length - 5 then tree:add_proto_expert_info(x.format, "Count is not that of the data") end
    local type = range(3, 1):uint()
    if type == 1 then return "reset packet" end
    if type == 4 then return "record: extended linear address" end
    return string.format("record: %d bytes at 0x%04X", length - 5, range(1, 2):uint())
end

-- What the host writes, and how many bytes it wants to read; in words.
local function show_power_request(range, wanted, tree)
    if not range then return "reads" end
    local branch = tree:add(power, range)
    local length = range:len()
    if length >= 5 and wanted == 0 then return show_record(range, branch) end
    if not ((length == 2 and wanted == 3) or (length == 4 and wanted == 1)) then
        branch:add_proto_expert_info(x.format, "Neither a register nor a record")
        return length .. " bytes"
    end
    branch:add(f.register, range(0, 1))
    local number = range(0, 1):uint()
    local text = "read " .. register_name(number)
    if length == 4 then text = "write " .. register_name(number) .. " = " .. show_value(number, range(1, 2), branch) end
    show_checksum(range(length - 1, 1), branch, sum_of(range:raw()) == 0)
    return text
end

-- What the host reads, having written those bytes; in words.
local function show_power_reply(written, range, tree)
    if not range or #written < 2 then return "done" end
    local branch = tree:add(power, range)
    local number = written:byte(1)
    if #written == 2 and range:len() == 3 then
        local text = register_name(number) .. " is " .. show_value(number, range(0, 2), branch)
        show_checksum(range(2, 1), branch, sum_of(range:raw()) == 0)
        return text
    end
    show_checksum(range(0, 1), branch, range:len() == 1 and #written == 4 and range:raw() == written:sub(4))
    return register_name(number) .. " written"
end

local function is_power_controller(address) return address == capture.prefs.address end

-- A part of a range; nothing where that has no bytes.
local function part_of(range, at, length)
    length = math.min(length, range:len() - at)
    if length > 0 then return range(at, length) end
end

-- The wires

local function show_i2c_request(range, bus, address, wanted, tree, frame)
    frame.written = range and range:raw() or ""
    frame.address = address
    local place = string.format("bus %d, address 0x%02X: ", bus, address)
    if is_power_controller(address) then return place .. show_power_request(range, wanted, tree) end
    return place .. "writes " .. #frame.written .. " bytes, reads " .. wanted
end

local function show_i2c_reply(request, range, tree)
    if request.address and is_power_controller(request.address) then return show_power_reply(request.written, range, tree) end
    return (range and range:len() or 0) .. " bytes read"
end

local show_more = {}  -- what the fields of a command's request (key: its name) and reply (with "=") do not tell; in words

function show_more.I2C_TRANSACTION(packet, v, tree, frame)
    return show_i2c_request(part_of(packet, 25, v.WriteLength), v.Bus, v.Address, v.ReadLength, tree, frame)
end

show_more["I2C_TRANSACTION="] = function(packet, v, tree, _, request)
    if v.ErrorCode ~= 0 then return "" end
    return show_i2c_reply(request, part_of(packet, 25, v.ReadLength), tree)
end

function show_more.IO_ACCESS(_, v) return string.format("[%d]", v.Index) end

show_more["IO_ACCESS="] = function(_, v, tree)
    if v.Status ~= 0 then fail(tree, "Status is " .. v.Status) end
    return string.format("0x%02X", v.Value)
end

function show_more.DEVICE_FLASH(_, v)
    local text = rawget(v, "Handler") or ""
    if v.Operation == 3 then text = text .. string.format(", offset %d, %d bytes", v.Offset, v.DataLength) end
    return text
end

show_more["DEVICE_FLASH="] = function(_, v, tree)
    local status = v.Status
    if status == 2 then
        tree:add_proto_expert_info(x.busy, "The device programs itself")
    elseif status > 1 then
        fail(tree, "Status is " .. (enums.DeviceFlashStatus[status] or status))
    end
    return ""
end

show_more["GET_STATUS="] = function(_, v) return string.format("v%d.%02d", v.FwVersionMajor, v.FwVersionMinor) end

show_more["GET_POWERPIC_INFO="] = function(packet, _, tree)
    if packet:len() >= 18 then tree:add_le(f.running, packet(16, 2)) end
    return ""
end

local function show_packet(packet, tree, pinfo, header)
    local length = packet:len()
    if length < 8 then
        tree:add(f.unknown, packet)
        tree:add_proto_expert_info(x.format, "Shorter than a header")
        return "runt packet"
    end
    local is_request = header.Direction == 1
    local name = commands[packet(4, 2):le_uint()]
    local record = name and (is_request and "SMIFREQ_" or "SMIFRSP_") .. name or is_request and "SMIFPACKET" or "SMIFRESPONSE"
    local v = values_of({ is_request = is_request })
    local at = show(record, packet, tree, v)
    if at < length then tree:add(f.unknown, packet(at)) end
    if v.Length ~= length then tree:add_proto_expert_info(x.format, "Length says " .. v.Length .. " bytes, there are " .. length) end
    if v.ServiceType ~= 0 then tree:add_proto_expert_info(x.format, "ServiceType is not 0") end
    local key = string.format("smif %d %d %d", header.Process, header.Channel, v.Sequence)
    local text = string.format("%s %s, sequence %d", name or "command " .. v.Command, is_request and "request" or "reply", v.Sequence)
    if is_request and header.Status ~= 0 then return text .. ", not sent" end
    local frame, request = match(pinfo, tree, key, is_request)
    local more = show_more[is_request and name or (name or "") .. "="]
    local words = table.concat(v, " ")
    if more then words = words .. (words == "" and "" or " ") .. more(packet, v, tree, frame, request) end
    if v.ErrorCode ~= 0 and not is_request then
        fail(tree, "ErrorCode is " .. (enums.SmifError[v.ErrorCode] or v.ErrorCode))
    end
    return text .. (words:find("%S") and ": " .. words or "")
end

local wires = {}

wires[wtap.USER8] = function(range, tree, pinfo, header)
    pinfo.cols.protocol = "SMIF"
    local branch = tree:add(smif, range or nil)
    local item = branch:add(f.channel_status, header.Status)
    local status = enums.ZALCISTATUS[header.Status] or header.Status
    if header.Status == 21 then
        item:add_proto_expert_info(x.nothing, "Nothing came in time")
    elseif header.Status ~= 0 then
        fail(item, "The channel library answered " .. status)
    end
    if not range then return "receives nothing: " .. status end
    return show_packet(range, branch, pinfo, header) .. (header.Status ~= 0 and ": " .. status or "")
end

wires[wtap.USER9] = function(range, tree, pinfo, header)
    pinfo.cols.protocol = "I2C"
    local branch = tree:add(i2c, range or nil)
    local is_request = header.Direction == 1
    local frame, request = match(pinfo, branch, "i2c " .. header.Process, is_request)
    if is_request then
        if not range then return "cut short" end
        local v = values_of()
        local at = show("CAPTURE_I2C", range, branch, v)
        local written = part_of(range, at, range:len())
        if written then branch:add(f.written, written) end
        return show_i2c_request(written, v.Bus, v.Address, v.ReadLength, branch, frame)
    end
    local item = branch:add(f.acknowledged, header.Status)
    if header.Status ~= 0 then
        fail(item, "The device did not acknowledge")
        return "not acknowledged"
    end
    if range then branch:add(f.read, range) end
    return show_i2c_reply(request, range, branch)
end

-- In words.
local function show_event(range, tree, is_request)
    local branch = tree:add(event_log, range)
    local v = values_of()
    if not is_request then
        show("LOG_VRL_RESPONSE", range, branch, v)
        local status = v.Header ~= 0 and v.Header.Status or 0
        if status ~= 0 then fail(branch, "Status is " .. status) end
        return " " .. v.AssignedEventNumber
    end
    local at = show("LOG_VRL_REQUEST", range, branch, v)
    if at ~= 5 then return "" end
    local size = show("_evtLogHdr", range(at), branch, v)
    local text = part_of(range, at + size, range:len())
    if not text then return "" end
    branch:add(f.text, text)
    return ": " .. text_of(text)
end

wires[wtap.USER11] = function(range, tree, pinfo, header)
    pinfo.cols.protocol = "ROM driver"
    local branch = tree:add(driver, range or nil)
    local v = values_of({ pointer_size = header.PointerSize })
    local is_request = header.Direction == 1
    local name = short(enums.RomDriverRequest[header.Operation]) or "request " .. header.Operation
    branch:add(f.request, header.Operation)
    match(pinfo, branch, "driver " .. header.Process, is_request)
    if is_request and range then
        show("_pmemRead", range, branch, v)
        return string.format("%s: %d bytes at 0x%08X", name, v.readSize, v.startPhysicalMemAddress)
    elseif is_request then
        return name
    end
    local item = branch:add(f.errno, header.Status)
    if header.Status ~= 0 then
        fail(item, "The driver answered " .. (errors[header.Status] or header.Status))
        return name .. " failed"
    end
    if not range then return name .. ": done" end
    if header.Operation ~= 10 then branch:add(f.memory, range) return name .. ": done" end
    show("_versioninfo", range, branch, v)
    return string.format("%s: %d.%d.%d.%d", name, v.esxi_major_version, v.esxi_minor_version, v.cru_driver_version_num, v.cru_driver_build_num)
end

-- What operations of the flash-table driver library carry; in words.
local carried = {
    Select = function(range, tree)
        tree:add(f.table_set, range)
        return range:string()
    end,
    Query = function(range, tree, v)
        show("TABLE_QUERY_RESULT", range, tree, v)
        return string.format("table of %d bytes, header of %d", v.TableSize, v.HeaderSize)
    end,
    ReadHeader = function(range, tree, v)
        local at = show("ZALFLSH_HEADER", range, tree, v)
        if at > 31 then at = 31 end
        local words = {}
        for _ = 1, 3 do
            local text = at < range:len() and text_of(range(at)) or ""
            if text == "" then break end
            tree:add(f.strings, range(at, #text), text)
            table.insert(words, text)
            at = at + #text + 1
        end
        return table.concat(words, ", ")
    end,
    Execute = function(range, tree, v)
        show("TABLE_EXEC_REQUEST", range, tree, v)
        return v.is_request and v[1] or table.concat(v, " ")
    end,
}

wires[wtap.USER12] = function(range, tree, pinfo, header)
    pinfo.cols.protocol = "Flash table"
    local branch = tree:add(flash, range or nil)
    local name = enums.FlashOperation[header.Operation] or "?"
    branch:add(f.operation, header.Operation)
    if name == "Execute" then match(pinfo, branch, "flash " .. header.Process, header.Direction == 1) end
    local text = ""
    if range and carried[name] then
        text = ": " .. carried[name](range, branch, values_of({ pointer_size = header.PointerSize, is_request = header.Direction == 1 }))
    elseif range then
        branch:add(f.table, range)
        text = ": " .. range:len() .. " bytes"
    end
    if header.Status ~= 0 then fail(branch, "Status is " .. (enums.FlashStatus[header.Status] or header.Status)) end
    return name .. text
end

wires[wtap.USER13] = function(range, tree, pinfo)
    pinfo.cols.protocol = "Journal"
    tree:add(journal, range):add(f.line, range)
    return range:string()
end

local comment = Field.new("frame.comment")
local link_type = Field.new("frame.encap_type")

local encapsulations = DissectorTable.get("wtap_encap")

local function show_fault(tree)
    for _, found in ipairs({ comment() }) do
        local fault = tostring(found.value):match("^fault: (.*)")
        if fault then tree:add(f.fault, fault):set_generated():add_proto_expert_info(x.fault, "The simulation's fault: " .. fault) end
    end
end

-- IPMI messages are in the format of HPM.2, which Wireshark knows; what that leaves out is added.
local hpm2 = encapsulations:get_dissector(wtap.IPMI_TRACE)
if set_preference then set_preference("ipmi.dissect_bus_commands", true) end
local NVRAM_ACCESS = 2

local function dissect_ipmi(buffer, pinfo, tree)
    local size = 11
    hpm2:call(buffer, pinfo, tree)
    if buffer:captured_len() < size then return end
    local branch = tree:add(capture, buffer(0, size))
    show_fault(branch)
    if buffer(0, 1):bitfield(2, 2) == 2 then
        fail(branch, buffer(size, buffer:captured_len() - size):string())
        return
    end
    local is_request = buffer(8, 1):bitfield(0, 1) == 1
    match(pinfo, branch, "ipmi", is_request)
    local at = size + (is_request and 2 or 3)
    local is_oem = buffer:captured_len() > at and buffer(size, 1):bitfield(0, 5) == 0x36 / 2
    if is_oem and buffer(size + 1, 1):uint() == NVRAM_ACCESS then
        pinfo.cols.info:append(", event log entry" .. show_event(buffer(at, buffer:captured_len() - at), tree, is_request))
    end
end

function capture.dissector(buffer, pinfo, tree)
    local wire = link_type().value
    if wire == wtap.IPMI_TRACE then return dissect_ipmi(buffer, pinfo, tree) end
    local size = 20
    if buffer:captured_len() < size or buffer(0, 1):uint() ~= 1 then return 0 end  -- another program's
    local range = part_of(buffer(0, buffer:captured_len()), size, buffer:captured_len())
    local branch = tree:add(capture, buffer(0, size))
    local header = values_of()
    show("CAPTURE_HEADER", buffer(0, size), branch, header)
    show_fault(branch)
    pinfo.cols.src = header.Direction == 2 and "server" or "host"
    pinfo.cols.dst = header.Direction == 2 and "host" or "server"
    pinfo.cols.info = wires[wire](range, tree, pinfo, header)
end

encapsulations:add(wtap.IPMI_TRACE, capture)
for wire in pairs(wires) do encapsulations:add(wire, capture) end
