// All commands: the service's, from the table in wire/, with the proofs of the writes, and the
// station's own.
#include <deque>

#include "builtin.h"
#include "station/command.h"

namespace station {
namespace {

using Kind = Parameter::Kind;

const char kSettings[] = "/pps/services/bluetooth/settings";
const char kSwitch[] = "/pps/zelmar/setting/bt_control";
const char kHandsFree[] = "/pps/services/handsfree/control";
const char kAvrcp[] = "/pps/services/bluetooth/avrcp/control";
const char kNowPlaying[] = "/pps/zelmar/navigator/nowplaying";
const char kDiscControl[] = "/pps/zelmar/disc/control";
const char kDiscSetting[] = "/pps/zelmar/disc/setting_status";
const char kKeyObject[] = "/pps/zelmar/system/key";
const char kJumpObject[] = "/pps/zelmar/media/autotest/control";
const char kNavigation[] = "/pps/zelmar/navigation/command";

// --- proofs -------------------------------------------------------------------------------------

Proof ReadBack(const char* command, std::vector<Proof::Expected> expected) {
  return Proof{nullptr, command, nullptr, std::move(expected)};
}

Proof InObject(const char* object, std::vector<Proof::Expected> expected) {
  return Proof{nullptr, nullptr, object, std::move(expected)};
}

Proof ByState(const char* object, std::vector<Proof::Expected> expected) {
  Proof proof = InObject(object, std::move(expected));
  proof.is_state = true;
  return proof;
}

Proof WhileSource(const char* source, Proof proof) {
  proof.source = source;
  return proof;
}

Proof ByDisc(const char* command) {
  return WhileSource("zmdisc", InObject(kDiscControl, {{"zmcmd", command}}));
}

// A key press of the wheel leaves its release in the object.
std::vector<Proof> ByKey(const char* key, std::vector<Proof> others) {
  const Proof proof = InObject(kKeyObject, {{"zmkey", key}});
  for (const char* source : {"zmusb", "zmsd", "zmrusb"}) {
    others.push_back(WhileSource(source, proof));
  }
  return others;
}

// The proofs of a write besides the question with the same words, which is asked first.
struct ProofRow {
  const char* words;
  std::vector<Proof> proofs;
};

std::vector<ProofRow> MakeProofs() {
  static const char kPlayKey[] = R"({"key":17,"src":"wheel","status":"up","param":0})";
  static const char kPauseKey[] = R"({"key":18,"src":"wheel","status":"up","param":0})";
  static const char kNextKey[] = R"({"key":20,"src":"wheel","status":"up","param":0})";
  static const char kPreviousKey[] = R"({"key":21,"src":"wheel","status":"up","param":0})";
  // clang-format off
  return {
    {"bt pair", {InObject(kSettings, {{"pairingcode", "{1}"}})}},
    {"bt on", {InObject(kSwitch, {{"zmbt_switch", "on"}})}},
    {"bt off", {InObject(kSwitch, {{"zmbt_switch", "off"}})}},
    {"bt call", {InObject(kHandsFree, {{"command", "HFP_CALL"}, {"cmd_data", "{1}"}})}},
    {"bt answer", {InObject(kHandsFree, {{"command", "HFP_ACCEPT"}})}},
    {"bt hangup", {InObject(kHandsFree, {{"command", "HFP_HANGUP"}})}},
    {"bt next", {InObject(kAvrcp, {{"command", "next"}})}},
    {"bt previous", {InObject(kAvrcp, {{"command", "previous"}})}},
    {"bt play", {InObject(kAvrcp, {{"command", "play"}})}},
    {"bt stop", {InObject(kAvrcp, {{"command", "stop"}})}},
    {"source", {ByState(kNowPlaying, {{"zmplaysource", "zm{1}"}})}},
    {"media play", ByKey(kPlayKey, {WhileSource("zmdisc", ReadBack("media state", {{"state", "playing"}}))})},
    {"media pause", ByKey(kPauseKey, {ByDisc(R"({"cmd":130,"param1":1,"param2":0})")})},
    {"media stop", ByKey(kPauseKey, {ByDisc(R"({"cmd":129,"param1":1,"param2":0})")})},
    {"media next", ByKey(kNextKey, {ByDisc(R"({"cmd":135,"param1":1,"param2":0})")})},
    {"media previous", ByKey(kPreviousKey, {ByDisc(R"({"cmd":136,"param1":1,"param2":0})")})},
    {"media jump",
     {WhileSource("zmdisc", ReadBack("media position", {{"folder", "{1}"}, {"track", "{2}"}})),
      ByDisc(R"({"cmd":182,"param1":{2},"param2":{1}})"),
      InObject(kJumpObject, {{"autotest_play", R"({"folderid":{1},"index":{2-1}})"}})}},
    {"media region", {InObject(kDiscSetting, {{"zmregion", "{1}"}})}},
    {"media repeat 0", {ByDisc(R"({"cmd":192,"param1":1,"param2":0})")}},
    {"media repeat 1", {ByDisc(R"({"cmd":192,"param1":0,"param2":0})")}},
    {"media repeat 2", {ByDisc(R"({"cmd":192,"param1":2,"param2":0})")}},
    {"media repeat 3", {ByDisc(R"({"cmd":193,"param1":1,"param2":0})")}},
    {"media repeat 4", {ByDisc(R"({"cmd":193,"param1":0,"param2":0})")}},
    {"media setup", {InObject(kDiscControl, {{"zmcmd", R"({"cmd":200,"param1":1,"param2":0})"}})}},
    {"gps navi 2", {InObject(kNavigation, {{"msg", R"({"cmd":2})"}})}},
    {"gps navi 3", {InObject(kNavigation, {{"msg", R"({"cmd":3})"}})}},
    {"gps navi 5", {InObject(kNavigation, {{"msg", R"({"cmd":5})"}})}},
    {"gps navi 10", {InObject(kNavigation, {{"msg", R"({"cmd":10})"}})}},
  };
  // clang-format on
}

// A write of one value is proven by the question with the same words, where there is one.
std::vector<Proof> ProofsOf(const wire::CommandSpec& write) {
  static const std::vector<ProofRow> rows = MakeProofs();
  std::vector<Proof> proofs;
  for (std::size_t i = 0; i < wire::kCommandCount; ++i) {
    const wire::CommandSpec& question = wire::kCommands[i];
    if (question.words == std::string(write.words) && question.reply.field != nullptr) {
      proofs.push_back(ReadBack(question.words, {{question.reply.field, "{1}"}}));
    }
  }
  for (const ProofRow& row : rows) {
    if (row.words == std::string(write.words)) {
      proofs.insert(proofs.end(), row.proofs.begin(), row.proofs.end());
    }
  }
  return proofs;
}

// --- commands -----------------------------------------------------------------------------------

Command OfService(const wire::CommandSpec& spec) {
  static std::deque<ReplyFormat> formats;  // commands point into it
  Command command;
  command.words = spec.words;
  command.help = spec.help;
  command.sent = true;
  command.number = spec.command;
  command.sub_command = spec.sub_command;
  if (spec.selector != wire::kNoSelector) {
    command.fixed.push_back(static_cast<std::uint8_t>(spec.selector));
  }
  for (const wire::ParameterSpec& parameter : spec.parameters) {
    if (parameter.kind == wire::ParameterKind::kNone) break;
    command.parameters.push_back(MakeParameter(parameter));
  }
  if (spec.reply.kind == wire::ReplyKind::kNone) {
    command.proofs = ProofsOf(spec);
    if (command.proofs.empty()) command.needs = Needs::kUnit;
  } else {
    formats.push_back(FormatOf(spec.reply));
    command.reply = &formats.back();
  }
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

Parameter Number(const char* name, Kind kind, unsigned low, unsigned high) {
  Parameter parameter{name, kind};
  parameter.low = low;
  parameter.high = high;
  return parameter;
}

Parameter Optional(Parameter parameter) {
  parameter.optional = true;
  return parameter;
}

const Option kRecordOption = {
    "--record", "DB",
    "the record: an SQLite file or postgresql://... (default: $KORVANDIS_RECORD)"};

// Options that select runs, and `more`.
std::vector<Option> Selecting(const std::vector<Option>& more) {
  std::vector<Option> options = {
      kRecordOption,
      {"--title", "TITLE", "only runs of the sequence with this title"},
      {"--station", "NAME", "only runs of this station"},
      {"--since", "TIME", "only runs that began then or later (2026-11-23, '2026-11-23 06:00')"},
      {"--until", "TIME", "only runs that began earlier"}};
  options.insert(options.end(), more.begin(), more.end());
  return options;
}

Command Needing(Needs needs, Command command) {
  command.needs = needs;
  return command;
}

std::vector<Command> MakeOwn() {
  Parameter device{"DEVICE", Kind::kText};
  device.low = 1;
  device.high = 1000;
  Parameter bytes{"BYTE", Kind::kHexByte};
  bytes.optional = true;
  bytes.repeated = true;
  // clang-format off
  return {
    Needing(Needs::kUnit, Own("wait", RunWait, {Optional(Number("SECONDS", Kind::kSeconds, 0, 3600))}, {},
        "wait until the service is connected (10 seconds unless given)")),
    Own("raw", RunRaw, {Number("COMMAND", Kind::kByte, 0, 255), Number("SUB", Kind::kByte, 0, 255), bytes},
        {{"--wait", "SECONDS", "wait that long for a reply, also of a command that is known to have none"}},
        "send any request (numbers decimal, bytes hexadecimal) and show the reply"),
    Needing(Needs::kUnit, Own("monitor", RunMonitor, {}, {{"--whole", nullptr, "show the whole packet, not only what follows the header"}},
        "follow the traffic between the MCU and the service until interrupted")),
    Own("run", RunSequenceFile, {Parameter{"SEQUENCE", Kind::kSequence}},
        {{"--set", "NAME=VALUE", "give a value of the sequence (may be repeated)"},
         {"--only", "PHASE", "run only this phase (may be repeated)"},
         {"--answers", "FILE", "answers to the questions of 'confirm': y or n, one a line"},
         {"--loop", nullptr, "ask for the next unit's values and run, until the input ends"},
         {"--list", nullptr, "show the phases and steps, send nothing"},
         {"--dry-run", nullptr, "check everything and show what would be sent, send nothing"},
         {"--junit", "FILE", "write the record as JUnit XML"},
         {"--json", "FILE", "write the record as JSON"},
         {"--events", "FILE", "write a JSON line for each start and end as it happens (-: standard output)"},
         {"--station", "NAME", "name of this station in the records (default: the host's name)"},
         kRecordOption,
         {"--allow-duplicate", nullptr, "burn in an identity although the record knows it of another device"},
         {"--allow-several", nullptr, "run although several services are connected to the unit"}},
        "run a test sequence: a file, or the name of a shipped one"),
    Needing(Needs::kUnit, Own("record", RecordTraffic, {Parameter{"FILE", Kind::kFile}},
        {{"--pcap", nullptr, "write a pcap file (link type 147) instead of text"},
         {"--force", nullptr, "overwrite a file that is there already"}},
        "record the traffic between the MCU and the service until interrupted")),
    Own("replay", ReplayTraffic, {Parameter{"FILE", Kind::kFile}},
        {{"--fast", nullptr, "do not keep the recorded pauses"},
         {"--ignore", "COMMAND", "do not compare answers to commands that begin so (may be repeated)"}},
        "send the requests of a recording again and compare the answers"),
    Needing(Needs::kNothing, Own("records", RunRecords, {},
        Selecting({{"--device", "DEVICE", "only runs of this unit"},
                   {"--most", "COUNT", "so many runs, the newest first (default 20)"},
                   {"--show", "RUN", "everything that was recorded of one run"},
                   {"--pcap", "FILE", "with --show: write the packets of the run"}}),
        "the runs of a record")),
    Needing(Needs::kNothing, Own("history", RunHistory, {device}, {kRecordOption}, "every run of a unit: where, when, how long, what failed")),
    Needing(Needs::kNothing, Own("summary", RunSummary, {},
        Selecting({{"--json", nullptr, "print JSON"},
                   {"--csv", nullptr, "print comma separated values"},
                   {"--html", "FILE", "write a page with figures that opens without a network"}}),
        "yield, steps that fail, measurements near their limits")),
    Needing(Needs::kNothing, Own("completion bash", RunCompletion, {}, {}, "print the completion script for bash")),
    Needing(Needs::kNothing, Own("commands", RunCommands, {}, {},
        "list the commands that a sequence may use, and the fields of their answers")),
    Own("version", RunGroup, {}, {}, "all versions as a table; exit status 1 when one is missing"),
    Own("usb", RunGroup, {}, {}, "presence and synchronisation of the USB device"),
    Own("sd", RunGroup, {}, {}, "presence and synchronisation of the SD card"),
    Own("gps watch", RunGpsWatch, {}, {{"--every", "SECONDS", "time between two looks (default 1)"}},
        "follow satellites, position and speed until interrupted"),
  };
  // clang-format on
}

std::vector<Command> MakeTable() {
  std::vector<Command> table = MakeOwn();
  for (std::size_t i = 0; i < wire::kCommandCount; ++i) {
    table.push_back(OfService(wire::kCommands[i]));
  }
  return table;
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> table = MakeTable();
  return table;
}

const std::vector<Option>& GlobalOptions() {
  static const std::vector<Option> options = {
      {"--timeout", "SECONDS", "longest wait for a reply (default 7)", Needs::kReplies},
      {"--root", "DIR", "directory that stands for the unit's / (default: $HEADUNIT_ROOT)",
       Needs::kUnit},
      {"--help", nullptr, "what this command does and takes"},
  };
  return options;
}

}  // namespace station
