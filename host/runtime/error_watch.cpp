// Errors that are logged meanwhile: see error_watch.h.
#include "host/runtime/error_watch.h"

#include <strings.h>

#include <string_view>

namespace host {
namespace {

constexpr size_t kMostLines = 8;
constexpr std::string_view kErrorWords[] = {"error",  "could not", "cannot",
                                            "failed", "wrong",     "not set correctly"};
ErrorWatch* current = nullptr;

}  // namespace

ErrorWatch::ErrorWatch() : outer_(current) { current = this; }

ErrorWatch::~ErrorWatch() { current = outer_; }

ErrorWatch* ErrorWatch::Current() { return current; }

bool ErrorWatch::IsError(const char* format) {
  // Called for each line of a bulk change: looks at the starts of words only, by their first
  // letter.
  bool in_word = false;
  for (; *format != 0; ++format) {
    const char letter = static_cast<char>(*format | 0x20);
    const bool starts = !in_word;
    in_word = letter >= 'a' && letter <= 'z';
    if (!starts || !in_word) continue;
    for (const std::string_view word : kErrorWords) {
      if (letter == word[0] && strncasecmp(format, word.data(), word.size()) == 0) return true;
    }
  }
  return false;
}

void ErrorWatch::Add(const std::string& line) {
  if (lines_.size() == kMostLines) lines_.pop_back();
  lines_.push_back(line);
}

}  // namespace host
