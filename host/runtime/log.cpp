// The only file that compiles spdlog's templates.
#include "host/runtime/log.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "host/runtime/error_watch.h"
#include "host/runtime/log_output.h"
#include "host/runtime/log_text.h"

namespace host {
namespace {

constexpr const char* kJournalSocket = "/run/systemd/journal/socket";
constexpr const char* kLinePattern = "%Y-%m-%d %H:%M:%S.%e %-8l %v";

// The priority that the journal gives a line of that level; in the order of spdlog's levels.
constexpr std::array<int, 6> kPriorities = {LOG_DEBUG,   LOG_DEBUG, LOG_INFO,
                                            LOG_WARNING, LOG_ERR,   LOG_CRIT};

// Between spdlog, which knows levels and patterns, and an output.
class OutputSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
  // The pattern is for outputs that have no place of their own for time and level.
  OutputSink(std::unique_ptr<LogOutput> output, const char* pattern) : output_(std::move(output)) {
    set_formatter_(std::make_unique<spdlog::pattern_formatter>(
        pattern, spdlog::pattern_time_type::local, /*eol=*/""));
  }
  uint64_t dropped() const { return output_->dropped(); }

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    spdlog::memory_buf_t text;
    formatter_->format(message, text);
    output_->Write(kPriorities.at(message.level), {text.data(), text.size()}, CurrentLogFields());
  }
  void flush_() override {}

 private:
  const std::unique_ptr<LogOutput> output_;
};

struct ProcessLog {
  std::shared_ptr<OutputSink> sink;
  std::unique_ptr<spdlog::logger> logger;
};

ProcessLog MakeLog(const std::string& name, std::unique_ptr<LogOutput> output,
                   const char* pattern) {
  ProcessLog log;
  log.sink = std::make_shared<OutputSink>(std::move(output), pattern);
  log.logger = std::make_unique<spdlog::logger>(name, log.sink);
  return log;
}

// Never destroyed: static destructors may still log.
ProcessLog& TheLog() {
  static auto& log =
      *new ProcessLog(MakeLog("acl-app", DescriptorOutput(STDERR_FILENO), kLinePattern));
  return log;
}

std::string& MutableLogFields() {
  static auto& fields = *new std::string;
  return fields;
}

spdlog::logger* Logger() { return TheLog().logger.get(); }

spdlog::level::level_enum SpdlogLevel(LogLevel level) {
  static constexpr std::array<spdlog::level::level_enum, 6> kLevels = {
      spdlog::level::trace, spdlog::level::debug, spdlog::level::info,
      spdlog::level::warn,  spdlog::level::err,   spdlog::level::critical};
  return kLevels[static_cast<size_t>(level)];
}

}  // namespace

bool OpenLog(const std::string& name, const std::string& target, const std::string& level,
             std::string* error) {
  const bool journal = target == "journal";
  auto output = journal ? JournalOutput(kJournalSocket, name) : DescriptorOutput(STDERR_FILENO);
  if (output == nullptr) {
    *error = std::string("the journal cannot be written to: ") + kJournalSocket + ": " +
             std::strerror(errno);
    return false;
  }
  TheLog() = MakeLog(name, std::move(output), journal ? "%v" : kLinePattern);
  Logger()->set_level(spdlog::level::from_str(level));
  return true;
}

uint64_t DroppedLogLines() { return TheLog().sink->dropped(); }

bool LogEnabled(LogLevel level) { return Logger()->should_log(SpdlogLevel(level)); }

void LogLine(LogLevel level, const std::string& line) {
  if (level >= LogLevel::kError && ErrorWatch::Current() != nullptr) {
    ErrorWatch::Current()->Add(line);
  }
  Logger()->log(SpdlogLevel(level), spdlog::string_view_t(LogText(line)));
}

LogFields::LogFields(std::initializer_list<std::pair<const char*, std::string>> fields)
    : outer_(CurrentLogFields()) {
  std::string& current = MutableLogFields();
  for (const auto& [name, value] : fields) {
    const std::string begin = std::string(name) + "=";
    // The field of that name, at the begin of a line.
    const size_t at = ("\n" + current).find("\n" + begin);
    if (at != std::string::npos) current.erase(at, current.find('\n', at) + 1 - at);
    if (!value.empty()) current += begin + LogText(CutText(value, kMaxOutsideText)) + "\n";
  }
}

LogFields::~LogFields() { MutableLogFields() = std::move(outer_); }

const std::string& CurrentLogFields() { return MutableLogFields(); }

void Log(LogLevel level, const char* format, ...) {
  if (!LogEnabled(level)) {
    return;
  }
  va_list args;
  va_start(args, format);
  LogLine(level, VFormatted(format, args));
  va_end(args);
}

std::string Formatted(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string result = VFormatted(format, args);
  va_end(args);
  return result;
}

std::string VFormatted(const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  std::array<char, 512> buffer;
  const int length = std::vsnprintf(buffer.data(), buffer.size(), format, args);
  std::string result;
  if (length < 0) {
    result = format;  // an encoding error: better the bare format than nothing
  } else if (static_cast<size_t>(length) < buffer.size()) {
    result.assign(buffer.data(), static_cast<size_t>(length));
  } else {
    result.resize(static_cast<size_t>(length));
    std::vsnprintf(result.data(), result.size() + 1, format, again);
  }
  va_end(again);
  return result;
}

}  // namespace host
