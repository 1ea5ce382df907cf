// What the parts of Document (document.h) have in common: the modules that are known by name and by
// namespace, and the readers of the two encodings.
#ifndef HOST_STANDARD_DOCUMENT_MODULES_H_
#define HOST_STANDARD_DOCUMENT_MODULES_H_

#include <array>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "host/standard/document.h"

namespace host::standard {

// The module of that name, or of that namespace; null for others.
const Module* FindModule(std::string_view name);
const Module* FindSpace(std::string_view space);

// Whether the value of a leaf of that name may be an identity, in the models that are read: then a
// prefix says its module. In all others a colon is a part of the value.
bool MayBeIdentity(std::string_view leaf);
// Whether what stands at `at` is a number, which no prefix goes before.
inline bool StartsWithDigit(std::string_view value, size_t at) {
  return at < value.size() && value[at] >= '0' && value[at] <= '9';
}

// Which names were seen, by where they are kept: equal ones are kept once.
class SeenNames {
 public:
  // Whether the name, of the module, is new.
  bool Add(std::string_view name, std::string_view module);

 private:
  using Key = std::pair<const char*, const char*>;
  struct Hash {
    size_t operator()(const Key& key) const {
      return std::hash<const char*>()(key.first) * 31 + std::hash<const char*>()(key.second);
    }
  };
  std::array<Key, 16> few_;  // of which there are `count_`; of more, all are in `many_`
  size_t count_ = 0;
  std::unordered_set<Key, Hash> many_;
};

// How deep documents may be nested.
inline constexpr size_t kDeepestNode = 64;

// Read the text into the document's root. Empty, or why the text is no such document.
std::string ReadJson(const std::string& text, Document* document);
std::string ReadXml(const std::string& text, Document* document);

}  // namespace host::standard

#endif  // HOST_STANDARD_DOCUMENT_MODULES_H_
