-- Dissects captures of a fenlux port (link type USER0) in Wireshark and tshark. docs/capture.md says how to install it.
--
-- Every message is one packet: a header of 16 bytes, then the bytes that went through the port. Requests have a fixed
-- size; a capture leaves out the zeros at their ends, and the dissector puts them back.

local commands = {
  [1] = "add monitor object",
  [3] = "commit monitor objects",
  [4] = "grpm switch",
  [6] = "grsp switch",
  [8] = "grdto value",
  [9] = "grhara switch",
  [11] = "dump debug info",
  [12] = "spsp state",
  [13] = "driver version",
  [19] = "net-control mode",
  [20] = "system process",
  [21] = "net item list begin",
  [22] = "net item",
  [23] = "net item list end",
  [24] = "driver config",
}

local codes = {
  [4097] = "access",
  [4098] = "event 0x4005",
  [4099] = "event 0x4006",
  [4100] = "event 0x4007",
  [4101] = "event 0x4008 or 0x4009",
  [4102] = "event 0x400A",
  [4103] = "event 0x400B",
  [4104] = "event 0x400C",
  [4105] = "event 0x400D",
  [4106] = "event 0x400E",
  [4107] = "event 0x400F",
  [4108] = "event 0x4010",
  [4109] = "event 0x4011, 0x4008 or 0x4009",
  [4110] = "event 0x4012",
  [4111] = "event 0x4013",
  [4112] = "event 0x4014",
  [4113] = "event 0x4015, no reply wanted",
  [4114] = "endpoint",
  [4116] = "remote",
  [4117] = "event 0x401B",
  [4118] = "event 0x401E, prefixed path",
  [8193] = "access",
  [8194] = "event 0x4004, marked",
  [8195] = "event 0x4007",
  [8196] = "event 0x4008 or 0x4009",
  [8197] = "event 0x400A",
  [8198] = "event 0x400B",
  [8199] = "event 0x400C",
  [8200] = "event 0x400D",
  [8201] = "event 0x400E",
  [8202] = "event 0x400F",
  [8203] = "event 0x4010",
  [8204] = "event 0x4017, further path",
  [8205] = "remote",
  [8206] = "event 0x401A",
}

local verdicts = {
  [2] = "verdict 2",
  [3] = "pass",
  [4] = "verdict 4",
  [5] = "verdict 5",
  [6] = "context",
  [7] = "pass, client 2",
  [8] = "unjudged",
}

local kinds = {
  [1] = "connect context",
  [2] = "request",
  [3] = "request's reply",
  [4] = "notification",
  [5] = "notification's reply",
  [6] = "judgement",
  [7] = "closed",
  [8] = "facts",
  [9] = "call",
}

local HEADER_SIZE = 16
local CONNECT_SIZE = 16
local REQUEST_SIZE = 65561
local NOTIFICATION_SIZE = 156
local REPLY_SIZE = 156
local CONTEXT_TAIL = 2
local NO_PROCESS = UInt64(0xffffffff, 0xffffffff)

local MAGICS = {  -- as bytes
  connect = "624CAC3425D51825",
  request = "E34AA329E7FF798F",
  reply = "E44233B1B2C36553",
}

local proto = Proto("fenlux", "fenlux port")

-- Fields by their names behind "fenlux.".
local f = {}
local function field(constructor, name, title, ...)
  f[name] = constructor("fenlux." .. name, title, ...)
end

