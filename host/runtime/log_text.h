// What is written of a text that may come from outside.
#ifndef HOST_RUNTIME_LOG_TEXT_H_
#define HOST_RUNTIME_LOG_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

// Octets of one line of the log at most, before escaping.
inline constexpr size_t kMaxLogLine = 4096;
// Octets of one text from outside at most, such as what a peer calls an element.
inline constexpr size_t kMaxOutsideText = 256;

// `text` where it has no more than `most` octets, else its start and the number of the others.
std::string CutText(std::string_view text, size_t most);

// `line`, cut to kMaxLogLine, with nothing in it that could forge another line or mislead its
// reader: control characters (C0, C1), separators of lines, characters that turn the direction of
// text, and bytes that are no UTF-8 are written as \xNN, byte by byte.
std::string LogText(std::string_view line);

}  // namespace host

#endif  // HOST_RUNTIME_LOG_TEXT_H_
