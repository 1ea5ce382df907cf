// What the parts of Document (document.h) have in common: the modules that are known by name and by
// namespace, and the readers of the two encodings.
#ifndef HOST_STANDARD_DOCUMENT_MODULES_H_
#define HOST_STANDARD_DOCUMENT_MODULES_H_

#include <string>
#include <string_view>

#include "host/standard/document.h"

namespace host::standard {

// The module of that name, or of that namespace; null for others.
const Module* FindModule(std::string_view name);
const Module* FindSpace(std::string_view space);

// Whether `name`, the value of `node` behind a prefix, may be that of an identity. Texts of people
// have colons, too.
bool MayBeIdentity(const Node& node, std::string_view name);

// How deep documents may be nested.
inline constexpr size_t kDeepestNode = 64;

// Read the text into the document's root. Empty, or why the text is no such document.
std::string ReadJson(const std::string& text, Document* document);
std::string ReadXml(const std::string& text, Document* document);

}  // namespace host::standard

#endif  // HOST_STANDARD_DOCUMENT_MODULES_H_
