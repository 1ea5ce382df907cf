// Texts in log lines: see log_text.h.
#include "host/runtime/log_text.h"

#include <algorithm>

#include "host/runtime/utf8.h"

namespace host {
namespace {

// Unicode: C0, DEL and C1; ALM, LRM, RLM; line and paragraph separator, embeddings and overrides;
// isolates.
constexpr struct {
  char32_t first, last;
} kEscaped[] = {{0, 0x1f},        {0x7f, 0x9f},     {0x61c, 0x61c},
                {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069}};

bool IsHarmless(char32_t code) {
  return std::none_of(std::begin(kEscaped), std::end(kEscaped), [code](const auto& range) {
    return code >= range.first && code <= range.last;
  });
}

void Escape(std::string_view bytes, std::string* result) {
  static constexpr const char* kDigits = "0123456789abcdef";
  for (const char c : bytes) {
    *result += "\\x";
    *result += kDigits[static_cast<unsigned char>(c) >> 4];
    *result += kDigits[c & 0xf];
  }
}

}  // namespace

std::string CutText(std::string_view text, size_t most) {
  if (text.size() <= most) return std::string(text);
  size_t end = most;
  // Not within a character.
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
  return std::string(text.substr(0, end)) + "... (and " + std::to_string(text.size() - end) +
         " octets)";
}

std::string LogText(std::string_view line) {
  std::string cut = CutText(line, kMaxLogLine);
  const bool plain =
      std::all_of(cut.begin(), cut.end(), [](char c) { return c >= ' ' && c < 0x7f; });
  if (plain) return cut;
  std::string result;
  for (std::string_view rest = cut; !rest.empty();) {
    char32_t code = 0;
    const size_t size = ReadUtf8(rest, &code);
    const std::string_view bytes = rest.substr(0, std::max<size_t>(size, 1));
    if (size != 0 && IsHarmless(code)) {
      result += bytes;
    } else {
      Escape(bytes, &result);
    }
    rest.remove_prefix(bytes.size());
  }
  return result;
}

}  // namespace host
