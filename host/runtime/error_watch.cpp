// Errors that are logged meanwhile: see error_watch.h.
#include "host/runtime/error_watch.h"

#include <cstring>

namespace host {
namespace {

constexpr size_t kMostLines = 8;
ErrorWatch* current = nullptr;

}  // namespace

ErrorWatch::ErrorWatch() : outer_(current) { current = this; }

ErrorWatch::~ErrorWatch() { current = outer_; }

ErrorWatch* ErrorWatch::Current() { return current; }

bool ErrorWatch::IsError(const char* format) {
  for (const char* word :
       {"error", "could not", "cannot", "failed", "wrong", "not set correctly"}) {
    if (strcasestr(format, word) != nullptr) return true;
  }
  return false;
}

void ErrorWatch::Add(const std::string& line) {
  if (lines_.size() == kMostLines) lines_.pop_back();
  lines_.push_back(line);
}

}  // namespace host
