// Lengths as YANG has them: in characters of Unicode, whatever bytes UTF-8 takes for them (RFC 7950
// section 9.4.4).
#ifndef HOST_STANDARD_CHARACTERS_H_
#define HOST_STANDARD_CHARACTERS_H_

#include <cstddef>
#include <string_view>

namespace host::standard {

// How many characters the text, in UTF-8, has.
size_t CharactersIn(std::string_view text);

// The first `most` characters, or all where there are no more.
std::string_view FirstCharacters(std::string_view text, size_t most);

}  // namespace host::standard

#endif  // HOST_STANDARD_CHARACTERS_H_
