// Base of every test command.
#ifndef KORVANDIS_SERVICE_ATCMD_H
#define KORVANDIS_SERVICE_ATCMD_H

#include <cstddef>
#include <string>

class ATMcuFile;

// A received AT record as it lies in the packet, whole and checked: the parameters, `length` - 1
// bytes, follow the sub-command. Valid only during Cmd::Work.
struct pkg {
  unsigned char start;     // ignored
  unsigned char id;        // ignored
  unsigned char reserved;  // ignored
  unsigned char length;    // the sub-command byte plus the parameter bytes
  unsigned char cmd;
  unsigned char subCmd;

  const unsigned char* Parameters() const {
    return reinterpret_cast<const unsigned char*>(this) + sizeof(pkg);
  }
};
static_assert(sizeof(pkg) == 6, "the parameters follow at offset 6");

// Commands are created by the link's registry, live as long as it, and work one at a time on the
// delivery thread of the ATController. Protected functions are for that thread only.
class Cmd {
 public:
  Cmd();
  virtual ~Cmd();
  Cmd(const Cmd&) = delete;
  Cmd& operator=(const Cmd&) = delete;

  // Carries out one request. The result is not used: it is neither logged nor sent to the station,
  // and its meaning is the command's own. False always when the record has no sub-command byte.
  virtual bool Work(pkg* record) = 0;

  // Copies the head of the record; true when it has a sub-command byte. The other fields are stored
  // also when it has none.
  bool GetHead(pkg* record);

  // The link through which replies go; not owned.
  void AddMcuCtr(ATMcuFile* mcu);

  // Sends one reply of `len` bytes (at most kMaxReply) to the request that GetHead read last.
  // Returns what the link returned, 0 when there is no link or the data does not fit (one line at
  // level 2).
  int Reply(const unsigned char* data, int len);

  // Write one attribute line "name::value" (cut at 255 characters), one number in the object
  // "@setting_status", or a ready-made text, in one write. `oflag` opens the object; one that is
  // created gets mode 0666. 1, or 0 when the object cannot be opened.
  int WritePPS(const char* path, const char* name, const char* value, int oflag);
  int WritePPS(const char* path, const char* name, unsigned char value, int oflag);
  int WritePPS(const char* path, const char* text, int oflag);

  // Reads one number out of the first 1023 bytes of the object. 1 when the object could be opened;
  // `value` is left unchanged when there is no such number.
  int GetPPSIntVal(const char* path, const char* name, int& value);

  // Reads one text out of the first 1023 bytes of the object. 1 when `value` was set, 0 otherwise.
  int GetPPSStringVal(const char* path, const char* name, std::string& value);

  unsigned char Command() const { return m_cmd; }
  unsigned char SubCommand() const { return m_subCmd; }

  static const int kMaxReply = 243;  // data bytes of a reply: 252 less the 9 bytes in front
  static const int kPPSMode = 0666;  // of objects that a write creates

 protected:
  // Number of parameter bytes of the request that GetHead read last.
  int ParameterCount() const { return m_len > 0 ? m_len - 1 : 0; }

  // The first parameter byte, kNoSelector when there is none.
  unsigned char Selector(const pkg* record) const;
  static const unsigned char kNoSelector = 0xFF;  // out of range for every command

  // The parameters as text: up to the first zero byte or the last parameter. False, with one line
  // at level 2 under "Work" and an empty `buffer`, when it does not fit `size` - 1 characters.
  bool ParameterText(const pkg* record, char* buffer, std::size_t size) const;

  ATMcuFile* m_mcu;
  unsigned char m_cmd;
  unsigned char m_subCmd;
  unsigned char m_len;
};

#endif  // KORVANDIS_SERVICE_ATCMD_H
