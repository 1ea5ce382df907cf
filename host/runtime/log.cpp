// The only file that compiles spdlog's templates.
#include "host/runtime/log.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/systemd_sink.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "host/runtime/error_watch.h"

namespace host {
namespace {

constexpr const char* kJournalSocket = "/run/systemd/journal/socket";
constexpr const char* kStderrPattern = "%Y-%m-%d %H:%M:%S.%e %-8l %v";

std::unique_ptr<spdlog::logger> MakeLogger(const std::string& name, spdlog::sink_ptr sink) {
  sink->set_pattern(kStderrPattern);  // the journal's sink does not use it
  return std::make_unique<spdlog::logger>(name, std::move(sink));
}

// Never destroyed: static destructors may still log.
std::unique_ptr<spdlog::logger>& Logger() {
  static auto& logger = *new std::unique_ptr<spdlog::logger>(
      MakeLogger("acl-app", std::make_shared<spdlog::sinks::stderr_sink_st>()));
  return logger;
}

spdlog::level::level_enum SpdlogLevel(LogLevel level) {
  static constexpr std::array<spdlog::level::level_enum, 6> kLevels = {
      spdlog::level::trace, spdlog::level::debug, spdlog::level::info,
      spdlog::level::warn,  spdlog::level::err,   spdlog::level::critical};
  return kLevels[static_cast<size_t>(level)];
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

std::string Escaped(const std::string& line) {
  static constexpr const char* kDigits = "0123456789abcdef";
  std::string result;
  for (const char c : line) {
    if (IsControl(c)) {
      result += "\\x";
      result += kDigits[static_cast<unsigned char>(c) >> 4];
      result += kDigits[c & 0xf];
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

bool OpenLog(const std::string& name, const std::string& target, const std::string& level,
             std::string* error) {
  spdlog::sink_ptr sink;
  if (target == "journal") {
    if (access(kJournalSocket, W_OK) != 0) {
      *error = std::string("the journal cannot be written to: ") + kJournalSocket + ": " +
               std::strerror(errno);
      return false;
    }
    sink = std::make_shared<spdlog::sinks::systemd_sink_st>(name);
  } else {
    sink = std::make_shared<spdlog::sinks::stderr_sink_st>();
  }
  Logger() = MakeLogger(name, std::move(sink));
  Logger()->set_level(spdlog::level::from_str(level));
  return true;
}

bool LogEnabled(LogLevel level) { return Logger()->should_log(SpdlogLevel(level)); }

void LogLine(LogLevel level, const std::string& line) {
  if (level >= LogLevel::kError && ErrorWatch::Current() != nullptr) {
    ErrorWatch::Current()->Add(line);
  }
  for (const char c : line) {
    if (IsControl(c)) {
      Logger()->log(SpdlogLevel(level), spdlog::string_view_t(Escaped(line)));
      return;
    }
  }
  Logger()->log(SpdlogLevel(level), spdlog::string_view_t(line));
}

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
