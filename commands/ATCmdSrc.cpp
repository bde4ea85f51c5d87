#include "ATCmdSrc.h"

#include <fcntl.h>

#include <cstdio>
#include <cstdlib>

#include "ATSrc.h"
#include "misc.h"
#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/logbase.h"
#include "platform/pps_guards.h"

namespace {

const unsigned char kCommandNumber = 0;
const unsigned char kReport = 0;  // in the place of a source's code: asks for a report
const char kLauncherDirectory[] = "/pps/services";
const char kLauncherName[] = "/app-launcher";
const std::size_t kDirectorySize = 128;

}  // namespace

CmdSrc::CmdSrc() : m_src(kReport) {}

bool CmdSrc::Work(pkg* record) {
  if (!GetHead(record)) return false;
  m_src = ParameterCount() > 0 ? record->Parameters()[0] : kReport;
  LOGBASE(LOG_LEV_DEBUG, "Work", "Cmd Work[%d]!\n", record->cmd);
  if (m_cmd != kCommandNumber) return false;
  LOGBASE(LOG_LEV_DEBUG, "Work", "Cmd Work!!\n");
  if (m_src == kReport) {
    report();
  } else {
    chg();
  }
  return true;
}

void CmdSrc::report() { LOGBASE(LOG_LEV_DEBUG, "report", "report!\n"); }

void CmdSrc::chg() {
  LOGBASE(LOG_LEV_DEBUG, "chg", "chg src to %d!\n", m_src);
  Src src;
  UpdatePPS_App_Launcher("launch zelmarapp", src.GetSrcName(m_src), "");
}

bool CmdSrc::UpdatePPS_App_Launcher(const char* command, const char* application,
                                    const char* data) {
  char directory[kDirectorySize];
  CopyText(directory, sizeof(directory), kLauncherDirectory);
  if (platform::access(directory, F_OK) != 0) return false;
  char path[sizeof(directory) + sizeof(kLauncherName)];
  std::snprintf(path, sizeof(path), "%s%s", directory, kLauncherName);
  const platform::Descriptor object(platform::open(path, O_RDWR | O_CREAT, kPPSMode));
  if (!object.IsOpen()) {
    LOGBASE(LOG_LEV_ERROR, "UpdatePPS_App_Launcher", "[UpdatePPS_App_Launcher]: open() failed\n");
    return false;
  }
  platform::Encoder encoder;
  pps_encoder_start_object(encoder.Get(), "@app-launcher");
  pps_encoder_start_object(encoder.Get(), "req");
  // NOLINTNEXTLINE(cert-msc30-c,cert-msc50-cpp): it tells requests apart and is no secret
  pps_encoder_add_int(encoder.Get(), "id", std::rand());
  pps_encoder_add_string(encoder.Get(), "cmd", command);
  pps_encoder_add_string(encoder.Get(), "app", application);
  pps_encoder_add_string(encoder.Get(), "dat", data);
  pps_encoder_end_object(encoder.Get());
  pps_encoder_end_object(encoder.Get());
  return WriteEncoded(object.Get(), &encoder);
}
