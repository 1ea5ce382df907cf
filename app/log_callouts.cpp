#include "app/log_callouts.h"

#include "app/log_dictionary.h"

using acl_app::kLogHeader;
using acl_app::kLogTables;

void* ElemLogCfgGetHandle() {
  for (ElemLogRow* row = kLogTables.classes; row->name != nullptr; ++row) {
    row->value = ElemLogCfgGetActualClass(row->value);
  }
  return ElemLogCfgPopulate(&kLogHeader, &kLogTables);
}

int ElemLogCfgGetBaseClass() { return 100; }

const char* ElemLogCfgCalloutGetClassName(int class_id) {
  if (kLogTables.classes == nullptr) return nullptr;
  for (const ElemLogRow* row = kLogTables.classes; row->name != nullptr; ++row) {
    if (row->value == class_id) return row->short_name;
  }
  return nullptr;
}

const ElemWebCategory* ElemWebCfgGetCategories() { return acl_app::kWebCategories; }

int ElemWebCfgGetNumCategories() { return acl_app::kWebCategoryCount; }
