// Reading of UTF-8 (RFC 3629).
#ifndef HOST_RUNTIME_UTF8_H_
#define HOST_RUNTIME_UTF8_H_

#include <cstddef>
#include <string_view>

namespace host {

// Bytes of the character that `text`, which is not empty, starts with; its code is put into
// `*code`. 0 when it is no UTF-8: cut off, overlong, a surrogate, beyond Unicode.
inline size_t ReadUtf8(std::string_view text, char32_t* code) {
  const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
  *code = byte(0);
  if (byte(0) < 0x80) return 1;
  const size_t size = byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
  if (byte(0) < 0xc2 || byte(0) > 0xf4 || text.size() < size) return 0;
  *code = byte(0) & (0xff >> (size + 1));
  for (size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    *code = *code << 6 | (byte(i) & 0x3f);
  }
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = *code >= 0xd800 && *code <= 0xdfff;
  return *code < kSmallest[size] || *code > 0x10ffff || surrogate ? 0 : size;
}

}  // namespace host

#endif  // HOST_RUNTIME_UTF8_H_
