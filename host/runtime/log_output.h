// Where log lines go: to a descriptor such as standard error, or to the journal. Neither ever waits
// for its reader. A line that finds no room is dropped and counted, and the next one that finds
// room says at its end how many are missing. Only the line that tells why the process ends waits
// for a moment, for behind it there is no other.
#ifndef HOST_RUNTIME_LOG_OUTPUT_H_
#define HOST_RUNTIME_LOG_OUTPUT_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace host {

class LogOutput {
 public:
  virtual ~LogOutput() = default;
  // Writes one line without its end, or drops it. `priority` is syslog's (syslog(3)); one of
  // LOG_CRIT tells why the process ends. `fields` are "NAME=value\n" each, for the journal.
  void Write(int priority, std::string_view line, std::string_view fields = {});
  // The lines that were dropped so far.
  uint64_t dropped() const { return dropped_; }

 protected:
  // Takes the whole line, or nothing of it and returns false.
  virtual bool Take(int priority, std::string_view line, std::string_view fields) = 0;

 private:
  uint64_t dropped_ = 0, reported_ = 0;
};

// Lines to `fd`, which stays the caller's. Pipes, terminals and sockets are written to without
// waiting, whatever the flags of the descriptor, which may be shared with other processes. A line
// that is taken in part is completed before the next.
std::unique_ptr<LogOutput> DescriptorOutput(int fd);

// Datagrams to the journal's socket at `path`, as systemd's "Native Journal Protocol" has them,
// from the process `name`. Null when there is no socket to be had (errno is set).
std::unique_ptr<LogOutput> JournalOutput(const std::string& path, const std::string& name);

}  // namespace host

#endif  // HOST_RUNTIME_LOG_OUTPUT_H_
