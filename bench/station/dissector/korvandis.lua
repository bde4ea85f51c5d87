-- Wireshark dissector for the AT test packets of the MCU link, as 'station record --pcap' writes them:
-- link type 147 (LINKTYPE_USER0), one byte with the direction, then the packet.
--
--   tshark -X lua_script:korvandis.lua -r traffic.pcap
-- or put this file into Wireshark's folder of personal Lua plugins.

local HEADER_SIZE = 28
local LINK_SIZE = 3
local RECORD_HEAD = 6
local REPLY_BIT = 0x80

local COMMANDS = {
  [0] = "source", [3] = "media", [4] = "bluetooth", [5] = "gps", [6] = "key",
  [7] = "version", [10] = "identity", [12] = "chip", [13] = "usb and sd",
}

local SOURCES = {
  [1] = "radio", [13] = "navi", [7] = "bttel", [28] = "btaudio", [12] = "sd", [6] = "usb",
  [2] = "disc", [4] = "aux2", [9] = "aux1", [18] = "ipod",
}

-- Kinds of parameters and of reply data.
local TEXT, MAC, BYTE, FOLDER_TRACK, POSITION, SATELLITES, NO_YES, FAIL_PASS, STOPPED_PLAYING, SOURCE =
  "text", "mac", "byte", "folder and track", "position", "satellites", "no/yes", "fail/pass",
  "stopped/playing", "source"

-- Sub-commands: name, kind of the parameters, kind of the reply's data. `first` names the meaning of
-- the first parameter byte instead.
local SUB_COMMANDS = {
  [0] = { [0] = { "source", SOURCE } },
  [3] = {
    [0] = { first = { [0] = "media next", [1] = "media previous" } },
    [1] = { "media jump", FOLDER_TRACK },
    [2] = { first = { [0] = "media pause", [1] = "media play", [2] = "media stop" } },
    [3] = { "media setup" },
    [4] = { "media device", nil, BYTE },
    [5] = { "media position", nil, FOLDER_TRACK },
    [6] = { "media state", nil, STOPPED_PLAYING },
    [7] = { "media region", BYTE },
    [8] = { "media region", nil, BYTE },
    [9] = { first = { [0] = "media repeat 0", [1] = "media repeat 1", [2] = "media repeat 2",
                      [3] = "media repeat 3", [4] = "media repeat 4" } },
  },
  [4] = {
    [0] = { "bt name", TEXT },
    [1] = { first = { [0] = "bt previous", [1] = "bt next" } },
    [2] = { first = { [0] = "bt play", [1] = "bt stop" } },
    [3] = { first = { [0] = "bt answer", [1] = "bt hangup" } },
    [4] = { "bt call", TEXT },
    [5] = { "bt pair", TEXT },
    [6] = { first = { [0] = "bt answer", [1] = "bt hangup" } },
    [7] = { "bt mac", nil, MAC },
    [11] = { first = { [0] = "bt off", [1] = "bt on" } },
    [13] = { "bt name", nil, TEXT },
    [14] = { "bt mac", MAC },
  },
  [5] = {
    [0] = { "gps satellites", nil, SATELLITES },
    [2] = { "gps position", nil, POSITION },
    [3] = { "gps speed", nil, TEXT },
    [4] = { "gps angle", nil, TEXT },
    [5] = { "gps navi 5" },
    [6] = { first = { [1] = "gps navi 2", [2] = "gps navi 3" } },
    [7] = { "gps navi 10" },
  },
  [6] = { [4] = { "calibrate" } },
  [7] = {
    [1] = { "version mpu", nil, TEXT }, [2] = { "version os", nil, TEXT },
    [3] = { "version navi", nil, TEXT }, [4] = { "version bt", nil, TEXT },
    [5] = { "version map", nil, TEXT }, [6] = { "version model", nil, TEXT },
    [8] = { "version zmmpu", nil, TEXT }, [9] = { "version zmos", nil, TEXT },
    [27] = { "version touch", nil, TEXT }, [29] = { "version ifs", nil, TEXT },
  },
  [10] = {
    [2] = { "serial", TEXT }, [3] = { "serial", nil, TEXT },
    [10] = { "uuid", TEXT }, [11] = { "uuid", nil, TEXT },
  },
  [12] = { [0] = { "chip", nil, FAIL_PASS } },
  [13] = {
    [0] = { "usb present", nil, NO_YES }, [1] = { "sd present", nil, NO_YES },
    [2] = { "usb sync", nil, NO_YES }, [3] = { "sd sync", nil, NO_YES },
  },
}

