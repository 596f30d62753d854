-- The command protocol of vesk_h264 for Wireshark and tshark: on UDP port 1000, and in captures of the line as
-- veskctl's --pcap writes them. README.md says how to install it.
--
-- A line carries bytes, and so do the datagrams: a packet may hold a part of a frame, several frames, or a payload.
-- So each direction is a stream, which is followed through the packets in their order. What was found in a packet is
-- kept, as Wireshark may ask for the packet again, in any order. It runs with Lua 5.2 to 5.4.

-- The tables, made from protocol/vesk.yaml by `protocol/generate.py wireshark`. A field is its name, its type, its
-- first byte (in a frame 0 to 3 for dat1 to dat4), its length, and what its values mean.
local ANY = 0x100
local UDP_PORT = 1000 -- of the device

-- vesk.yaml: tables
local FRAME_LENGTH = 19
local COMMAND_BEGINS = "<T"
local REPLY_BEGINS = "<F"
local REFUSAL = {0xFF, 0xFF, 0xFF, 0xFF}
local DEFAULT_TIMEOUT = 1000
local SILENT_COMMANDS = {[0x8E] = true}

local COMMANDS = {
    {code = 0x10, dat1 = 0x11, name = "print memory use", answer = "ack"},
    {code = 0x68, dat1 = 0x01, name = "read device type", answer = "data",
     fields = {{"device type", "bytes", 1, 2}}},
    {code = 0x6A, dat1 = 0x03, name = "read protocol version", answer = "data",
     fields = {{"version", "version", 1, 2}}},
    {code = 0x6A, dat1 = 0x04, name = "read system version", answer = "data", timeout = 1000,
     fields = {{"version", "version", 1, 2}}},
    {code = 0x6A, dat1 = 0x10, name = "write serial number", answer = "ack", writes = true, timeout = 1000,
     parameters = {{"serial number", "serial number", 1, 2, most = 65535}}},
    {code = 0x6A, dat1 = 0x11, name = "read serial number", answer = "data",
     fields = {{"serial number", "serial number", 1, 2, most = 65535}}},
    {code = 0x73, dat1 = ANY, name = "input source", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x74, dat1 = ANY, name = "output format", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x75, dat1 = ANY, name = "layer setting", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x76, dat1 = ANY, name = "output setting", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x77, dat1 = ANY, name = "input setting", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x78, dat1 = ANY, name = "switch setting", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x7D, dat1 = ANY, name = "test pattern", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x84, dat1 = ANY, name = "write net mask", answer = "data", ff_is_data = true, writes = true,
     parameters = {{"mask", "mask", 0, 4}},
     fields = {{"mask", "mask", 0, 4}}},
    {code = 0x85, dat1 = ANY, name = "read net mask", answer = "data", ff_is_data = true,
     fields = {{"mask", "mask", 0, 4}}},
    {code = 0x86, dat1 = ANY, name = "HDMI output DE", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x88, dat1 = ANY, name = "write IP address", answer = "data", ff_is_data = true, writes = true,
     parameters = {{"ip", "ipv4", 0, 4}},
     fields = {{"ip", "ipv4", 0, 4}}},
    {code = 0x89, dat1 = ANY, name = "read IP address", answer = "data", ff_is_data = true, timeout = 2000,
     fields = {{"ip", "ipv4", 0, 4}}},
    {code = 0x8B, dat1 = ANY, name = "time control", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x8C, dat1 = ANY, name = "write gateway", answer = "data", ff_is_data = true, writes = true,
     parameters = {{"gw", "ipv4", 0, 4}},
     fields = {{"gw", "ipv4", 0, 4}}},
    {code = 0x8D, dat1 = ANY, name = "read gateway", answer = "data", ff_is_data = true,
     fields = {{"gw", "ipv4", 0, 4}}},
    {code = 0x8E, dat1 = 0x02, name = "write DHCP", answer = "ack", writes = true, timeout = 1000,
     parameters = {{"dhcp", "on/off", 1, 1}}},
    {code = 0x8E, dat1 = 0x03, name = "read DHCP", answer = "data",
     fields = {{"dhcp", "on/off", 1, 1}}},
    {code = 0x8E, dat1 = 0x05, name = "read MAC address, first half", answer = "data",
     fields = {{"mac", "first half of mac", 1, 3}}},
    {code = 0x8E, dat1 = 0x07, name = "read MAC address, last half", answer = "data",
     fields = {{"mac", "last half of mac", 1, 3}}},
    {code = 0x97, dat1 = ANY, name = "work time", answer = "nak",
     parameters = {{"dat1", "u8", 0, 1}, {"dat2", "u8", 1, 1}, {"dat3", "u8", 2, 1}, {"dat4", "u8", 3, 1}}},
    {code = 0x9A, dat1 = 0x10, name = "update query", answer = "data"},
    {code = 0x9A, dat1 = 0x16, name = "update wait", answer = "ack"},
    {code = 0x9A, dat1 = 0x20, name = "update acknowledge", answer = "ack"},
    {code = 0x9A, dat1 = 0xA0, name = "update block", answer = "ack", writes = true, payload = "block",
     timeout = 5000,
     parameters = {
         {"program", "u8", 1, 1, value = 7},
         {"number", "u16", 2, 2, low_first = true, most = 65535, unit = "blocks"},
     }},
    {code = 0x9A, dat1 = 0xA1, name = "update block size", answer = "data",
     parameters = {{"program", "u8", 1, 1}},
     fields = {{"program", "u8", 1, 1}, {"block size", "u16", 2, 2, value = 1024, unit = "bytes"}}},
    {code = 0x9A, dat1 = 0xB1, name = "update version", answer = "data",
     parameters = {{"program", "u8", 1, 1, value = 7}},
     fields = {{"program", "u8", 1, 1}, {"version", "version", 2, 2}}},
    {code = 0xF0, dat1 = ANY, name = "write data", answer = "ack", writes = true, payload = "network record",
     timeout = 15000,
     parameters = {
         {"what", "u8", 0, 1, values = {[0x20] = "network record"}},
         {"dat2", "u8", 1, 1},
         {"length", "u16", 2, 2, low_first = true, most = 4097, unit = "bytes"},
     }},
    {code = 0xF1, dat1 = ANY, name = "read data", answer = "data", answer_payload = "network record", timeout = 2000,
     parameters = {{"what", "u8", 0, 1, values = {[0x20] = "network record"}}, {"dat2", "u8", 1, 1}},
     fields = {
         {"what", "u8", 0, 1},
         {"dat2", "u8", 1, 1},
         {"length", "u16", 2, 2, low_first = true, value = 19, unit = "bytes"},
     }},
    {code = 0xF2, dat1 = ANY, name = "write text", answer = "ack", writes = true, payload = "text", timeout = 3000,
     parameters = {
         {"keys", "u8", 0, 1, values = {[0x00] = "a layer", [0x09] = "an input", [0x38] = "take", [0x39] = "blackout"}},
         {"which", "u8", 1, 1, most = 255},
     }},
    {code = 0xF3, dat1 = ANY, name = "read text", answer = "data", answer_payload = "text",
     parameters = {
         {"keys", "u8", 0, 1, values = {[0x00] = "a layer", [0x09] = "an input", [0x39] = "blackout"}},
         {"which", "u8", 1, 1, most = 255},
     },
     fields = {{"keys", "u8", 0, 1}, {"which", "u8", 1, 1}}},
}

