// The link to the microcontroller, and the registry of the test commands.
#ifndef KORVANDIS_SERVICE_ATMCUFILE_H
#define KORVANDIS_SERVICE_ATMCUFILE_H

#include <pthread.h>

#include <map>

#include "McuFileBase.h"

class Cmd;

// Fills an empty registry with the service's commands, each under its number. The registry's owner
// owns them. Defined beside the commands.
void CreateCommands(std::map<int, Cmd*>& commands);

// Received packets come in on the delivery thread of the ATController, and commands run and reply
// there.
class ATMcuFile : public NXQ::ZMCAR::McuFileBase {
 public:
  // Keeps `receiver`, which gets every received packet.
  explicit ATMcuFile(NXQ::ZMCAR::IMcuRecvData* receiver);
  ~ATMcuFile() override;

  // Takes one received packet of `size` bytes, header included. What is no AT test packet is
  // dropped. Returns 0.
  int ProcessDataPacket(const unsigned char* data, int size);

  // Traces one AT record of `len` bytes and dispatches it when it is whole. Returns 0.
  int ParseATDataPacket(const unsigned char* record, int len);

  // Dispatches one whole AT record by its command number.
  void CmdWork(unsigned char* record);

  // Sends `len` payload bytes under a header. Returns what SendToSpiDev returns, or -EMSGSIZE when
  // they do not fit a packet. Any thread.
  int SendCtrCmd(unsigned char type, const unsigned char* data, int len);

  // The sequence number of the next reply. Delivery thread only.
  unsigned char NextSendSeq() { return m_sendSeq++; }

 private:
  std::map<int, Cmd*> m_cmdMap;
  unsigned char m_sendSeq;
  pthread_mutex_t m_sendMutex;  // guards the send buffer
};

#endif  // KORVANDIS_SERVICE_ATMCUFILE_H