local WORDS = {
  [NO_YES] = { [0] = "no", [1] = "yes" },
  [FAIL_PASS] = { [0] = "fail", [1] = "pass" },
  [STOPPED_PLAYING] = { [0] = "stopped", [1] = "playing" },
  [SOURCE] = SOURCES,
}

local protocol = Proto("korvandis", "Korvandis AT test packet")
local f = {
  direction = ProtoField.uint8("korvandis.direction", "Direction", base.DEC,
                               { [0] = "to the service", [1] = "from the service" }),
  payload_length = ProtoField.uint32("korvandis.header.payload_length", "Payload length"),
  packet_type = ProtoField.uint32("korvandis.header.packet_type", "Packet type", base.HEX),
  reply_type = ProtoField.uint32("korvandis.header.reply_type", "Reply type", base.HEX),
  argument = ProtoField.uint32("korvandis.header.argument", "Header argument"),
  link_type = ProtoField.uint8("korvandis.link.type", "Link type", base.HEX),
  sequence = ProtoField.uint8("korvandis.link.sequence", "Sequence number"),
  link_byte = ProtoField.uint8("korvandis.link.byte", "Link byte"),
  start = ProtoField.uint8("korvandis.record.start", "Record start", base.HEX),
  id = ProtoField.uint8("korvandis.record.id", "Record id", base.HEX),
  reserved = ProtoField.uint8("korvandis.record.reserved", "Reserved"),
  length = ProtoField.uint8("korvandis.record.length", "Length"),
  command = ProtoField.uint8("korvandis.command", "Command", base.DEC, COMMANDS, 0x7F),
  reply = ProtoField.bool("korvandis.reply", "Reply", 8, nil, REPLY_BIT),
  sub_command = ProtoField.uint8("korvandis.sub_command", "Sub-command"),
  name = ProtoField.string("korvandis.name", "Command name"),
  parameters = ProtoField.bytes("korvandis.parameters", "Parameters"),
  data = ProtoField.bytes("korvandis.data", "Reply data"),
  text = ProtoField.string("korvandis.text", "Text"),
  mac = ProtoField.ether("korvandis.mac", "MAC address"),
  byte = ProtoField.uint8("korvandis.byte", "Value"),
  word = ProtoField.string("korvandis.word", "Meaning"),
  folder = ProtoField.uint16("korvandis.folder", "Folder"),
  track = ProtoField.uint16("korvandis.track", "Track"),
  longitude = ProtoField.double("korvandis.longitude", "Longitude"),
  latitude = ProtoField.double("korvandis.latitude", "Latitude"),
  satellites = ProtoField.uint8("korvandis.satellites", "Satellites"),
  satellite = ProtoField.uint8("korvandis.satellite.id", "Satellite"),
  signal = ProtoField.int24("korvandis.satellite.signal", "C/N0 (dBHz)"),
}
protocol.fields = f

local malformed = ProtoExpert.new("korvandis.malformed", "The packet is cut or its lengths disagree",
                                  expert.group.MALFORMED, expert.severity.ERROR)
protocol.experts = { malformed }

-- Text up to its first zero byte; never fails on bytes that are no characters.
local function text_of(range)
  local length = range:len()
  for i = 0, length - 1 do
    if range(i, 1):uint() == 0 then
      length = i
      break
    end
  end
  return length == 0 and "" or range(0, length):string()
end