local PAYLOADS = {
    ["network record"] = {
        length = 19,
        wait = 10000,
        fields = {
            {"address", "ipv4", 0, 4},
            {"net mask", "mask", 4, 4},
            {"default gateway", "ipv4", 8, 4},
            {"MAC address", "mac", 12, 6},
            {"checksum", "sum8", 18, 1},
        },
    },
    ["text"] = {
        wait = 1000,
        begins = "[",
        ends = "]",
    },
    ["block"] = {
        length = 1025,
        wait = 3000,
        fields = {{"bytes of the stream", "bytes", 0, 1024}, {"checksum", "sum8", 1024, 1}},
    },
}

local UPDATE = {
    block_size = 1024,
    first_block = 0,
    head_length = 128,
    head = {
        {"head 1", "bytes", 0, 48},
        {"length", "u32", 48, 4, unit = "bytes"},
        {"head 2", "bytes", 52, 28},
        {"sum", "sum16", 80, 2},
        {"head 3", "bytes", 82, 46},
    },
}
-- end

local vesk = Proto("vesk", "vesk_h264 command protocol")

-- Fields -----------------------------------------------------------------------------------------------

local fields = {
    direction = ProtoField.string("vesk.direction", "Direction"),
    frame = ProtoField.string("vesk.frame", "Frame"),
    kind = ProtoField.string("vesk.kind", "Kind"),
    name = ProtoField.string("vesk.name", "Name"),
    address = ProtoField.uint8("vesk.address", "Address", base.HEX),
    tag = ProtoField.uint8("vesk.tag", "Tag", base.HEX),
    command = ProtoField.uint8("vesk.command", "Command", base.HEX),
    dat1 = ProtoField.uint8("vesk.dat1", "dat1", base.HEX),
    dat2 = ProtoField.uint8("vesk.dat2", "dat2", base.HEX),
    dat3 = ProtoField.uint8("vesk.dat3", "dat3", base.HEX),
    dat4 = ProtoField.uint8("vesk.dat4", "dat4", base.HEX),
    checksum = ProtoField.uint8("vesk.checksum", "Checksum", base.HEX),
    checksum_is_right = ProtoField.bool("vesk.checksum_is_right", "Checksum is right"),
    response_in = ProtoField.framenum("vesk.response_in", "Response in", base.NONE, frametype.RESPONSE),
    response_to = ProtoField.framenum("vesk.response_to", "Response to", base.NONE, frametype.REQUEST),
    time = ProtoField.relative_time("vesk.time", "Time since the command"),
    half = ProtoField.string("vesk.half_frame", "Half frame"),
    begun = ProtoField.string("vesk.begun", "Beginning of a frame"),
    begun_in = ProtoField.framenum("vesk.begun_in", "Begun in"),
    ended_in = ProtoField.framenum("vesk.ended_in", "Ends in"),
    other = ProtoField.bytes("vesk.other", "Other bytes"),
    payload = ProtoField.bytes("vesk.payload", "Payload"),
    part = ProtoField.bytes("vesk.payload_part", "Part of a payload"),
    payload_of = ProtoField.framenum("vesk.payload_of", "Payload of the frame in"),
    payload_checksum_is_right = ProtoField.bool("vesk.payload_checksum_is_right", "Checksum is right"),
    text = ProtoField.string("vesk.text", "Text"),
    item = ProtoField.string("vesk.text.item", "Item"),
    block_number = ProtoField.uint16("vesk.block.number", "Block"),
    block_offset = ProtoField.uint32("vesk.block.offset", "Offset in the stream"),
    block_is_last = ProtoField.bool("vesk.block.is_last", "Last block"),
}

