#include "arguments.h"

#include <limits>

#include "qnx/text.h"
#include "qnx/unit_root.h"

namespace headunit {
namespace {

bool ParseLines(const std::string& text, std::uint32_t* lines) {
  std::uint32_t value = 0;
  const bool number = qnx::ParseNumber(text, 1, std::numeric_limits<std::uint32_t>::max(), &value);
  if (!number || (value & (value - 1)) != 0) return false;  // only powers of two
  *lines = value;
  return true;
}

}  // namespace

const char kUsage[] =
    "Usage: headunit [options]\n"
    "       headunit wait [SECONDS]\n"
    "       headunit ctl WORDS...\n"
    "       headunit import DIR --name NAME [--to DIR]\n"
    "\n"
    "Runs a simulated head unit below a directory until SIGTERM or SIGINT.\n"
    "\n"
    "  --root DIR         the directory that stands for the unit's '/' (default: $HEADUNIT_ROOT)\n"
    "  --service PROGRAM  start the service when the unit is ready, and end it before the unit\n"
    "  --profile PROFILE  what the unit is started from, a folder or the name of an imported\n"
    "                     or shipped profile (default: default)\n"
    "  --empty            start without objects, files and services\n"
    "  --no-services      start without the services behind the objects\n"
    "  --state DIR        what survives a restart (default: ROOT/var/headunit)\n"
    "  --log-lines N      lines of the system log, a power of two (default: 16384)\n"
    "  --save DIR         write all objects as a profile into DIR at the end\n"
    "  --help             this text\n"
    "\n"
    "wait returns when the unit below $HEADUNIT_ROOT is up and the service that it starts is\n"
    "connected; the exit status is 1 when that takes longer than SECONDS (default: 10).\n"
    "\n"
    "ctl sends one line to the unit that runs below $HEADUNIT_ROOT and prints its answer;\n"
    "'headunit ctl help' lists the lines. The exit status is 1 when the unit refuses.\n"
    "\n"
    "import makes the profile NAME from the files of a dump of a unit's /pps and lists what it\n"
    "leaves out; --profile NAME finds it. Profiles lie in $XDG_DATA_HOME/korvandis/profiles or\n"
    "~/.local/share/korvandis/profiles, or below --to DIR.\n";

std::string ParseArguments(const std::vector<std::string>& words, Arguments* arguments) {
  UnitOptions* const options = &arguments->options;
  bool empty = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--help" || word == "-h") {
      arguments->help = true;
      return "";
    }
    if (word == "--empty") {
      empty = true;
      continue;
    }
    if (word == "--no-services") {
      options->services = false;
      continue;
    }
    std::string* text = nullptr;
    std::string lines;
    if (word == "--root") text = &options->root;
    if (word == "--service") text = &arguments->service;
    if (word == "--profile") text = &options->profile;
    if (word == "--state") text = &options->state;
    if (word == "--save") text = &arguments->save;
    if (word == "--log-lines") text = &lines;
    if (text == nullptr) return "unknown argument '" + word + "'";
    if (i + 1 == words.size() || words[i + 1].empty()) return word + " needs a value";
    *text = words[++i];
    if (text == &lines && !ParseLines(lines, &options->log_lines)) {
      return "--log-lines needs a power of two, not '" + lines + "'";
    }
  }
  if (empty) {
    if (!options->profile.empty()) return "--empty and --profile exclude each other";
    options->services = false;
  } else if (options->profile.empty()) {
    options->profile = DefaultProfile();
    if (options->profile.empty())
      return "the shipped profile is not installed: give --profile or --empty";
  }
  if (!options->profile.empty()) options->profile = FindProfile(options->profile);
  if (options->root.empty()) options->root = qnx::UnitRoot();
  if (options->root.empty()) return "no root: give --root DIR or set HEADUNIT_ROOT";
  options->starts_service = !arguments->service.empty();
  return "";
}

}  // namespace headunit
