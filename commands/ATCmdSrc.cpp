#include "ATCmdSrc.h"

#include <pps.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "ATSrc.h"
#include "misc.h"
#include "platform/io.h"
#include "platform/logbase.h"

namespace {

const unsigned char kCommandNumber = 0;
const char kLauncherDirectory[] = "/pps/services";

}  // namespace

CmdSrc::CmdSrc() : m_src(0) {}

bool CmdSrc::Work(pkg* record) {
  if (!GetHead(record)) return false;
  m_src = ParameterCount() > 0 ? record->Parameters()[0] : static_cast<unsigned char>(0);
  LOGBASE(LOG_LEV_DEBUG, "Work", "Cmd Work[%d]!\n", record->cmd);
  if (m_cmd != kCommandNumber) return false;
  LOGBASE(LOG_LEV_DEBUG, "Work", "Cmd Work!!\n");
  if (m_src != 0) {
    chg();
  } else {
    report();
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
  char directory[128];
  CopyText(directory, sizeof(directory), kLauncherDirectory);
  if (platform::access(directory, F_OK) != 0) return false;
  char path[sizeof(directory) + sizeof("/app-launcher")];
  std::snprintf(path, sizeof(path), "%s/app-launcher", directory);
  const int fd = platform::open(path, O_RDWR | O_CREAT, kPPSMode);
  if (fd < 0) {
    LOGBASE(LOG_LEV_ERROR, "UpdatePPS_App_Launcher", "[UpdatePPS_App_Launcher]: open() failed\n");
    return false;
  }
  pps_encoder_t encoder;
  pps_encoder_initialize(&encoder, false);
  pps_encoder_start_object(&encoder, "@app-launcher");
  pps_encoder_start_object(&encoder, "req");
  // NOLINTNEXTLINE(cert-msc30-c,cert-msc50-cpp): it tells requests apart and is no secret
  pps_encoder_add_int(&encoder, "id", std::rand());
  pps_encoder_add_string(&encoder, "cmd", command);
  pps_encoder_add_string(&encoder, "app", application);
  pps_encoder_add_string(&encoder, "dat", data);
  pps_encoder_end_object(&encoder);
  pps_encoder_end_object(&encoder);
  const char* const text = pps_encoder_buffer(&encoder);
  const bool encoded = text != nullptr;
  if (encoded) platform::write(fd, text, static_cast<std::size_t>(pps_encoder_length(&encoder)));
  pps_encoder_cleanup(&encoder);
  ::close(fd);
  return encoded;
}
