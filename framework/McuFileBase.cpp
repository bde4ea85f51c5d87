#include "McuFileBase.h"

namespace NXQ {
namespace ZMCAR {

McuFileBase::McuFileBase(const fileTagInfo& tag, IMcuRecvData* receiver)
    : FileBase(tag, kLink), m_sendBuffer(), m_receiver(receiver) {}

McuFileBase::~McuFileBase() { Leave(); }

bool McuFileBase::Init() { return FileBase::Init(); }

void McuFileBase::OnDataChange(unsigned char* data, int size) {
  if (m_receiver != nullptr) m_receiver->OnRecvData(data, size);
}

void McuFileBase::PacketHeader(PacketHeader_s& header, int packetType, int replyType, int argument3,
                               int argument4, int argument5, int /*payloadLength*/, int argument7) {
  header.packetType = static_cast<std::uint32_t>(packetType);
  header.replyType = static_cast<std::uint32_t>(replyType);
  header.arguments[0] = static_cast<std::uint32_t>(argument3);
  header.arguments[1] = static_cast<std::uint32_t>(argument4);
  header.arguments[2] = static_cast<std::uint32_t>(argument5);
  header.arguments[3] = static_cast<std::uint32_t>(argument7);
}

int McuFileBase::SendToSpiDev(const unsigned char* packet, int size) const {
  return WriteMessage(packet, size);
}

}  // namespace ZMCAR
}  // namespace NXQ