local function abbreviation(prefix, name)
    return prefix .. "." .. name:lower():gsub("[^%w]+", "_")
end

local function number(make, form)
    return function(abbr, name, values)
        return make(abbr, name, values and base.HEX or form, values)
    end
end

-- What Wireshark calls the types of protocol/vesk.yaml.
local MAKE = {
    u8 = number(ProtoField.uint8, base.DEC),
    u16 = number(ProtoField.uint16, base.DEC),
    u32 = number(ProtoField.uint32, base.DEC),
    sum8 = number(ProtoField.uint8, base.HEX),
    sum16 = number(ProtoField.uint16, base.HEX),
    ["serial number"] = number(ProtoField.uint16, base.DEC),
    ["on/off"] = function(abbr, name) return ProtoField.bool(abbr, name, base.NONE, {"on", "off"}) end,
    version = ProtoField.string,
    ipv4 = ProtoField.ipv4,
    mask = ProtoField.ipv4,
    mac = ProtoField.ether,
    bytes = ProtoField.bytes,
}

-- Bytes that are digits in a frame are texts: Wireshark takes bytes from a packet only.
local AS_TEXT = {bytes = true, ["first half of mac"] = true, ["last half of mac"] = true}

local meanings = {} -- of values, by field

-- One ProtoField for all fields of a name; their values have the same meanings, or different numbers.
local function makeFields(prefix, rows, areDigits)
    for _, row in ipairs(rows) do
        local key = abbreviation(prefix, row[1])
        if not fields[key] then
            local values
            for _, other in ipairs(rows) do
                if other[1] == row[1] and other.values then
                    values = values or {}
                    for value, meaning in pairs(other.values) do
                        values[value] = meaning
                    end
                end
            end
            meanings[key] = values
            local make = areDigits and AS_TEXT[row[2]] and ProtoField.string or MAKE[row[2]]
            fields[key] = values and make("vesk." .. key, row[1], values) or make("vesk." .. key, row[1])
        end
    end
end

