#include "app_launcher.h"

#include <algorithm>
#include <iterator>

namespace headunit {
namespace {

const char kPath[] = "/pps/services/app-launcher";
const char kNowPlaying[] = "/pps/zelmar/navigator/nowplaying";
const char kLaunch[] = "launch zelmarapp";

const char* const kApplications[] = {"zmradio", "zmnavi", "zmbttel", "zmbtaudio", "zmsd",  "zmusb",
                                     "zmrusb",  "zmdisc", "zmaux1",  "zmaux2",    "zmipod"};

bool IsInstalled(const std::string& application) {
  return std::find(std::begin(kApplications), std::end(kApplications), application) !=
         std::end(kApplications);
}

}  // namespace

AppLauncher::AppLauncher(EventLoop* loop) : Service(loop, kPath) {}

void AppLauncher::OnChange(const std::vector<PpsLine>& attributes) {
  for (const PpsLine& attribute : attributes) {
    if (attribute.name == "req") {
      Launch(attribute);
    } else {
      Complain(attribute, "unknown attribute");
    }
  }
}

void AppLauncher::Launch(const PpsLine& request) {
  int id = 0;
  std::string command;
  std::string application;
  std::string data;
  if (request.encoding != "json" ||
      !ParseJson(request.value, {{"id", &id}},
                 {{"cmd", &command}, {"app", &application}, {"dat", &data}}) ||
      !data.empty()) {
    Complain(request, "malformed request");
  } else if (command != kLaunch) {
    Complain(request, "unknown command");
  } else if (!IsInstalled(application)) {
    Complain(request, "no such application");
  } else {
    Publish(kNowPlaying, "zmplaysource::" + application + "\n");
  }
}

}  // namespace headunit