field(ProtoField.uint8, "version", "Payload version")
field(ProtoField.uint8, "kind", "Kind", base.DEC, kinds)
field(ProtoField.uint32, "connection", "Connection")
field(ProtoField.uint64, "exchange", "Exchange")
field(ProtoField.framenum, "answer_to", "Answer to", base.NONE, frametype.RESPONSE)
field(ProtoField.relative_time, "latency", "Latency")
field(ProtoField.bytes, "magic", "Magic")
field(ProtoField.uint32, "connect_version", "Version")
field(ProtoField.uint32, "client_type", "Client type")
field(ProtoField.uint32, "command", "Command", base.DEC, commands)
field(ProtoField.uint32, "object_type", "Object type")
field(ProtoField.uint8, "path_flag", "Path flag")
field(ProtoField.string, "root_name", "Root name")
field(ProtoField.string, "path", "Path")
field(ProtoField.string, "second_path", "Second path")
field(ProtoField.string, "further_path", "Further path")
field(ProtoField.uint32, "value", "Value")
field(ProtoField.uint8, "switch", "Switch")
field(ProtoField.uint8, "off", "Off")
field(ProtoField.uint8, "switch1", "Switch 1")
field(ProtoField.uint8, "switch2", "Switch 2")
field(ProtoField.uint8, "switch3", "Switch 3")
field(ProtoField.uint8, "switch4", "Switch 4")
field(ProtoField.uint32, "mode", "Mode")
field(ProtoField.uint32, "process_kind", "Kind of process", base.DEC, {[2] = "csrss.exe", [3] = "services.exe"})
field(ProtoField.uint64, "process_id", "Process id")
field(ProtoField.uint32, "list_type", "List type")
field(ProtoField.bytes, "opaque", "Opaque")
field(ProtoField.bytes, "block", "Configuration block")
field(ProtoField.uint32, "driver_version", "Driver version")
field(ProtoField.uint32, "code", "Code", base.DEC, codes)
field(ProtoField.uint8, "variant", "Variant")
field(ProtoField.uint8, "condition_a", "Condition A")
field(ProtoField.uint8, "condition_b", "Condition B")
field(ProtoField.uint8, "condition_c", "Condition C")
field(ProtoField.uint8, "oplock", "Oplock break")
field(ProtoField.uint32, "path_size", "Size of the path")
field(ProtoField.uint32, "second_path_size", "Size of the second path")
field(ProtoField.uint32, "extra_data_size", "Size of the extra data")
field(ProtoField.uint32, "further_path_present", "Further path present")
field(ProtoField.uint32, "identity_present", "Identity present")
field(ProtoField.bytes, "identity", "Identity")
field(ProtoField.uint8, "ipv6", "IPv6")
field(ProtoField.uint16, "port", "Port")
field(ProtoField.ipv4, "ipv4_address", "Address")
field(ProtoField.ipv6, "ipv6_address", "Address")
field(ProtoField.uint8, "remote", "Remote")
for word = 0, 3 do field(ProtoField.uint64, "word" .. word, "Word " .. word, base.HEX) end
field(ProtoField.uint8, "access_kind", "Access kind")
field(ProtoField.uint32, "value_a", "Value A")
field(ProtoField.uint32, "value_b", "Value B")
field(ProtoField.bytes, "extra_data", "Extra data")
field(ProtoField.uint32, "fixed_size", "Size of the fixed part")
field(ProtoField.uint32, "verdict", "Verdict", base.DEC, verdicts)
field(ProtoField.uint32, "context_size", "Size of the context data")
field(ProtoField.bytes, "context", "Context data")
field(ProtoField.string, "reason", "Reason")
field(ProtoField.string, "text", "Text")

