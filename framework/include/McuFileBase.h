// The file on the MCU communication device.
#ifndef KORVANDIS_FRAMEWORK_MCUFILEBASE_H
#define KORVANDIS_FRAMEWORK_MCUFILEBASE_H

#include <cstdint>

#include "FileBase.h"
#include "Interfaces.h"

namespace NXQ {
namespace ZMCAR {

// Header in front of every packet on the MCU device: seven little-endian words (the unit and every
// host of the bench are little-endian).
struct PacketHeader_s {
  std::uint32_t payloadLength;  // bytes behind the header
  std::uint32_t packetType;
  std::uint32_t replyType;
  std::uint32_t arguments[4];  // the remaining arguments of PacketHeader, in call order
};

const int kMaxPayload = 1280;  // payload area of the send buffer, in bytes

// A lost device is opened again when it is back. Packets that arrived before Start are thrown away.
class McuFileBase : public FileBase {
 public:
  // Keeps both; neither is owned.
  McuFileBase(const fileTagInfo& tag, IMcuRecvData* receiver);
  ~McuFileBase() override;

  bool Init() override;
  // Hands the packet to the receiver.
  void OnDataChange(unsigned char* data, int size) override;

  // Fills the header of a packet about to be sent. The payload length word is the caller's to
  // store.
  void PacketHeader(PacketHeader_s& header, int packetType, int replyType, int argument3,
                    int argument4, int argument5, int payloadLength, int argument7);

  // Writes `size` bytes, header and payload, as one packet. Returns their number, or the negated
  // error number. May be called on any thread.
  int SendToSpiDev(const unsigned char* packet, int size) const;

 protected:
  // One packet: derived classes fill the payload before sending, under a lock of their own.
  struct SendBuffer {
    PacketHeader_s header;
    unsigned char payload[kMaxPayload];
  };
  static_assert(sizeof(SendBuffer) == sizeof(PacketHeader_s) + kMaxPayload,
                "the payload lies directly behind the header");
  SendBuffer m_sendBuffer;

 private:
  IMcuRecvData* const m_receiver;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_MCUFILEBASE_H
