// The log dictionary of the process. This platform assigns no class identifiers of its own, so each
// is used as the dictionary has it.
#include "platform/elem_log/elem_log.h"

#include "host/runtime/log.h"

namespace host {
namespace {

struct Dictionary {
  const ElemLogHeader* header;
  const ElemLogTables* tables;
};

// What is wrong with the dictionary, or null.
const char* Fault(const ElemLogHeader* header, const ElemLogTables* tables) {
  if (header == nullptr || header->outputs == nullptr || header->fields == nullptr) {
    return "no outputs or no fields";
  }
  if (tables == nullptr || tables->classes == nullptr || tables->components == nullptr ||
      tables->severities == nullptr || tables->word == nullptr) {
    return "a table is missing";
  }
  for (const ElemLogRow* table :
       {static_cast<const ElemLogRow*>(tables->classes), tables->components, tables->severities}) {
    for (const ElemLogRow* row = table; row->name != nullptr; ++row) {
      if (row->short_name == nullptr) {
        return "a row has no short name";
      }
    }
  }
  return nullptr;
}

}  // namespace
}  // namespace host

int ElemLogCfgGetActualClass(int class_id) { return class_id; }

void* ElemLogCfgPopulate(const ElemLogHeader* header, const ElemLogTables* tables) {
  static host::Dictionary dictionary{};
  if (const char* fault = host::Fault(header, tables)) {
    host::Log(host::LogLevel::kError, "log dictionary refused: %s", fault);
    return nullptr;
  }
  dictionary = {header, tables};
  return &dictionary;
}
