// Control of the unit's players: disc, USB/SD, and neither.
#ifndef KORVANDIS_COMMANDS_ATMEDIA_H
#define KORVANDIS_COMMANDS_ATMEDIA_H

// Member names of a disc command.
extern const char* const DISC_CMD_cmd;
extern const char* const DISC_CMD_param1;
extern const char* const DISC_CMD_param2;

// Disc command that the media test command sends whatever plays. What the player does with it is
// not known.
const int kDiscCommand200 = 200;

// A player. Objects live for one request. Operations return 1 when they wrote their command, else
// 0.
class Media {
 public:
  virtual ~Media();
  virtual int PlayPre() = 0;
  virtual int PlayNext() = 0;
  virtual int Play() = 0;
  virtual int Pause() = 0;
  virtual int Stop() = 0;
  virtual int JumpTo(unsigned short folder, unsigned short number) = 0;

  // 0 plays the next track, 1 the previous; another value does nothing and returns 0.
  int CtrlPreNext(unsigned char direction);
  // 0 pauses, 1 plays, 2 stops; another value does nothing and returns 0.
  int CtrlPlay(unsigned char operation);

  // Replaces the object at `path` by one attribute line "name:value" (cut at 255 characters),
  // `value` with its encoding in front. False when it cannot be opened; it is created when missing.
  bool WritePPS(const char* path, const char* name, const char* value);

  // Presses and releases a key of the steering wheel. True when the release was written.
  bool SendKey(unsigned char key);

 protected:
  // Publishes one disc command. `report` also tells it on standard error.
  bool WriteDiscCommand(int command, int param1, int param2, bool report);
};

// The disc player, commanded through its control object.
class MediaDISC : public Media {
 public:
  int PlayPre() override;
  int PlayNext() override;
  int Play() override;
  int Pause() override;
  int Stop() override;
  int JumpTo(unsigned short folder, unsigned short number) override;

  void PublishCmdCommmand(int command, int param1, int param2);

  // Reads the current track and its folder; one that is missing is left unchanged. True when the
  // object could be opened.
  bool GetSongNo(int& songNo, int& folder);

  // Asks for repeat mode 0 to 4; nothing for others.
  void AskRepeatMode(unsigned char mode);

 private:
  int Publish(int command, int param1, int param2);
};

// The USB/SD player, driven by key presses.
class MediaUsbSD : public Media {
 public:
  int PlayPre() override;
  int PlayNext() override;
  int Play() override;
  int Pause() override;
  int Stop() override;
  // Track numbers count from 1; 0 is taken for 1.
  int JumpTo(unsigned short folder, unsigned short number) override;

 private:
  int Press(const char* operation, unsigned char key);
};

// Neither: its player operations do nothing.
class CommMedia : public Media {
 public:
  int PlayPre() override;
  int PlayNext() override;
  int Play() override;
  int Pause() override;
  int Stop() override;
  int JumpTo(unsigned short folder, unsigned short number) override;

  void PublishCmdCommmand(int command, int param1, int param2);
};

#endif  // KORVANDIS_COMMANDS_ATMEDIA_H
