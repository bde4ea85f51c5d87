#include "ATCmd.h"

#include <pps.h>

#include <cstdio>
#include <cstring>

#include "ATMcuFile.h"
#include "misc.h"
#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/logbase.h"
#include "platform/pps_guards.h"
#include "platform/print.h"
#include "wire/at_packet.h"

namespace {

const std::size_t kPPSTextSize = 1024;  // of an object that is read for one attribute
const std::size_t kLineSize = 256;      // of a path or an attribute line

static_assert(Cmd::kMaxReply == static_cast<int>(wire::kMaxReplyData), "the reply buffer's room");

}  // namespace

const int Cmd::kMaxReply;
const int Cmd::kPPSMode;
const unsigned char Cmd::kNoSelector;

Cmd::Cmd() : m_mcu(nullptr), m_cmd(0), m_subCmd(0), m_len(0) {}

Cmd::~Cmd() {}

bool Cmd::GetHead(pkg* record) {
  m_cmd = record->cmd;
  m_subCmd = record->subCmd;
  m_len = record->length;
  if (m_len == 0) {
    LOGBASE(LOG_LEV_DEBUG, "GetHead", "m_len < 1 [%d]!\n", m_len);
    return false;
  }
  return true;
}

void Cmd::AddMcuCtr(ATMcuFile* mcu) { m_mcu = mcu; }

int Cmd::Reply(const unsigned char* data, int len) {
  if (m_mcu == nullptr) return 0;
  if (len < 0 || len > kMaxReply || (data == nullptr && len > 0)) {
    LOGBASE(LOG_LEV_ERROR, "Reply", "reply of %d bytes does not fit %d!\n", len, kMaxReply);
    return 0;
  }
  unsigned char payload[wire::kReplyOverhead + wire::kMaxReplyData];
  const unsigned char head[wire::kReplyOverhead] = {
      wire::kLinkType,
      m_mcu->NextSendSeq(),
      wire::kLinkByte,
      wire::kRecordStart,
      wire::kRecordId,
      0,
      static_cast<unsigned char>(len),
      static_cast<unsigned char>(m_cmd | wire::kReplyBit),
      m_subCmd};
  std::memcpy(payload, head, sizeof(head));
  if (len > 0) std::memcpy(payload + sizeof(head), data, static_cast<std::size_t>(len));
  platform::PrintError("inBuf('%.*s') \n", len,
                       reinterpret_cast<const char*>(payload + sizeof(head)));
  return m_mcu->SendCtrCmd(wire::kLinkType, payload, len + static_cast<int>(sizeof(head)));
}

int Cmd::WritePPS(const char* path, const char* name, const char* value, int oflag) {
  char line[kLineSize];
  CopyText(line, sizeof(line), path);
  const platform::Descriptor object(OpenOrReport(line, oflag, kPPSMode));
  if (!object.IsOpen()) return 0;
  std::snprintf(line, sizeof(line), "%s::%s", name, value);
  platform::write(object.Get(), line, std::strlen(line));
  LOGBASE(LOG_LEV_INFO, "WritePPS", "%s", line);
  return 1;
}

int Cmd::WritePPS(const char* path, const char* name, unsigned char value, int oflag) {
  char line[kLineSize];
  CopyText(line, sizeof(line), path);
  const platform::Descriptor object(OpenOrReport(line, oflag, kPPSMode));
  if (!object.IsOpen()) return 0;
  platform::Encoder encoder;
  pps_encoder_start_object(encoder.Get(), "@setting_status");
  pps_encoder_add_int(encoder.Get(), name, value);
  pps_encoder_end_object(encoder.Get());
  const char* const text = pps_encoder_buffer(encoder.Get());
  if (text != nullptr) {
    platform::PrintError("pps_encoder_buffer is('%s') \n", text);
  } else {
    platform::PrintError("pps_encoder_buffer is(null) \n");
  }
  WriteEncoded(object.Get(), &encoder);
  LOGBASE(LOG_LEV_INFO, "WritePPS", "%s", line);
  return 1;
}

int Cmd::WritePPS(const char* path, const char* text, int oflag) {
  if (path == nullptr || text == nullptr) return 0;
  const platform::Descriptor object(OpenOrReport(path, oflag, kPPSMode));
  if (!object.IsOpen()) return 0;
  platform::write(object.Get(), text, std::strlen(text));
  return 1;
}

int Cmd::GetPPSIntVal(const char* path, const char* name, int& value) {
  char text[kPPSTextSize];
  if (!ReadText(path, text, sizeof(text))) return 0;
  ReportText(text);
  platform::Decoder decoder;
  pps_decoder_parse_pps_str(decoder.Get(), text);
  pps_decoder_push(decoder.Get(), nullptr);
  pps_decoder_get_int(decoder.Get(), name, &value);
  pps_decoder_pop(decoder.Get());
  platform::PrintError("read decoder val is('%d') \n", value);
  return 1;
}

int Cmd::GetPPSStringVal(const char* path, const char* name, std::string& value) {
  char text[kPPSTextSize];
  if (!ReadText(path, text, sizeof(text))) return 0;
  ReportText(text);
  platform::Decoder decoder;
  const char* found = nullptr;
  pps_decoder_parse_pps_str(decoder.Get(), text);
  pps_decoder_push(decoder.Get(), nullptr);
  pps_decoder_get_string(decoder.Get(), name, &found);
  pps_decoder_pop(decoder.Get());
  const pps_decoder_error_t status = pps_decoder_status(decoder.Get(), true);
  if (status != PPS_DECODER_OK) {
    LOGBASE(LOG_LEV_ERROR, "GetPPSStringVal", "Cmd, pps_decoder_status() return %d\n", status);
    return 0;
  }
  if (found == nullptr) return 0;
  platform::PrintError("read decoder val is('%s') \n", found);
  value = found;
  return 1;
}

unsigned char Cmd::Selector(const pkg* record) const {
  return ParameterCount() > 0 ? record->Parameters()[0] : kNoSelector;
}

bool Cmd::ParameterText(const pkg* record, char* buffer, std::size_t size) const {
  const char* const text = reinterpret_cast<const char*>(record->Parameters());
  const std::size_t length = ::strnlen(text, static_cast<std::size_t>(ParameterCount()));
  std::memset(buffer, 0, size);
  if (length >= size) {
    LOGBASE(LOG_LEV_ERROR, "Work", "text of %d bytes does not fit %d, refused!\n",
            static_cast<int>(length), static_cast<int>(size) - 1);
    return false;
  }
  std::memcpy(buffer, text, length);
  return true;
}
