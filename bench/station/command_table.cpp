// The table itself. A row is a command of the service, as a person says it, or one of the station's
// own.
#include "builtin.h"
#include "station/command.h"

namespace station {
namespace {

using Kind = Parameter::Kind;

// Numbers of the service's commands.
const std::uint8_t kSource = 0;
const std::uint8_t kMedia = 3;
const std::uint8_t kBluetooth = 4;
const std::uint8_t kGps = 5;
const std::uint8_t kKey = 6;
const std::uint8_t kVersion = 7;
const std::uint8_t kIdentity = 10;
const std::uint8_t kChip = 12;
const std::uint8_t kUsbSd = 13;

const char kSettings[] = "/pps/services/bluetooth/settings";
const char kSwitch[] = "/pps/zelmar/setting/bt_control";
const char kHandsFree[] = "/pps/services/handsfree/control";
const char kAvrcp[] = "/pps/services/bluetooth/avrcp/control";
const char kNowPlaying[] = "/pps/zelmar/navigator/nowplaying";
const char kDiscControl[] = "/pps/zelmar/disc/control";
const char kKeyObject[] = "/pps/zelmar/system/key";
const char kJumpObject[] = "/pps/zelmar/media/autotest/control";
const char kNavigation[] = "/pps/zelmar/navigation/command";

const std::vector<Choice> kSources = {{"radio", 1}, {"navi", 13}, {"bttel", 7}, {"btaudio", 28},
                                      {"sd", 12},   {"usb", 6},   {"disc", 2},  {"aux2", 4},
                                      {"aux1", 9},  {"ipod", 18}};

// A question: no arguments, one reply.
Command Ask(const char* words, std::uint8_t number, std::uint8_t sub_command,
            const ReplyFormat& reply, const char* help) {
  Command command;
  command.words = words;
  command.help = help;
  command.sent = true;
  command.number = number;
  command.sub_command = sub_command;
  command.reply = &reply;
  return command;
}

// A write: no reply, perhaps a proof.
Command Write(const char* words, std::uint8_t number, std::uint8_t sub_command, Bytes fixed,
              std::vector<Parameter> parameters, const char* help, std::vector<Proof> proofs = {}) {
  Command command;
  command.words = words;
  command.parameters = std::move(parameters);
  command.help = help;
  command.sent = true;
  command.number = number;
  command.sub_command = sub_command;
  command.fixed = std::move(fixed);
  command.proofs = std::move(proofs);
  return command;
}

Command Own(const char* words, int (*run)(Context&), std::vector<Parameter> parameters,
            std::vector<Option> options, const char* help) {
  Command command;
  command.words = words;
  command.parameters = std::move(parameters);
  command.help = help;
  command.run = run;
  command.options = std::move(options);
  return command;
}

Proof ReadBack(const char* command, std::vector<Proof::Expected> expected) {
  return Proof{nullptr, command, nullptr, std::move(expected)};
}

Proof InObject(const char* object, std::vector<Proof::Expected> expected) {
  return Proof{nullptr, nullptr, object, std::move(expected)};
}

Proof WhileSource(const char* source, Proof proof) {
  proof.source = source;
  return proof;
}

// A key press of the wheel leaves its release in the object.
std::vector<Proof> OnUsbAndSd(const char* key) {
  const Proof proof = InObject(kKeyObject, {{"zmkey", key}});
  return {WhileSource("zmusb", proof), WhileSource("zmsd", proof), WhileSource("zmrusb", proof)};
}

std::vector<Proof> Player(Proof disc, const char* key) {
  std::vector<Proof> proofs = OnUsbAndSd(key);
  proofs.push_back(WhileSource("zmdisc", std::move(disc)));
  return proofs;
}

Parameter Text(const char* name, unsigned longest) {
  Parameter parameter{name, Kind::kText};
  parameter.low = 1;
  parameter.high = longest;
  return parameter;
}

Parameter Number(const char* name, Kind kind, unsigned low, unsigned high) {
  Parameter parameter{name, kind};
  parameter.low = low;
  parameter.high = high;
  return parameter;
}

Parameter Word(const char* name, const std::vector<Choice>& choices) {
  Parameter parameter{name, Kind::kChoice};
  parameter.choices = &choices;
  return parameter;
}

Parameter Optional(Parameter parameter) {
  parameter.optional = true;
  return parameter;
}

std::vector<Command> MakeTable() {
  static const char kPlayKey[] = R"({"key":17,"src":"wheel","status":"up","param":0})";
  static const char kPauseKey[] = R"({"key":18,"src":"wheel","status":"up","param":0})";
  static const char kNextKey[] = R"({"key":20,"src":"wheel","status":"up","param":0})";
  static const char kPreviousKey[] = R"({"key":21,"src":"wheel","status":"up","param":0})";
  const Parameter mac{"XX:XX:XX:XX:XX:XX", Kind::kMac};
  Parameter bytes{"BYTE", Kind::kHexByte};
  bytes.optional = true;
  bytes.repeated = true;

  // clang-format off
  std::vector<Command> table = {
    // The station's own.
    Own("wait", RunWait, {Optional(Number("SECONDS", Kind::kSeconds, 0, 3600))}, {},
        "wait until the service is connected (10 seconds unless given)"),
    Own("raw", RunRaw, {Number("COMMAND", Kind::kByte, 0, 255), Number("SUB", Kind::kByte, 0, 255), bytes}, {},
        "send any request (numbers decimal, bytes hexadecimal) and show the reply"),
    Own("monitor", RunMonitor, {}, {{"--whole", nullptr, "show the whole packet, not only what follows the header"}},
        "follow the traffic between the MCU and the service until interrupted"),
    Own("run", RunSequenceFile, {Parameter{"FILE", Kind::kFile}},
        {{"--set", "NAME=VALUE", "give a value of the sequence (may be repeated)"},
         {"--only", "PHASE", "run only this phase (may be repeated)"},
         {"--list", nullptr, "show the phases and steps, send nothing"},
         {"--dry-run", nullptr, "check everything and show what would be sent, send nothing"},
         {"--junit", "FILE", "write the record as JUnit XML"},
         {"--json", "FILE", "write the record as JSON"}},
        "run a test sequence"),
    Own("record", RecordTraffic, {Parameter{"FILE", Kind::kFile}},
        {{"--pcap", nullptr, "write a pcap file (link type 147) instead of text"}},
        "record the traffic between the MCU and the service until interrupted"),
    Own("replay", ReplayTraffic, {Parameter{"FILE", Kind::kFile}},
        {{"--fast", nullptr, "do not keep the recorded pauses"},
         {"--ignore", "COMMAND", "do not compare answers to commands that begin so (may be repeated)"}},
        "send the requests of a recording again and compare the answers"),
    Own("completion bash", RunCompletion, {}, {}, "print the completion script for bash"),

    // Version report.
    Own("version", RunGroup, {}, {}, "all versions as a table; exit status 1 when one is missing"),
    Ask("version mpu", kVersion, 1, kVersionReply, "MPU software"),
    Ask("version os", kVersion, 2, kVersionReply, "operating system"),
    Ask("version navi", kVersion, 3, kVersionReply, "navigation engine"),
    Ask("version bt", kVersion, 4, kVersionReply, "Bluetooth module"),
    Ask("version map", kVersion, 5, kVersionReply, "map data"),
    Ask("version model", kVersion, 6, kVersionReply, "MPU model"),
    Ask("version zmmpu", kVersion, 8, kVersionReply, "MPU software, second record"),
    Ask("version zmos", kVersion, 9, kVersionReply, "operating system, second record"),
    Ask("version touch", kVersion, 27, kVersionReply, "touch panel firmware"),
    Ask("version ifs", kVersion, 29, kVersionReply, "boot image"),

    // Identity.
    Ask("uuid", kIdentity, 11, kIdentityReply, "read the UUID"),
    Write("uuid", kIdentity, 10, {}, {Text("TEXT", 16)}, "burn in the UUID (up to 16 bytes)",
          {ReadBack("uuid", {{"text", "{1}"}})}),
    Ask("serial", kIdentity, 3, kIdentityReply, "read the machine serial number"),
    Write("serial", kIdentity, 2, {}, {Text("TEXT", 20)}, "burn in the machine serial number (up to 20 bytes)",
          {ReadBack("serial", {{"text", "{1}"}})}),

    // Bluetooth and hands-free.
    Ask("bt name", kBluetooth, 13, kNameReply, "read the local name"),
    Write("bt name", kBluetooth, 0, {}, {Text("TEXT", 125)}, "set the local name",
          {ReadBack("bt name", {{"name", "{1}"}})}),
    Write("bt pair", kBluetooth, 5, {}, {Text("CODE", 125)}, "set the pairing code",
          {InObject(kSettings, {{"pairingcode", "{1}"}})}),
    Ask("bt mac", kBluetooth, 7, kMacReply, "read the MAC address"),
    Write("bt mac", kBluetooth, 14, {}, {mac}, "set the MAC address",
          {ReadBack("bt mac", {{"mac", "{1}"}})}),
    Write("bt on", kBluetooth, 11, {1}, {}, "switch Bluetooth on",
          {InObject(kSwitch, {{"zmbt_switch", "on"}})}),
    Write("bt off", kBluetooth, 11, {0}, {}, "switch Bluetooth off",
          {InObject(kSwitch, {{"zmbt_switch", "off"}})}),
    Write("bt call", kBluetooth, 4, {}, {Text("NUMBER", 34)}, "dial a number",
          {InObject(kHandsFree, {{"command", "HFP_CALL"}, {"cmd_data", "{1}"}})}),
    Write("bt answer", kBluetooth, 3, {0}, {}, "answer a call",
          {InObject(kHandsFree, {{"command", "HFP_ACCEPT"}})}),
    Write("bt hangup", kBluetooth, 3, {1}, {}, "hang up",
          {InObject(kHandsFree, {{"command", "HFP_HANGUP"}})}),
    Write("bt next", kBluetooth, 1, {1}, {}, "next track of the connected player",
          {InObject(kAvrcp, {{"command", "next"}})}),
    Write("bt previous", kBluetooth, 1, {0}, {}, "previous track of the connected player",
          {InObject(kAvrcp, {{"command", "previous"}})}),
    Write("bt play", kBluetooth, 2, {0}, {}, "start the connected player",
          {InObject(kAvrcp, {{"command", "play"}})}),
    Write("bt stop", kBluetooth, 2, {1}, {}, "stop the connected player",
          {InObject(kAvrcp, {{"command", "stop"}})}),

    Write("calibrate", kKey, 4, {}, {}, "run the key calibration; the service answers nothing else meanwhile"),
    Ask("chip", kChip, 0, kChipReply, "check the authentication chip's identity"),

    // Sources and players.
    Write("source", kSource, 0, {}, {Word("NAME", kSources)}, "switch to a source",
          {InObject(kNowPlaying, {{"zmplaysource", "zm{1}"}})}),
    Write("media play", kMedia, 2, {1}, {}, "start the current player",
          Player(ReadBack("media state", {{"state", "playing"}}), kPlayKey)),
    Write("media pause", kMedia, 2, {0}, {}, "pause the current player",
          Player(ReadBack("media state", {{"state", "stopped"}}), kPauseKey)),
    Write("media stop", kMedia, 2, {2}, {}, "stop the current player",
          Player(ReadBack("media state", {{"state", "stopped"}}), kPauseKey)),
    Write("media next", kMedia, 0, {0}, {}, "next track",
          Player(InObject(kDiscControl, {{"zmcmd", R"({"cmd":135,"param1":1,"param2":0})"}}), kNextKey)),
    Write("media previous", kMedia, 0, {1}, {}, "previous track",
          Player(InObject(kDiscControl, {{"zmcmd", R"({"cmd":136,"param1":1,"param2":0})"}}), kPreviousKey)),
    Write("media jump", kMedia, 1, {},
          {Number("FOLDER", Kind::kWord, 0, 65535), Number("TRACK", Kind::kWord, 0, 65535)},
          "jump to a track of a folder (tracks count from 1)",
          {WhileSource("zmdisc", ReadBack("media position", {{"folder", "{1}"}, {"track", "{2}"}})),
           InObject(kJumpObject, {{"autotest_play", R"({"folderid":{1},"index":{2-1}})"}})}),
    Ask("media position", kMedia, 5, kMediaPositionReply, "folder and track of the disc player"),
    Ask("media state", kMedia, 6, kMediaStateReply, "whether the disc player plays"),
    Ask("media device", kMedia, 4, kMediaDeviceReply, "disc device"),
    Ask("media region", kMedia, 8, kMediaRegionReply, "read the disc region"),
    Write("media region", kMedia, 7, {}, {Number("REGION", Kind::kByte, 0, 6)}, "set the disc region",
          {ReadBack("media region", {{"region", "{1}"}})}),
    Write("media repeat 0", kMedia, 9, {0}, {}, "disc player's repeat mode 0",
          {WhileSource("zmdisc", InObject(kDiscControl, {{"zmcmd", R"({"cmd":192,"param1":1,"param2":0})"}}))}),
    Write("media repeat 1", kMedia, 9, {1}, {}, "disc player's repeat mode 1",
          {WhileSource("zmdisc", InObject(kDiscControl, {{"zmcmd", R"({"cmd":192,"param1":0,"param2":0})"}}))}),
    Write("media repeat 2", kMedia, 9, {2}, {}, "disc player's repeat mode 2",
          {WhileSource("zmdisc", InObject(kDiscControl, {{"zmcmd", R"({"cmd":192,"param1":2,"param2":0})"}}))}),
    Write("media repeat 3", kMedia, 9, {3}, {}, "disc player's repeat mode 3",
          {WhileSource("zmdisc", InObject(kDiscControl, {{"zmcmd", R"({"cmd":193,"param1":1,"param2":0})"}}))}),
    Write("media repeat 4", kMedia, 9, {4}, {}, "disc player's repeat mode 4",
          {WhileSource("zmdisc", InObject(kDiscControl, {{"zmcmd", R"({"cmd":193,"param1":0,"param2":0})"}}))}),
    Write("media setup", kMedia, 3, {}, {}, "send the disc player's setup command",
          {InObject(kDiscControl, {{"zmcmd", R"({"cmd":200,"param1":1,"param2":0})"}})}),

    Own("usb", RunGroup, {}, {}, "presence and synchronisation of the USB device"),
    Ask("usb present", kUsbSd, 0, kPresenceReply, "whether a USB device is there"),
    Ask("usb sync", kUsbSd, 2, kSynchronisationReply, "whether its synchronisation has finished"),
    Own("sd", RunGroup, {}, {}, "presence and synchronisation of the SD card"),
    Ask("sd present", kUsbSd, 1, kPresenceReply, "whether an SD card is there"),
    Ask("sd sync", kUsbSd, 3, kSynchronisationReply, "whether its synchronisation has finished"),

    // Positioning.
    Ask("gps satellites", kGps, 0, kSatellitesReply, "satellites and their signals"),
    Ask("gps position", kGps, 2, kPositionReply, "longitude and latitude"),
    Ask("gps speed", kGps, 3, kSpeedReply, "speed"),
    Ask("gps angle", kGps, 4, kAngleReply, "angle, as the navigation service last gave it"),
    Write("gps navi 2", kGps, 6, {1}, {}, "send navigation command 2",
          {InObject(kNavigation, {{"msg", R"({"cmd":2})"}})}),
    Write("gps navi 3", kGps, 6, {2}, {}, "send navigation command 3",
          {InObject(kNavigation, {{"msg", R"({"cmd":3})"}})}),
    Write("gps navi 5", kGps, 5, {}, {}, "send navigation command 5",
          {InObject(kNavigation, {{"msg", R"({"cmd":5})"}})}),
    Write("gps navi 10", kGps, 7, {}, {}, "send navigation command 10",
          {InObject(kNavigation, {{"msg", R"({"cmd":10})"}})}),
    Own("gps watch", RunGpsWatch, {}, {{"--every", "SECONDS", "time between two looks (default 1)"}},
        "follow satellites, position and speed until interrupted"),
  };
  // clang-format on
  return table;
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> table = MakeTable();
  return table;
}

const std::vector<Option>& GlobalOptions() {
  static const std::vector<Option> options = {
      {"--timeout", "SECONDS", "longest wait for a reply (default 2)"},
      {"--root", "DIR", "directory that stands for the unit's / (default: $HEADUNIT_ROOT)"},
      {"--help", nullptr, "what this command does and takes"},
  };
  return options;
}

}  // namespace station
