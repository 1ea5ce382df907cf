// Characters of UTF-8: see characters.h.
#include "host/standard/characters.h"

#include <algorithm>

namespace host::standard {
namespace {

// Bytes behind the first one of a character have their own two upper bits.
bool BeginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; }

}  // namespace

size_t CharactersIn(std::string_view text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), BeginsCharacter));
}

std::string_view FirstCharacters(std::string_view text, size_t most) {
  if (text.size() <= most) return text;
  size_t characters = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (BeginsCharacter(text[i]) && ++characters > most) return text.substr(0, i);
  }
  return text;
}

}  // namespace host::standard
