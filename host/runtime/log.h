// The process's one log: faults, the log service, trace lines and the platform's own lines all end
// up in the same sink, the journal or stderr. Until OpenLog() it is stderr, at level "info".
//
// A line is written as it is, never used as a format; it is cut where it is too long, and
// characters that act on a terminal are escaped (log_text.h), so that nothing a peer sends can
// forge another line or fill the disk. Writing never waits: what finds no room is dropped, counted,
// and told of by a later line (log_output.h).
#ifndef HOST_RUNTIME_LOG_H_
#define HOST_RUNTIME_LOG_H_

#include <cstdarg>
#include <cstdint>
#include <string>

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

// The lines that were dropped since OpenLog(), as their reader did not take them.
uint64_t DroppedLogLines();

// printf(3) into a string.
std::string Formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string VFormatted(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

}  // namespace host

#endif  // HOST_RUNTIME_LOG_H_
