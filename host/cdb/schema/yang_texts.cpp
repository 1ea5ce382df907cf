#include "host/cdb/schema/yang_texts.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

namespace host {
namespace {

const char* TextBuiltIn(const char* module) {
  for (size_t i = 0; i < kYangTextCount; ++i) {
    if (std::strcmp(kYangTexts[i].module, module) == 0) return kYangTexts[i].text;
  }
  return nullptr;
}

// Number of the line with the first difference.
size_t FirstDifference(const std::string& a, const std::string& b) {
  const auto end = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first;
  return static_cast<size_t>(std::count(a.begin(), end, '\n')) + 1;
}

}  // namespace

std::string WhyOtherModules(const ly_ctx* context) {
  uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
    if (module->filepath == nullptr) continue;  // libyang's own
    const std::string name = "the YANG module " + std::string(module->name) + " in " +
                             module->filepath + " is not the one that the daemon was built with";
    const char* known = TextBuiltIn(module->name);
    if (known == nullptr) return name + ": that has none of this name";
    std::ifstream file(module->filepath, std::ios::binary);
    std::ostringstream read;
    read << file.rdbuf();
    const std::string text = read.str();
    if (text != known) {
      return name + ": they differ from line " + std::to_string(FirstDifference(text, known)) +
             " on; daemon and modules must be installed together";
    }
  }
  return "";
}

}  // namespace host
