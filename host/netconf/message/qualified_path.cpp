// Instance paths as XPath: see qualified_path.h.
#include "host/netconf/message/qualified_path.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cctype>
#include <map>

#include "host/xml/xml_text.h"

namespace host {

std::string QualifiedPath(const std::string& path, const ly_ctx* context,
                          std::string* declarations) {
  std::map<std::string, std::string> namespaces;
  std::string qualified, module;
  for (size_t pos = 0; pos < path.size();) {
    const char c = path[pos];
    if (c == '\'' || c == '"') {
      const size_t end = std::min(path.find(c, pos + 1), path.size() - 1);
      qualified.append(path, pos, end + 1 - pos);
      pos = end + 1;
    } else if (IsNameStart(c)) {
      size_t end = pos;
      while (end < path.size() && IsNameChar(path[end])) ++end;
      if (end < path.size() && path[end] == ':') {
        module = path.substr(pos, end - pos);
        pos = end + 1;
        continue;
      }
      if (!module.empty()) {
        const lys_module* found = ly_ctx_get_module_implemented(context, module.c_str());
        if (found != nullptr) {
          namespaces[module] = found->ns;
          qualified += module + ":";
        }
      }
      qualified.append(path, pos, end - pos);
      pos = end;
    } else if (std::isdigit(static_cast<unsigned char>(c)) != 0) {
      while (pos < path.size() && IsNameChar(path[pos])) qualified += path[pos++];
    } else {
      qualified += c;
      ++pos;
    }
  }
  for (const auto& [prefix, name_space] : namespaces) {
    *declarations += " xmlns:" + prefix + "=\"" + XmlEscape(name_space) + "\"";
  }
  return qualified;
}

}  // namespace host
