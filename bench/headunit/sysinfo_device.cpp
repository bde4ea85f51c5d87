#include "sysinfo_device.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include "log.h"
#include "profile.h"
#include "qnx/text.h"
#include "wire/hex.h"

namespace headunit {
namespace {

const std::int32_t kUuidLength = 16;
const std::int32_t kBarCodeLength = 20;
const std::int32_t kLongestIdentity = sizeof(sysinfo_param_t::uuid);
const char kUuidWord[] = "uuid";
const char kBarCodeWord[] = "barcode";

sysinfo_param_t FreshRecord(std::int32_t length) {
  sysinfo_param_t record = {};
  record.length = length;
  return record;
}

// "WORD LENGTH HEX", all bytes of the record.
std::string FormatRecord(const char* word, const sysinfo_param_t& record) {
  return std::string(word) + " " + std::to_string(record.length) + " " +
         qnx::LowerHex(std::string_view(record.uuid, sizeof(record.uuid))) + "\n";
}

bool ParseRecord(std::istream* line, sysinfo_param_t* record) {
  std::string hex;
  std::int32_t length = -1;
  if (!(*line >> length >> hex) || length < 0 || length > kLongestIdentity ||
      hex.size() != 2 * sizeof(record->uuid)) {
    return false;
  }
  for (std::size_t i = 0; i < sizeof(record->uuid); ++i) {
    const int byte = wire::HexByteValue(&hex[2 * i]);
    if (byte < 0) return false;
    record->uuid[i] = static_cast<char>(byte);
  }
  record->length = length;
  return true;
}

std::string Readable(const sysinfo_param_t& record) {
  std::string text(record.uuid, static_cast<std::size_t>(record.length));
  std::replace_if(
      text.begin(), text.end(), [](char byte) { return byte < ' ' || byte > '~'; }, '.');
  return std::to_string(record.length) + " '" + text + "'";
}

}  // namespace

SysInfoDevice::SysInfoDevice(EventLoop* loop, std::string path, std::string store)
    : DevctlDevice(loop, std::move(path)),
      store_(std::move(store)),
      uuid_(FreshRecord(kUuidLength)),
      bar_code_(FreshRecord(kBarCodeLength)) {}

SysInfoDevice::~SysInfoDevice() { Close(); }

std::string SysInfoDevice::Restore() {
  std::string text;
  if (!ReadWholeFile(store_, &text)) return "";
  std::istringstream lines(text);
  std::string word;
  while (lines >> word) {
    const bool known = word == kUuidWord || word == kBarCodeWord;
    if (!known || !ParseRecord(&lines, word == kUuidWord ? &uuid_ : &bar_code_)) {
      return store_ + ": not a store of identities";
    }
  }
  return "";
}

bool SysInfoDevice::Save() const {
  return ReplaceFile(store_, FormatRecord(kUuidWord, uuid_) + FormatRecord(kBarCodeWord, bar_code_),
                     true);
}

void SysInfoDevice::SetLength(std::int32_t length) {
  length_forced_ = true;
  length_ = length;
}

std::string SysInfoDevice::Describe() const {
  return std::string(kUuidWord) + " " + Readable(uuid_) + " " + kBarCodeWord + " " +
         Readable(bar_code_);
}

int SysInfoDevice::OnDevctl(std::uint32_t dcmd, std::string* data) {
  if (fault_ != 0) return fault_;
  switch (dcmd) {
    case DCMD_SYS_INFO_GET_UUID:
      return Read(uuid_, data);
    case DCMD_SYS_INFO_GET_BAR_CODE:
      return Read(bar_code_, data);
    case DCMD_SYS_INFO_SET_UUID:
      return Burn(*data, &uuid_);
    case DCMD_SYS_INFO_SET_BAR_CODE:
      return Burn(*data, &bar_code_);
    default:
      return ENOTTY;
  }
}

int SysInfoDevice::Read(const sysinfo_param_t& stored, std::string* data) const {
  if (data->size() != sizeof(stored)) return EINVAL;
  sysinfo_param_t answer = stored;
  if (length_forced_) answer.length = length_;
  StoreRecord(answer, data);
  return 0;
}

int SysInfoDevice::Burn(const std::string& data, sysinfo_param_t* stored) {
  sysinfo_param_t record;
  if (!LoadRecord(data, &record)) return EINVAL;
  record.length = std::clamp<std::int32_t>(record.length, 0, kLongestIdentity);
  const sysinfo_param_t before = *stored;
  *stored = record;
  if (Save()) return 0;
  Log(_SLOG_ERROR, "sysinfo: %s: %s", store_.c_str(), std::strerror(errno));
  *stored = before;
  return EIO;
}

}  // namespace headunit
