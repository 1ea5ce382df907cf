#include "host/limid/limid.h"

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

namespace host {
namespace {

// Ids are given in the order of the first question, from 1 on; 0 is never an interface. Names are
// never forgotten: there are as many as the operator has ever configured.
struct Names {
  std::deque<std::string> by_id;  // by id - 1; a deque, for the keys below point into it
  std::unordered_map<std::string_view, limid_t> ids;
};

Names& AllNames() {
  static auto& names = *new Names;  // lives as long as the process, static destructors included
  return names;
}

}  // namespace

std::string InterfaceNameOf(limid_t id) {
  const Names& names = AllNames();
  return id == 0 || id > names.by_id.size() ? std::string() : names.by_id[id - 1];
}

}  // namespace host

int limid_from_intfname(limid_t* id, const char* name) {
  if (name == nullptr || *name == '\0') {
    return -1;
  }
  host::Names& names = host::AllNames();
  auto known = names.ids.find(name);
  if (known == names.ids.end()) {
    names.by_id.emplace_back(name);
    known = names.ids.emplace(names.by_id.back(), names.by_id.size()).first;
  }
  *id = known->second;
  return 0;
}