local list = {}
for _, each in pairs(f) do list[#list + 1] = each end
proto.fields = list

local malformed =
  ProtoExpert.new("fenlux.malformed", "Malformed record", expert.group.MALFORMED, expert.severity.ERROR)
local failure = ProtoExpert.new("fenlux.unanswered", "Not answered", expert.group.RESPONSE_CODE, expert.severity.NOTE)
proto.experts = {malformed, failure}

local function report(tree, text) tree:add_proto_expert_info(malformed, "Malformed record: " .. text) end

-- With nanoseconds, unlike pinfo.abs_ts.
local frame_time = Field.new("frame.time_epoch")

-- The first frame and time of each exchange, stored when the packets are first read.
local exchanges = {}
function proto.init() exchanges = {} end

-- ---- Records. Each function returns the message's summary for the packet list.

local function check_magic(tvb, tree, magic)
  tree:add(f.magic, tvb(0, 8))
  if tvb(0, 8):bytes():tohex() ~= magic then report(tree, "wrong magic") end
end

-- The UTF-16 text in `size` bytes at `offset`: its size in bytes up to its NUL or the end.
local function text_size(tvb, offset, size)
  local units = 0
  while units < math.floor(size / 2) and tvb(offset + 2 * units, 2):le_uint() ~= 0 do units = units + 1 end
  return 2 * units
end

local function add_text(tvb, tree, text_field, offset, size)
  local length = text_size(tvb, offset, size)
  local text = ""
  if length > 0 then text = tvb(offset, length):le_ustring() end
  tree:add(text_field, tvb(offset, math.min(length + 2, size)), text)
  return text
end

local function add_checked(tvb, tree, value_field, offset, size, least, most, what)
  local range = tvb(offset, size)
  tree:add_le(value_field, range)
  local value = range:le_uint()
  if value < least or value > most then report(tree, what .. " " .. value .. " is out of range") end
  return value
end

local function dissect_connect(tvb, tree)
  if tvb:len() ~= CONNECT_SIZE then
    report(tree, "wrong size")
    return "malformed"
  end
  check_magic(tvb, tree, MAGICS.connect)
  add_checked(tvb, tree, f.connect_version, 8, 4, 200, 200, "version")
  return "client type " .. add_checked(tvb, tree, f.client_type, 12, 4, 1, 2, "client type")
end

local function add_client_switch(tvb, tree)
  add_checked(tvb, tree, f.client_type, 12, 4, 1, 2, "client type")
  return "switch " .. add_checked(tvb, tree, f.switch, 16, 1, 0, 1, "switch")
end

local function add_list_type(tvb, tree)
  return "list " .. add_checked(tvb, tree, f.list_type, 12, 4, 1, 3, "list type")
end

-- The payloads of commands that have one.
local payloads = {
  [1] = function(tvb, tree)
    add_checked(tvb, tree, f.object_type, 12, 4, 1, 3, "object type")
    add_checked(tvb, tree, f.path_flag, 16, 1, 0, 1, "path flag")
    add_text(tvb, tree, f.root_name, 17, 8)
    local path = add_text(tvb, tree, f.path, 25, REQUEST_SIZE - 25)
    if path == "" then report(tree, "empty path") end
    return path
  end,
  [3] = function(tvb, tree)
    return "type " .. add_checked(tvb, tree, f.object_type, 12, 4, 1, 3, "object type")
  end,
  [4] = add_client_switch,
  [6] = add_client_switch,
  [8] = function(tvb, tree)
    tree:add_le(f.value, tvb(12, 4))
    return tostring(tvb(12, 4):le_uint())
  end,
  [9] = function(tvb, tree) return "off " .. add_checked(tvb, tree, f.off, 12, 1, 0, 1, "switch") end,
  [12] = function(tvb, tree)
    for number = 1, 4 do tree:add(f["switch" .. number], tvb(11 + number, 1)) end
    return string.format("%d %d %d %d", tvb(12, 1):uint(), tvb(13, 1):uint(), tvb(14, 1):uint(), tvb(15, 1):uint())
  end,
  [19] = function(tvb, tree) return "mode " .. add_checked(tvb, tree, f.mode, 12, 4, 1, 4, "mode") end,
  [20] = function(tvb, tree)
    add_checked(tvb, tree, f.process_kind, 12, 4, 2, 3, "kind of process")
    tree:add_le(f.process_id, tvb(16, 8))
    local id = tvb(16, 8):le_uint64()
    if id == NO_PROCESS then report(tree, "the process id means no process") end
    return "process " .. tostring(id)
  end,
  [21] = add_list_type,
  [22] = function(tvb, tree)
    local text = add_list_type(tvb, tree)
    tree:add(f.opaque, tvb(16, 48))
    tree:add_le(f.value, tvb(64, 4))
    return text
  end,
  [23] = add_list_type,
  [24] = function(tvb, tree, used)
    if used > 12 then tree:add(f.block, tvb(12, used - 12)) end
    return math.max(used - 12, 0) .. " bytes"
  end,
}

local function dissect_request(tvb, tree, used)
  if tvb:len() ~= REQUEST_SIZE then
    report(tree, "wrong size")
    return "malformed"
  end
  check_magic(tvb, tree, MAGICS.request)
  tree:add_le(f.command, tvb(8, 4))
  local command = tvb(8, 4):le_uint()
  if not commands[command] then
    report(tree, "unknown command " .. command)
    return "command " .. command
  end
  local text = commands[command]
  if payloads[command] then text = text .. ", " .. payloads[command](tvb, tree, used) end
  return text
end

local function dissect_version_reply(tvb, tree)
  if tvb:len() < REQUEST_SIZE then
    report(tree, "too short for a version reply: the module reads it as version 0")
    return "version 0"
  end
  tree:add_le(f.driver_version, tvb(12, 4))
  return "version " .. tvb(12, 4):le_uint()
end

local function add_detail(tvb, tree, code)
  if code == 4114 then
    tree:add(f.ipv6, tvb(114, 1))
    tree:add_le(f.port, tvb(115, 2))
    if tvb(114, 1):uint() ~= 0 then
      tree:add(f.ipv6_address, tvb(117, 16))
    else
      tree:add(f.ipv4_address, tvb(117, 4))
    end
  elseif code == 4116 or code == 8205 then
    tree:add(f.remote, tvb(114, 1))
    for word = 0, 3 do tree:add_le(f["word" .. word], tvb(115 + 8 * word, 8)) end
  elseif code == 4097 or code == 8193 then
    tree:add(f.access_kind, tvb(147, 1))
    tree:add_le(f.value_a, tvb(148, 4))
    tree:add_le(f.value_b, tvb(152, 4))
  end
end

local function dissect_notification(tvb, tree)
  local size = tvb:len()
  if size < NOTIFICATION_SIZE then
    report(tree, "wrong size")
    return "malformed"
  end
  local code = tvb(20, 4):le_uint()
  tree:add_le(f.process_id, tvb(12, 8))
  tree:add_le(f.code, tvb(20, 4))
  tree:add(f.variant, tvb(24, 1))
  tree:add(f.condition_a, tvb(25, 1))
  tree:add(f.condition_b, tvb(27, 1))
  tree:add(f.condition_c, tvb(28, 1))
  tree:add(f.oplock, tvb(29, 1))
  tree:add_le(f.path_size, tvb(30, 4))
  tree:add_le(f.second_path_size, tvb(34, 4))
  tree:add_le(f.extra_data_size, tvb(38, 4))
  tree:add_le(f.further_path_present, tvb(42, 4))
  tree:add_le(f.identity_present, tvb(46, 4))
  if not codes[code] then
    report(tree, "unknown notification code " .. code)
    return "code " .. code
  end
  if tvb(46, 4):le_uint() ~= 0 then tree:add(f.identity, tvb(50, 64)) end
  add_detail(tvb, tree, code)

  local shown = ""
  local function add_item(text_field, offset)
    if offset >= size then
      report(tree, "an item begins at " .. offset .. ", beyond the end of the message")
      return
    end
    local text = add_text(tvb, tree, text_field, offset, size - offset)
    if shown == "" then shown = ", " .. text end
  end
  local second = NOTIFICATION_SIZE + tvb(30, 4):le_uint()
  local extra = second + tvb(34, 4):le_uint()
  local extra_size = tvb(38, 4):le_uint()
  if code == 8204 and tvb(42, 4):le_uint() ~= 0 then
    add_item(f.further_path, extra + extra_size)
  elseif tvb(30, 4):le_uint() ~= 0 then
    add_item(f.path, NOTIFICATION_SIZE)
  end
  if tvb(34, 4):le_uint() ~= 0 then add_item(f.second_path, second) end
  if extra_size ~= 0 then
    if extra + extra_size > size then
      report(tree, "the extra data ends at " .. extra + extra_size .. ", beyond the end of the message")
    else
      tree:add(f.extra_data, tvb(extra, extra_size))
    end
  end
  return code .. " " .. codes[code] .. shown
end

local function dissect_reply(tvb, tree)
  local size = tvb:len()
  if size < REPLY_SIZE then
    report(tree, "wrong size")
    return "malformed"
  end
  check_magic(tvb, tree, MAGICS.reply)
  add_checked(tvb, tree, f.fixed_size, 8, 4, REPLY_SIZE, REPLY_SIZE, "fixed size")
  tree:add_le(f.verdict, tvb(12, 4))
  local verdict = tvb(12, 4):le_uint()
  if not verdicts[verdict] then
    report(tree, "unknown verdict " .. verdict)
    return "verdict " .. verdict
  end
  if verdict == 6 then
    tree:add_le(f.context_size, tvb(16, 4))
    local context = tvb(16, 4):le_uint()
    if context <= CONTEXT_TAIL then
      report(tree, "the context data is missing")
    elseif size - REPLY_SIZE ~= context then
      report(tree, "wrong size")
    else
      tree:add(f.context, tvb(REPLY_SIZE, context - CONTEXT_TAIL))
    end
  elseif size ~= REPLY_SIZE then
    report(tree, "wrong size")
  end
  return "verdict " .. verdict .. " " .. verdicts[verdict]
end

local function dissect_json(tvb, tree, _, pinfo)
  local text = tvb(0):string()
  tree:add(f.text, tvb(0), text)
  pcall(function() Dissector.get("json"):call(tvb, pinfo, tree) end)
  return text
end

local function dissect_closed(tvb, tree)
  tree:add(f.reason, tvb(0), tvb(0):string())
  return tvb(0):string()
end

local records = {
  [1] = dissect_connect,
  [2] = dissect_request,
  [3] = dissect_version_reply,
  [4] = dissect_notification,
  [5] = dissect_reply,
  [6] = dissect_json,
  [7] = dissect_closed,
  [8] = dissect_json,
  [9] = dissect_json,
}

-- Links a reply to the message that it answers.
local function relate(pinfo, tree, kind, key)
  if kind == 2 or kind == 4 then
    if not pinfo.visited then exchanges[key] = {frame = pinfo.number, time = frame_time().value} end
  elseif (kind == 3 or kind == 5 or kind == 6) and exchanges[key] then
    local first = exchanges[key]
    tree:add(f.answer_to, first.frame):set_generated()
    if kind == 6 then return end
    tree:add(f.latency, frame_time().value - first.time):set_generated()
  end
end

-- The message as it went through the port, with the zeros that the capture leaves out.
local function whole_message(tvb)
  local captured = tvb:len() - HEADER_SIZE
  local size = tvb:reported_len() - HEADER_SIZE
  if size <= captured then return tvb(HEADER_SIZE):tvb(), captured end
  local bytes = ByteArray.new()
  if captured > 0 then bytes = tvb(HEADER_SIZE):bytes() end
  bytes:set_size(size)
  return bytes:tvb("Message with its zeros"), captured
end

function proto.dissector(tvb, pinfo, root)
  pinfo.cols.protocol = "fenlux"
  local tree = root:add(proto, tvb(0))
  if tvb:len() < HEADER_SIZE then
    report(tree, "shorter than its header")
    return
  end
  local kind = tvb(1, 1):uint()
  local connection = tvb(4, 4):le_uint()
  local exchange = tostring(tvb(8, 8):le_uint64())
  tree:add(f.version, tvb(0, 1))
  tree:add(f.kind, tvb(1, 1))
  tree:add_le(f.connection, tvb(4, 4))
  tree:add_le(f.exchange, tvb(8, 8))
  if tvb(0, 1):uint() ~= 1 then report(tree, "unknown version of the payload") end
  local title = (kinds[kind] or ("kind " .. kind))
  tree:append_text(", " .. title)
  relate(pinfo, tree, kind, connection .. ":" .. exchange)

  local text = ""
  if not records[kind] then
    report(tree, "unknown kind of message")
  elseif tvb:reported_len() == HEADER_SIZE and (kind == 3 or kind == 5) then
    text = "none"
  elseif tvb:reported_len() == HEADER_SIZE then
    report(tree, "empty message")
  else
    local message, used = whole_message(tvb)
    text = records[kind](message, tree, used, pinfo)
  end
  pinfo.cols.info = title .. " " .. connection .. ":" .. exchange .. (text ~= "" and ": " .. text or "")
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, proto)