do
    local all = {}
    for _, command in ipairs(COMMANDS) do
        command.parameters = command.parameters or {}
        command.fields = command.fields or {}
        for _, list in ipairs {command.parameters, command.fields} do
            for _, field in ipairs(list) do
                all[#all + 1] = field
            end
        end
    end
    makeFields("field", all, true)
    for name, payload in pairs(PAYLOADS) do
        makeFields(abbreviation("payload", name), payload.fields or {})
    end
    makeFields("update", UPDATE.head)
    local list = {}
    for _, field in pairs(fields) do
        list[#list + 1] = field
    end
    vesk.fields = list
end

local experts = {
    wrong_checksum = ProtoExpert.new("vesk.expert.wrong_checksum", "Wrong checksum of a frame",
        expert.group.CHECKSUM, expert.severity.ERROR),
    wrong_end = ProtoExpert.new("vesk.expert.wrong_end", "A frame does not end in >",
        expert.group.MALFORMED, expert.severity.ERROR),
    not_digits = ProtoExpert.new("vesk.expert.not_digits", "Not hexadecimal digits, which count as 0",
        expert.group.MALFORMED, expert.severity.WARN),
    half_frame = ProtoExpert.new("vesk.expert.half_frame", "Half a frame, which is lost",
        expert.group.MALFORMED, expert.severity.WARN),
    begun = ProtoExpert.new("vesk.expert.begun", "A frame does not end in this packet",
        expert.group.REASSEMBLE, expert.severity.CHAT),
    refused = ProtoExpert.new("vesk.expert.refused", "Refused",
        expert.group.RESPONSE_CODE, expert.severity.NOTE),
    unknown = ProtoExpert.new("vesk.expert.unknown", "Unknown command",
        expert.group.PROTOCOL, expert.severity.NOTE),
    unanswered = ProtoExpert.new("vesk.expert.unanswered", "No answer in this capture",
        expert.group.SEQUENCE, expert.severity.NOTE),
    late = ProtoExpert.new("vesk.expert.late", "The answer came after the time-out",
        expert.group.SEQUENCE, expert.severity.NOTE),
    payload_checksum = ProtoExpert.new("vesk.expert.payload_checksum", "Wrong checksum of a payload",
        expert.group.CHECKSUM, expert.severity.ERROR),
    payload_unchecked = ProtoExpert.new("vesk.expert.payload_unchecked",
        "The checksum has not come; the payload is accepted without it", expert.group.CHECKSUM, expert.severity.NOTE),
    payload_cut = ProtoExpert.new("vesk.expert.payload_cut", "The payload has not come whole",
        expert.group.MALFORMED, expert.severity.WARN),
    block_repeated = ProtoExpert.new("vesk.expert.block_repeated", "The block before this one again",
        expert.group.SEQUENCE, expert.severity.NOTE),
    block_order = ProtoExpert.new("vesk.expert.block_order", "Not the next block of the stream",
        expert.group.SEQUENCE, expert.severity.WARN),
    block_dropped = ProtoExpert.new("vesk.expert.block_dropped", "A block without a block 0 is dropped",
        expert.group.SEQUENCE, expert.severity.WARN),
    update_is_wrong = ProtoExpert.new("vesk.expert.update_is_wrong", "The stored file is not as its head says",
        expert.group.CHECKSUM, expert.severity.ERROR),
    capture_is_cut = ProtoExpert.new("vesk.expert.capture_is_cut", "The capture lacks bytes of this packet",
        expert.group.UNDECODED, expert.severity.WARN),
}

do
    local list = {}
    for _, each in pairs(experts) do
        list[#list + 1] = each
    end
    vesk.experts = list
end

-- Frames and their meaning -------------------------------------------------------------------------------

-- The byte given by two characters; what is no digit counts 0, as it does for the device.
local function byteOf(text, at)
    local high = tonumber(text:sub(at, at), 16) or 0
    local low = tonumber(text:sub(at + 1, at + 1), 16) or 0
    return high * 16 + low
end

local function sumOf(text)
    local sum = 0
    for i = 1, #text do
        sum = sum + text:byte(i)
    end
    return sum
end

-- Requires: a text of FRAME_LENGTH characters.
local function recordOf(text)
    local bytes = {}
    local sum = 0
    for i = 1, 8 do
        bytes[i] = byteOf(text, 2 * i + 1)
        sum = i < 8 and sum + bytes[i] or sum
    end
    return {
        text = text,
        isReply = text:sub(1, 2) == REPLY_BEGINS,
        address = bytes[1], tag = bytes[2], command = bytes[3],
        data = {bytes[4], bytes[5], bytes[6], bytes[7]},
        checksum = bytes[8],
        rightChecksum = sum % 256,
        hasEnd = text:sub(-1) == ">",
        hasDigits = text:sub(3, -2):find("%X") == nil,
    }
end

local function rowOf(record)
    for _, row in ipairs(COMMANDS) do
        if row.code == record.command and (row.dat1 == ANY or row.dat1 == record.data[1]) then
            return row
        end
    end
    return nil
end

local function hasRefusal(data)
    for i, byte in ipairs(REFUSAL) do
        if data[i] ~= byte then
            return false
        end
    end
    return true
end

-- Whether a reply refuses its command, as far as the reply itself tells.
local function isRefusal(record)
    local row = rowOf(record)
    return record.isReply and hasRefusal(record.data) and not (row and row.ff_is_data)
end

-- The same if the command is known: an intact command whose answer can be data is not refused, and one that writes
-- answers what was written.
local function isRefusalOf(command, reply)
    if isRefusal(reply) or not hasRefusal(reply.data) then
        return isRefusal(reply)
    end
    local row = rowOf(command)
    return command.checksum ~= command.rightChecksum or
        (row ~= nil and row.writes == true and not hasRefusal(command.data))
end

-- The fields that the frame's bytes have, none of a refusal.
local function fieldsOf(record)
    local row = rowOf(record)
    if not row or isRefusal(record) then
        return {}
    end
    return record.isReply and row.answer == "data" and row.fields or row.parameters
end

local function numberOf(bytes, lowFirst)
    local result = 0
    for i = 1, #bytes do
        result = result * 256 + bytes[lowFirst and #bytes + 1 - i or i]
    end
    return result
end

local function joined(bytes, form, separator)
    local parts = {}
    for i, byte in ipairs(bytes) do
        parts[i] = form:format(byte)
    end
    return table.concat(parts, separator)
end

-- A field's value as TreeItem:add() takes it, and as text.
local function valueOf(field, data)
    local bytes = {}
    for i = 1, field[4] do
        bytes[i] = data[field[3] + i]
    end
    local kind = field[2]
    if kind == "ipv4" or kind == "mask" then
        local text = joined(bytes, "%d", ".")
        return Address.ip(text), text
    elseif kind == "version" then
        local text = joined(bytes, "%d", ".")
        return text, text
    elseif kind == "on/off" then
        return bytes[1] ~= 0, bytes[1] ~= 0 and "on" or "off"
    elseif kind == "u8" or kind == "u16" or kind == "u32" or kind == "serial number" then
        local value = numberOf(bytes, field.low_first)
        local known = meanings[abbreviation("field", field[1])]
        return value, known and known[value] or tostring(value)
    end
    local text = joined(bytes, "%02x", kind == "bytes" and "" or ":")
    return text, text
end

-- What the frame announces: nil, or the name of a payload, its length (nil for a text) and the name of the layout
-- that it has. A frame with a wrong checksum announces nothing: it is not executed.
local function announcedBy(record)
    local row = rowOf(record)
    if not row or record.checksum ~= record.rightChecksum or isRefusal(record) then
        return nil
    end
    local name = row.payload
    if record.isReply then
        name = row.answer_payload
    end
    local payload = PAYLOADS[name]
    if not payload then
        return nil
    end
    local announced = {name = name, length = payload.length, wait = payload.wait, layout = payload.fields}
    for _, field in ipairs(fieldsOf(record)) do
        local value = numberOf({table.unpack(record.data, field[3] + 1, field[3] + field[4])}, field.low_first)
        if field.value and field.value ~= value and field[1] ~= "length" then
            return nil -- is refused, and the payload not read
        elseif field[1] == "length" then
            announced.length = value
            if value < 2 or (field.most and value > field.most) then
                return nil
            end
        elseif field.values and not field.values[value] and record.isReply then
            return nil
        elseif field.values and not field.values[value] then
            announced.layout = nil -- is read all the same
        end
    end
    return announced
end

-- Of an intact frame: a code or a record that the device meets with silence.
local function isNeverAnswered(record)
    local row = rowOf(record)
    if not row then
        return SILENT_COMMANDS[record.command] == true
    end
    local isShort = false
    for _, field in ipairs(row.parameters) do
        local value = numberOf({table.unpack(record.data, field[3] + 1, field[3] + field[4])}, field.low_first)
        if field[1] == "length" and row.payload then
            isShort = value < PAYLOADS[row.payload].length
        elseif field.values and not field.values[value] then
            return false -- refused
        end
    end
    return isShort
end

local function timeoutOf(record)
    local row = rowOf(record)
    return (row and row.timeout or DEFAULT_TIMEOUT) / 1000
end

-- A frame in a few words, for the column.
local function summaryOf(record)
    local row = rowOf(record)
    local kind = isRefusal(record) and "refusal" or record.isReply and "reply" or "command"
    local text = kind .. ": " .. (row and row.name or ("%02x"):format(record.command))
    local values = {}
    for _, field in ipairs(fieldsOf(record)) do
        local _, value = valueOf(field, record.data)
        values[#values + 1] = field[1] .. " " .. value
    end
    if #values > 0 then
        text = text .. " (" .. table.concat(values, ", ") .. ")"
    end
    if record.checksum ~= record.rightChecksum then
        text = text .. ", WRONG CHECKSUM"
    end
    return text
end

-- Streams ------------------------------------------------------------------------------------------------

local lines = {}   -- by name: what is known of the line or of the two ends of the datagrams
local packets = {} -- by number: what was found in them

function vesk.init()
    lines = {}
    packets = {}
end

local function lineNamed(name)
    if not lines[name] then
        lines[name] = {streams = {}, requests = {}}
    end
    return lines[name]
end

local OPPOSITE = {["to the device"] = "from the device", ["from the device"] = "to the device", unknown = "unknown"}

local function streamOf(line, direction)
    if not line.streams[direction] then
        line.streams[direction] = {begun = "", direction = direction}
    end
    return line.streams[direction]
end

-- The command that a reply answers: the oldest that can still get an answer, else the latest. The device executes and
-- answers in order, so those before it get none any more.
local function requestFor(line, reply, direction, now)
    local found
    for i, request in ipairs(line.requests) do
        local asked = request.record
        if request.direction == OPPOSITE[direction] and not request.answer and asked.address == reply.address and
            asked.tag == reply.tag and asked.command == reply.command then
            found = i
            if now - request.time <= timeoutOf(asked) and not isNeverAnswered(asked) then
                break
            end
        end
    end
    local request = found and table.remove(line.requests, found)
    for i = (found or 1) - 1, 1, -1 do
        if line.requests[i].direction == request.direction then
            table.remove(line.requests, i)
        end
    end
    return request
end

-- What a block of an update means for the transfer of its stream.
local function takeBlock(stream, item)
    local block = item.of.record.data[3] + 256 * item.of.record.data[4]
    item.block = block
    if not item.isAccepted then
        return
    end
    local transfer = stream.transfer
    local bytes = item.bytes:sub(1, UPDATE.block_size)
    if block == UPDATE.first_block then
        local head = {}
        for _, field in ipairs(UPDATE.head) do
            head[field[1]] = numberOf({bytes:byte(field[3] + 1, field[3] + field[4])}, field.low_first)
        end
        transfer = {
            length = head.length,
            expected = (head.length + UPDATE.head_length) % 0x100000000,
            sum = head.sum,
            found = sumOf(bytes:sub(UPDATE.head_length + 1)),
            size = UPDATE.block_size - UPDATE.head_length,
        }
        stream.transfer = transfer
    elseif not transfer then
        item.isDropped = true
        return
    elseif block == transfer.latest then
        item.isRepeated = true
    else
        item.isOutOfOrder = block ~= transfer.latest + 1
        transfer.found = transfer.found + sumOf(bytes)
        transfer.size = transfer.size + #bytes
    end
    transfer.latest = block
    item.isLast = (block + 1) * UPDATE.block_size >= transfer.expected
    if item.isLast then
        if transfer.found % 0x10000 ~= transfer.sum then
            item.fault = ("the sum is 0x%04x, the head says 0x%04x"):format(transfer.found % 0x10000, transfer.sum)
        elseif transfer.size < transfer.length then
            item.fault = ("%d bytes were stored, the head says %.0f"):format(transfer.size, transfer.length)
        end
        stream.transfer = nil
    end
end

-- The payload that a stream waits for has come, and `item` is the last of its parts. Its checksum may be missing.
local function takeWhole(stream, item)
    local payload = stream.payload
    local length = payload.announced.length
    item.kind = "payload"
    item.bytes = table.concat(payload.parts)
    payload.parts = nil
    payload.last = item.number
    item.isUnchecked = length ~= nil and #item.bytes < length
    if length and not item.isUnchecked then
        item.isRight = sumOf(item.bytes:sub(1, -2)) % 256 == item.bytes:byte(-1)
    end
    item.isAccepted = item.isRight or item.isUnchecked
    if payload.announced.name == "block" then
        takeBlock(stream, item)
    end
    stream.payload = nil
end

-- Ends the payload that a stream waits for, if `item` (a reply, or the next bytes) shows that the device has given up.
-- The device accepts a payload that lacks its checksum only.
local function giveUp(stream, item, isRefused)
    local payload = stream.payload
    local missing = payload.announced.length and payload.announced.length - payload.size
    if missing == 1 and not isRefused then
        takeWhole(stream, payload.latest)
        return
    end
    item.cut = {name = payload.announced.name, missing = missing, size = payload.size, number = payload.of.number}
    stream.payload = nil
end

-- The frame is complete.
local function takeFrame(line, stream, item, now)
    local record = recordOf(item.text)
    item.record = record
    item.time = now
    if record.isReply and record.checksum == record.rightChecksum then
        local request = requestFor(line, record, stream.direction, now)
        if request then
            item.request = request
            request.answer = item
            local asking = streamOf(line, request.direction)
            if asking.payload and asking.payload.of == request then
                giveUp(asking, item, isRefusalOf(request.record, record))
            end
        end
    elseif not record.isReply then
        item.direction = stream.direction
        line.requests[#line.requests + 1] = item
        if #line.requests > 256 then -- as many as there are tags
            table.remove(line.requests, 1)
        end
    end
    local announced = announcedBy(record)
    if announced then
        stream.payload = {announced = announced, of = item, parts = {}, size = 0, first = nil}
    end
end

-- Takes bytes of a payload from `at` on. Returns where it ends.
local function takePayload(stream, bytes, at, packet, items)
    local payload = stream.payload
    local announced = payload.announced
    local finish
    if announced.length then
        finish = math.min(#bytes, at + announced.length - payload.size - 1)
    else
        local begins, ends = PAYLOADS.text.begins, PAYLOADS.text.ends
        if payload.size == 0 and bytes:sub(at, at) ~= begins then
            -- It is refused; its first byte is lost.
            items[#items + 1] = {kind = "other", from = at, size = 1}
            giveUp(stream, items[#items])
            return at + 1
        end
        finish = bytes:find(ends, at, true) or #bytes
    end
    payload.first = payload.first or packet
    payload.parts[#payload.parts + 1] = bytes:sub(at, finish)
    payload.size = payload.size + finish - at + 1
    local item = {kind = "part", from = at, size = finish - at + 1, of = payload.of, name = announced.name,
                  first = payload.first, number = packet, total = announced.length, layout = announced.layout,
                  soFar = payload.size, whole = payload}
    items[#items + 1] = item
    payload.latest = item
    local isComplete
    if announced.length then
        isComplete = payload.size == announced.length
    else
        isComplete = bytes:sub(finish, finish) == PAYLOADS.text.ends
    end
    if isComplete then
        takeWhole(stream, item)
    end
    return finish + 1
end

-- Takes bytes from `at` on, outside payloads. Returns where the next ones are.
local function takeOther(line, stream, bytes, at, packet, now, items)
    local function add(item)
        items[#items + 1] = item
        return item
    end
    if stream.begun == "" then
        local begin = bytes:find("<", at, true)
        if begin ~= at then
            add {kind = "other", from = at, size = (begin or #bytes + 1) - at}
        end
        if begin then
            stream.begun = "<"
            stream.first = packet
            stream.from = begin
            stream.fate = {} -- shared by the parts of the frame
            return begin + 1
        end
        return #bytes + 1
    end
    -- A frame that began in an earlier packet begins before the first byte of this one.
    local from = stream.first == packet and stream.from or 1
    if #stream.begun == 1 then
        local letter = bytes:sub(at, at)
        if letter == COMMAND_BEGINS:sub(2) or letter == REPLY_BEGINS:sub(2) then
            stream.begun = stream.begun .. letter
            return at + 1
        end
        stream.begun = ""
        local next_ = letter == "<" and at or at + 1
        if next_ > from then
            add {kind = "other", from = from, size = next_ - from}
        end
        return next_
    end
    local wanted = bytes:sub(at, at + FRAME_LENGTH - #stream.begun - 1)
    local begin = wanted:find("<", 1, true)
    if begin then
        wanted = wanted:sub(1, begin - 1)
    end
    stream.begun = stream.begun .. wanted
    local next_ = at + #wanted
    if begin then
        add {kind = "half", text = stream.begun, from = from, size = next_ - from, first = stream.first}
        stream.begun = ""
    elseif #stream.begun == FRAME_LENGTH then
        local item = add {kind = "frame", text = stream.begun, from = from, size = next_ - from,
                          first = stream.first, number = packet}
        stream.begun = ""
        stream.fate.last = packet
        takeFrame(line, stream, item, now)
    end
    return next_
end

-- What a packet holds, found when it is seen for the first time, in the order of the capture.
local function find(line, direction, bytes, packet, now, isCut)
    local stream = streamOf(line, direction)
    local items = {}
    -- A device that has waited long enough gives up, and takes late bytes for ordinary ones.
    if stream.payload and stream.payload.announced.wait and
        now - stream.payload.of.time > 1.1 * stream.payload.announced.wait / 1000 then
        items[1] = {kind = "note", from = 1, size = 0}
        giveUp(stream, items[1])
    end
    local at = 1
    while at <= #bytes do
        if stream.payload then
            at = takePayload(stream, bytes, at, packet, items)
        else
            at = takeOther(line, stream, bytes, at, packet, now, items)
        end
    end
    if stream.begun ~= "" and #bytes > 0 then
        local from = stream.first == packet and stream.from or 1
        items[#items + 1] = {kind = "begun", text = stream.begun, from = from, size = #bytes + 1 - from,
                             fate = stream.fate}
    end
    if isCut then -- what follows in the stream does not join
        stream.begun = ""
        stream.payload = nil
    end
    return items
end

-- The tree -----------------------------------------------------------------------------------------------

-- Where the bytes of an item are: in the packet, or for those that began in an earlier one, in a buffer of their own.
local function rangeOf(tvb, item, bytes, title)
    if item.first and bytes and item.size ~= #bytes then
        return ByteArray.new(bytes, true):tvb(title):range()
    end
    return tvb:range(item.from - 1, item.size)
end

local function timeBetween(first, last)
    local micros = math.floor(math.abs(last - first) * 1000000 + 0.5)
    local seconds = math.floor(micros / 1000000)
    local nanos = (micros - seconds * 1000000) * 1000
    return last < first and NSTime.new(-seconds, -nanos) or NSTime.new(seconds, nanos)
end

local function sayCut(tree, cut)
    local lack = not cut.missing and "its end is missing" or
        ("%d of its bytes %s missing"):format(cut.missing, cut.missing == 1 and "is" or "are")
    tree:add_proto_expert_info(experts.payload_cut,
        ("The %s after the frame in packet %d has not come whole: %s"):format(cut.name, cut.number, lack))
end

local function showFrame(tree, tvb, item)
    local record = item.record
    local range = rangeOf(tvb, item, item.text, "Frame of several packets")
    local frame = tree:add(fields.frame, range, item.text)
    frame:append_text("  " .. summaryOf(record))
    if item.first ~= item.number then
        frame:add(fields.begun_in, range(0, 1), item.first):set_generated()
    end
    frame:add(fields.kind, range(1, 1),
        isRefusal(record) and "refusal" or record.isReply and "reply" or "command")
    local row = rowOf(record)
    if row then
        frame:add(fields.name, range(6, row.dat1 == ANY and 2 or 4), row.name)
    end
    frame:add(fields.address, range(2, 2), record.address)
    frame:add(fields.tag, range(4, 2), record.tag)
    frame:add(fields.command, range(6, 2), record.command)
    for i = 1, 4 do
        frame:add(fields["dat" .. i], range(6 + 2 * i, 2), record.data[i])
    end
    for _, field in ipairs(fieldsOf(record)) do
        local value = valueOf(field, record.data)
        local shown = frame:add(fields[abbreviation("field", field[1])],
            range(8 + 2 * field[3], 2 * field[4]), value)
        if field.unit then
            shown:append_text(" " .. field.unit)
        end
    end
    local isRight = record.checksum == record.rightChecksum
    local checksum = frame:add(fields.checksum, range(16, 2), record.checksum)
    frame:add(fields.checksum_is_right, range(16, 2), isRight):set_generated()
    if not isRight then
        checksum:add_proto_expert_info(experts.wrong_checksum,
            ("Wrong checksum 0x%02x, should be 0x%02x"):format(record.checksum, record.rightChecksum))
    end
    if not record.hasEnd then
        frame:add_proto_expert_info(experts.wrong_end)
    end
    if not record.hasDigits then
        frame:add_proto_expert_info(experts.not_digits)
    end
    if not row and not isRefusal(record) then
        frame:add_proto_expert_info(experts.unknown)
    end
    if item.answer then
        frame:add(fields.response_in, range(0, 0), item.answer.number):set_generated()
    elseif not record.isReply and item.isSeenAgain then
        frame:add_proto_expert_info(experts.unanswered,
            isNeverAnswered(record) and "This command never gets an answer" or "No answer in this capture")
    end
    local isRefused = isRefusal(record)
    if item.request then
        frame:add(fields.response_to, range(0, 0), item.request.number):set_generated()
        frame:add(fields.time, range(0, 0), timeBetween(item.request.time, item.time)):set_generated()
        isRefused = isRefusalOf(item.request.record, record)
        if item.time - item.request.time > timeoutOf(item.request.record) then
            frame:add_proto_expert_info(experts.late)
        end
    end
    if isRefused then
        local asked = item.request and rowOf(item.request.record) or row
        frame:add_proto_expert_info(experts.refused, asked and "Refused: " .. asked.name or "Refused")
    end
    return summaryOf(record)
end

local function showText(tree, range, text)
    tree:add(fields.text, range, text)
    local from = 1
    for each in (text:gsub("^%[", ""):gsub("%]$", "") .. ","):gmatch("([^,]*),") do
        if each:find("=", 1, true) then
            tree:add(fields.item, range(from, #each), (each:gsub("^%s+", "")))
        end
        from = from + #each + 1
    end
end

local function showLayout(tree, range, prefix, rows, isChecksum)
    for _, row in ipairs(rows) do
        if row[3] + row[4] <= range:len() and isChecksum == (row[2] == "sum8") then
            local part = range(row[3], row[4])
            local field = fields[abbreviation(prefix, row[1])]
            if row.low_first then
                tree:add_le(field, part)
            else
                tree:add(field, part)
            end
        end
    end
end

local function showBlock(tree, range, item)
    tree:add(fields.block_number, range(0, 0), item.block):set_generated()
    tree:add(fields.block_offset, range(0, 0), item.block * UPDATE.block_size):set_generated()
    if item.block == UPDATE.first_block then
        showLayout(tree, range, "update", UPDATE.head, false)
    end
    if item.isLast ~= nil then
        tree:add(fields.block_is_last, range(0, 0), item.isLast):set_generated()
    end
    local fault = item.isRepeated and experts.block_repeated or item.isOutOfOrder and experts.block_order or
        item.isDropped and experts.block_dropped
    if fault then
        tree:add_proto_expert_info(fault)
    end
    if item.fault then
        tree:add_proto_expert_info(experts.update_is_wrong, "The update is not installed: " .. item.fault)
    end
end

local function showPayload(tree, tvb, item)
    local range = rangeOf(tvb, item, item.bytes, "Payload of several packets")
    local payload = tree:add(fields.payload, range)
    payload:set_text(("Payload: %s, %d bytes"):format(item.name, #item.bytes))
    payload:add(fields.payload_of, range(0, 0), item.of.number):set_generated()
    if not item.total then
        showText(payload, range, item.bytes)
        return item.bytes
    end
    local prefix = abbreviation("payload", item.name)
    if item.name == "block" then
        showBlock(payload, range, item)
    end
    if item.layout and item.layout[#item.layout][3] < item.total then
        showLayout(payload, range, prefix, item.layout, false)
    end
    if item.isUnchecked then
        payload:add_proto_expert_info(experts.payload_unchecked)
        return item.block and ("block %d"):format(item.block) or item.name
    end
    -- The last byte is the checksum, however long the payload is.
    payload:add(fields[abbreviation(prefix, "checksum")], range(#item.bytes - 1, 1))
    payload:add(fields.payload_checksum_is_right, range(#item.bytes - 1, 1), item.isRight):set_generated()
    if not item.isRight then
        payload:add_proto_expert_info(experts.payload_checksum)
    end
    return item.block and ("block %d"):format(item.block) or item.name
end

local SHOW = {
    frame = showFrame,
    payload = showPayload,
    part = function(tree, tvb, item)
        local range = tvb:range(item.from - 1, item.size)
        local part = tree:add(fields.part, range)
        part:set_text(("Part of a payload: %s, %d bytes so far%s"):format(item.name, item.soFar,
            item.total and (" of %d"):format(item.total) or ""))
        part:add(fields.payload_of, range(0, 0), item.of.number):set_generated()
        if item.whole.last then
            part:add(fields.ended_in, range(0, 0), item.whole.last):set_generated()
        end
        return "part of a " .. item.name
    end,
    begun = function(tree, tvb, item)
        local range = tvb:range(item.from - 1, item.size)
        local begun = tree:add(fields.begun, range, item.text)
        if item.fate.last then
            begun:add(fields.ended_in, range(0, 0), item.fate.last):set_generated()
        end
        begun:add_proto_expert_info(experts.begun)
        return "beginning of a frame"
    end,
    half = function(tree, tvb, item)
        local half = tree:add(fields.half, rangeOf(tvb, item, item.text, "Half frame of several packets"), item.text)
        half:add_proto_expert_info(experts.half_frame)
        return "half a frame"
    end,
    other = function(tree, tvb, item)
        tree:add(fields.other, tvb:range(item.from - 1, item.size))
        return item.size == 1 and "1 byte" or item.size .. " bytes"
    end,
    note = function()
        return nil
    end,
}

-- The lines of a capture, by their link types. Wireshark does not tell the interface before it shows a packet.
local LINES = {
    [(wtap or wtap_encaps).USER0] = "front board",
    [(wtap or wtap_encaps).USER1] = "control PC",
}

-- The two ends of datagrams, and which way these go: the device is the one with the port that we are called for.
local function wayOfDatagram(pinfo)
    local port = pinfo.match_uint or UDP_PORT
    local from = ("%s:%d"):format(tostring(pinfo.src), pinfo.src_port)
    local to = ("%s:%d"):format(tostring(pinfo.dst), pinfo.dst_port)
    local toDevice = pinfo.dst_port == port
    if toDevice and pinfo.src_port == port then
        toDevice = not lines[from .. " " .. to] -- the PC speaks first
    end
    return toDevice and to .. " " .. from or from .. " " .. to, toDevice and "to the device" or "from the device"
end

-- The far end of a captured line, and the direction: outbound is what veskctl has sent.
local function wayOfLine(pinfo)
    local direction = pinfo.p2p_dir == P2P_DIR_SENT and "to the device" or
        pinfo.p2p_dir == P2P_DIR_RECV and "from the device" or "unknown"
    return LINES[pinfo.match_uint] or "far end", direction
end

function vesk.dissector(tvb, pinfo, tree)
    local isDatagram = pinfo.port_type == 3
    if pinfo.in_error_pkt then
        return 0 -- an ICMP message repeats a datagram
    end
    local name, direction = (isDatagram and wayOfDatagram or wayOfLine)(pinfo)
    pinfo.cols.protocol = "vesk"
    if not isDatagram and direction ~= "unknown" then
        pinfo.cols.src = direction == "to the device" and name or "device"
        pinfo.cols.dst = direction == "to the device" and "device" or name
    end
    local isCut = tvb:len() < tvb:reported_len()
    local isSeenAgain = packets[pinfo.number] ~= nil
    if not isSeenAgain then
        local bytes = tvb:len() > 0 and tvb:raw(0, tvb:len()) or ""
        packets[pinfo.number] = find(lineNamed(name), direction, bytes, pinfo.number, tonumber(pinfo.abs_ts), isCut)
    end
    local top = tree:add(vesk, tvb:range(0, tvb:len()))
    top:add(fields.direction, tvb:range(0, 0), direction):set_generated()
    if isCut then
        top:add_proto_expert_info(experts.capture_is_cut)
    end
    local said = {}
    for _, item in ipairs(packets[pinfo.number]) do
        item.isSeenAgain = isSeenAgain
        said[#said + 1] = SHOW[item.kind](top, tvb, item)
        if item.cut then
            sayCut(top, item.cut)
        end
    end
    pinfo.cols.info = table.concat(said, "; ")
    top:append_text(", " .. direction)
    return tvb:len()
end

DissectorTable.get("udp.port"):add(UDP_PORT, vesk)
for linkType in pairs(LINES) do
    DissectorTable.get("wtap_encap"):add(linkType, vesk)
end