-- Adds what the bytes mean below `tree` and returns it as one text.
local function add_meaning(kind, range, tree)
  local size = range:len()
  if kind == TEXT then
    local text = text_of(range)
    tree:add(f.text, range, text)
    return text
  elseif kind == MAC and size == 6 then
    tree:add(f.mac, range)
    -- Byte by byte: an address may be shown with its maker's name.
    local fields = {}
    for i = 0, size - 1 do
      fields[#fields + 1] = string.format("%02X", range(i, 1):uint())
    end
    return table.concat(fields, ":")
  elseif kind == BYTE and size == 1 then
    tree:add(f.byte, range)
    return tostring(range:uint())
  elseif WORDS[kind] and size == 1 then
    local word = WORDS[kind][range:uint()] or "unknown"
    tree:add(f.word, range, word)
    return word
  elseif kind == FOLDER_TRACK and size == 4 then
    tree:add(f.folder, range(0, 2))
    tree:add(f.track, range(2, 2))
    return "folder " .. range(0, 2):uint() .. ", track " .. range(2, 2):uint()
  elseif kind == POSITION and size == 16 then
    tree:add_le(f.longitude, range(0, 8))
    tree:add_le(f.latitude, range(8, 8))
    return string.format("%.6f %.6f", range(0, 8):le_float(), range(8, 8):le_float())
  elseif kind == SATELLITES and size == 1 + 4 * range(0, 1):uint() then
    tree:add(f.satellites, range(0, 1))
    for at = 1, size - 4, 4 do
      local entry = tree:add(f.satellite, range(at, 1))
      entry:add(f.signal, range(at + 1, 3))
    end
    return range(0, 1):uint() .. " satellites"
  end
  return nil
end

-- The words of a command, as the station takes them.
local function name_of(command, sub_command, is_reply, first_byte)
  local row = SUB_COMMANDS[command] and SUB_COMMANDS[command][sub_command]
  if not row then
    return "command " .. command .. ", sub-command " .. sub_command
  end
  if row.first and not is_reply then
    local name = first_byte and row.first[first_byte]
    return name or ("command " .. command .. ", sub-command " .. sub_command)
  end
  return row[1] or ("command " .. command .. ", sub-command " .. sub_command)
end

local function dissect_record(range, to_service, tree, info)
  tree:add(f.start, range(0, 1))
  tree:add(f.id, range(1, 1))
  tree:add(f.reserved, range(2, 1))
  tree:add(f.length, range(3, 1))
  tree:add(f.command, range(4, 1))
  tree:add(f.reply, range(4, 1))
  tree:add(f.sub_command, range(5, 1))
  local size = range:len() - RECORD_HEAD
  -- The length counts the sub-command in a request, only the data in a reply.
  local expected = range(3, 1):uint() - (to_service and 1 or 0)
  if size ~= expected then
    tree:add_proto_expert_info(malformed)
  end
  local is_reply = not to_service
  local command = range(4, 1):uint() % REPLY_BIT
  local sub_command = range(5, 1):uint()
  local bytes = size > 0 and range(RECORD_HEAD, size) or nil
  local name = name_of(command, sub_command, is_reply, bytes and bytes(0, 1):uint())
  tree:add(f.name, range(4, 2), name):set_generated()
  local meaning
  if bytes then
    local part = tree:add(is_reply and f.data or f.parameters, bytes)
    local row = SUB_COMMANDS[command] and SUB_COMMANDS[command][sub_command]
    local kind = row and row[is_reply and 3 or 2]
    meaning = kind and add_meaning(kind, bytes, part)
  end
  info:set(name .. (is_reply and ":" or "") .. (meaning and (" " .. meaning) or ""))
end

function protocol.dissector(buffer, pinfo, root)
  pinfo.cols.protocol:set("KORVANDIS")
  local size = buffer:len()
  local tree = root:add(protocol, buffer())
  if size < 1 then
    return
  end
  local to_service = buffer(0, 1):uint() == 0
  tree:add(f.direction, buffer(0, 1))
  pinfo.cols.src:set(to_service and "station" or "service")
  pinfo.cols.dst:set(to_service and "service" or "station")
  pinfo.cols.info:set("cut packet")
  if size < 1 + HEADER_SIZE then
    tree:add_proto_expert_info(malformed)
    return
  end
  local header = tree:add(protocol, buffer(1, HEADER_SIZE), "Header")
  header:add_le(f.payload_length, buffer(1, 4))
  header:add_le(f.packet_type, buffer(5, 4))
  header:add_le(f.reply_type, buffer(9, 4))
  for i = 3, 6 do
    header:add_le(f.argument, buffer(1 + 4 * i, 4))
  end
  local payload = size - 1 - HEADER_SIZE
  if buffer(1, 4):le_uint() ~= payload or payload < LINK_SIZE + RECORD_HEAD then
    tree:add_proto_expert_info(malformed)
  end
  if payload < LINK_SIZE + RECORD_HEAD then
    return
  end
  local link = tree:add(protocol, buffer(1 + HEADER_SIZE, LINK_SIZE), "Link bytes")
  link:add(f.link_type, buffer(1 + HEADER_SIZE, 1))
  link:add(f.sequence, buffer(2 + HEADER_SIZE, 1))
  link:add(f.link_byte, buffer(3 + HEADER_SIZE, 1))
  local record = buffer(1 + HEADER_SIZE + LINK_SIZE)
  dissect_record(record, to_service, tree:add(protocol, record, "AT record"), pinfo.cols.info)
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, protocol)
