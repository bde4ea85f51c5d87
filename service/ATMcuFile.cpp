#include "ATMcuFile.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ATCmd.h"
#include "platform/logbase.h"
#include "wire/at_packet.h"
#include "wire/hex.h"

namespace {

const NXQ::ZMCAR::fileTagInfo kMcuTag = {1, wire::kMcuDevicePath, O_RDWR, 0};

const int kHeaderSize = static_cast<int>(wire::kHeaderSize);
static_assert(sizeof(NXQ::ZMCAR::PacketHeader_s) == wire::kHeaderSize,
              "the framework's header is the link's");
const int kLinkSize = static_cast<int>(wire::kLinkSize);
const int kRecordHeadSize = static_cast<int>(wire::kRecordHeadSize);

// Arguments of the packet header whose meaning is the MCU's.
const int kReplyTypeOfAtPacket = 0xB4;
const int kHeaderArgument4 = 200;
const int kHeaderArgument5 = 3;

// Most lines of a command are written here, so they are formatted by hand, as "0x%x ".
void LogBytes(const char* function, const unsigned char* bytes, int count) {
  char line[kLogLineSize];
  char* const text = line + AppendToLogLine(line, StartLogLine(line, function), "0x");
  for (int i = 0; i < count; ++i) {
    char* end = text;
    if (bytes[i] >= 0x10) *end++ = wire::HexDigit(bytes[i] >> 4U);
    *end++ = wire::HexDigit(bytes[i]);
    *end++ = ' ';
    *end = '\0';
    HandOnLogLine(LOG_LEV_DEBUG, line);
  }
  LOGBASE(LOG_LEV_DEBUG, function, "end\n");
}

// Bytes that a record of `len` received bytes must have: its fixed head and the parameters it
// announces.
int NeededBytes(const unsigned char* record, int len) {
  if (len < kRecordHeadSize) return kRecordHeadSize;
  const int announced = record[wire::kRecordLengthOffset];
  return kRecordHeadSize + (announced > 0 ? announced - 1 : 0);
}

}  // namespace

ATMcuFile::ATMcuFile(NXQ::ZMCAR::IMcuRecvData* receiver)
    : McuFileBase(kMcuTag, receiver), m_sendSeq(0) {
  CreateCommands(m_cmdMap);
  ::pthread_mutex_init(&m_sendMutex, nullptr);
}

ATMcuFile::~ATMcuFile() {
  for (const auto& entry : m_cmdMap) delete entry.second;
  m_cmdMap.clear();
  ::pthread_mutex_destroy(&m_sendMutex);
}

int ATMcuFile::ProcessDataPacket(const unsigned char* data, int size) {
  LOGBASE(LOG_LEV_DEBUG, "ProcessDataPacket", "ProcessDataPacket!\n");
  if (data == nullptr) {
    LOGBASE(LOG_LEV_DEBUG, "ProcessDataPacket", "Data is empty!\n");
    return 0;
  }
  if (size <= kHeaderSize) {
    LOGBASE(LOG_LEV_DEBUG, "ProcessDataPacket", "MCU data: nSize = %d,  nHeaderSize = %d \n", size,
            kHeaderSize);
    return 0;
  }
  if (wire::LoadLe32(data + wire::kPacketTypeOffset) != wire::kAtPacketType) return 0;

  // The header may claim anything; what has arrived is the bound.
  const int arrived = size - kHeaderSize;
  const std::uint32_t claimed = wire::LoadLe32(data + wire::kPayloadLengthOffset);
  const int payload =
      claimed < static_cast<std::uint32_t>(arrived) ? static_cast<int>(claimed) : arrived;
  const int link = std::min(payload, kLinkSize);
  return ParseATDataPacket(data + kHeaderSize + link, payload - link);
}

int ATMcuFile::ParseATDataPacket(const unsigned char* record, int len) {
  if (record == nullptr) {
    LOGBASE(LOG_LEV_DEBUG, "ParseATDataPacket", "CAN Data is empty!\n");
    return 0;
  }
  LOGBASE(LOG_LEV_DEBUG, "ParseATDataPacket", "ParseCANDataPacket:Receive data:");
  LogBytes("ParseATDataPacket", record, len);
  const int needed = NeededBytes(record, len);
  if (len < needed) {
    LOGBASE(LOG_LEV_ERROR, "ParseATDataPacket", "record of %d bytes, %d needed, refused!\n", len,
            needed);
    return 0;
  }
  CmdWork(const_cast<unsigned char*>(record));
  return 0;
}

void ATMcuFile::CmdWork(unsigned char* record) {
  const int number = record[wire::kRecordCommandOffset];
  LOGBASE(LOG_LEV_DEBUG, "CmdWork", "CmdWork? for [%d]\n", number);
  const auto entry = m_cmdMap.find(number);
  if (entry == m_cmdMap.end()) return;
  LOGBASE(LOG_LEV_DEBUG, "CmdWork", "CmdWork [%d]!\n", number);
  Cmd* const command = entry->second;
  command->AddMcuCtr(this);
  command->Work(reinterpret_cast<pkg*>(record));
  LOGBASE(LOG_LEV_DEBUG, "CmdWork", "CmdWork for m_cmd=%d,m_subCmd= %d\n", command->Command(),
          command->SubCommand());
}

int ATMcuFile::SendCtrCmd(unsigned char type, const unsigned char* data, int len) {
  LOGBASE(LOG_LEV_DEBUG, "SendCtrCmd", "SendCtrCmd?%d\n", len);
  if (data == nullptr || len < 0 || len > NXQ::ZMCAR::kMaxPayload) {
    LOGBASE(LOG_LEV_ERROR, "SendCtrCmd", "payload of %d bytes does not fit %d!\n", len,
            NXQ::ZMCAR::kMaxPayload);
    return -EMSGSIZE;
  }
  ::pthread_mutex_lock(&m_sendMutex);
  const int replyType = type == wire::kAtPacketType ? kReplyTypeOfAtPacket : 0;
  std::memcpy(m_sendBuffer.payload, data, static_cast<std::size_t>(len));
  m_sendBuffer.header.payloadLength = static_cast<std::uint32_t>(len);
  PacketHeader(m_sendBuffer.header, type, replyType, 0, kHeaderArgument4, kHeaderArgument5, len, 0);
  const unsigned char* const packet = reinterpret_cast<const unsigned char*>(&m_sendBuffer);
  LOGBASE(LOG_LEV_DEBUG, "SendCtrCmd", "SendCtrCmd:send data:");
  LogBytes("SendCtrCmd", packet, kHeaderSize + len);
  const int result = SendToSpiDev(packet, kHeaderSize + len);
  LOGBASE(LOG_LEV_DEBUG, "SendCtrCmd", "SendCtrCmd[%d]!\n", result);
  ::pthread_mutex_unlock(&m_sendMutex);
  return result;
}
