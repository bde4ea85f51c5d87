// The host's system log, for a line that finds no ring. Like syslog(3), but a daemon that does not
// read never blocks the caller.
#ifndef KORVANDIS_QNX_SYSLOG_CLIENT_H
#define KORVANDIS_QNX_SYSLOG_CLIENT_H

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "platform/descriptor.h"

namespace qnx {

const char kSyslogPath[] = "/dev/log";

// May be called from any thread.
class SyslogClient {
 public:
  // `path` of the daemon's datagram socket; it must outlive the client.
  explicit SyslogClient(const char* path) : path_(path) {}
  SyslogClient(const SyslogClient&) = delete;
  SyslogClient& operator=(const SyslogClient&) = delete;

  // Sends one line at a priority of syslog.h. A daemon whose queue is full is waited for once, 100
  // ms at most; then lines are dropped without a wait until it takes some again. Without a daemon
  // they are dropped as well; it is looked for once a second. A line tells how many were dropped.
  void Send(int priority, const char* text, std::size_t length);

 private:
  bool Connect();
  bool Put(int priority, const char* text, std::size_t length);

  const char* const path_;
  std::mutex mutex_;
  platform::Descriptor socket_;
  std::int64_t next_attempt_ = 0;  // to find the daemon; milliseconds of CLOCK_MONOTONIC
  bool stuck_ = false;             // the daemon was waited for and took nothing
  std::uint64_t dropped_ = 0;      // lines since the last one that was taken
};

}  // namespace qnx

#endif  // KORVANDIS_QNX_SYSLOG_CLIENT_H
