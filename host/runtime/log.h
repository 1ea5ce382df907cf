// The process's one log: faults, the log service, trace lines and the platform's own lines all end
// up in the same sink, the journal or stderr. Until OpenLog() it is stderr, at level "info".
//
// A line is written as it is, never used as a format; it is cut where it is too long, and
// characters that act on a terminal are escaped (log_text.h), so that nothing a peer sends can
// forge another line or fill the disk. Writing never waits: what finds no room is dropped, counted,
// and told of by a later line (log_output.h).
//
// In the journal a line has fields beside its text (LogFields), so that what one user, session or
// commit did, or what concerns an interface, can be asked for: journalctl INTERFACE=uplink.
#ifndef HOST_RUNTIME_LOG_H_
#define HOST_RUNTIME_LOG_H_

#include <cstdarg>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

namespace host {

enum class LogLevel { kTrace, kDebug, kInfo, kWarning, kError, kFatal };

// Opens the log of the process `name`: `target` is "journal" or "stderr", `level` the name of the
// lowest level that is written. False with the reason in `error` when the journal is not there; the
// log then stays as it was.
bool OpenLog(const std::string& name, const std::string& target, const std::string& level,
             std::string* error);

// Whether a line of `level` would be written.
bool LogEnabled(LogLevel level);
// Writes one line.
void Log(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void LogLine(LogLevel level, const std::string& line);

// Fields that the journal keeps with each line that is logged while the object exists
// (systemd.journal-fields(7)); other targets do not show them. Objects end in the reverse order of
// their beginnings, as local variables do; a field of an inner one stands for that of an outer one.
class LogFields {
 public:
  // Names and values. A name has capitals, digits and underscores, and begins with a capital; a
  // field whose value is empty is left out. Values are cut and escaped like lines.
  LogFields(std::initializer_list<std::pair<const char*, std::string>> fields);
  LogFields(const LogFields&) = delete;
  LogFields& operator=(const LogFields&) = delete;
  ~LogFields();

 private:
  std::string outer_;  // the fields before, as below
};
// The fields of lines that are logged now: "NAME=value\n" each.
const std::string& CurrentLogFields();

// The lines that were dropped since OpenLog(), as their reader did not take them.
uint64_t DroppedLogLines();

// printf(3) into a string.
std::string Formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string VFormatted(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

}  // namespace host

#endif  // HOST_RUNTIME_LOG_H_
