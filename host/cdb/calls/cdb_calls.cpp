// The cdb_* calls.
#include <cinttypes>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/cdb/calls/cdb_service.h"
#include "host/cdb/calls/values.h"
#include "host/cdb/operational_store.h"
#include "yang_tags.h"

namespace host {
namespace {

constexpr char kNodeName[] = "acl-app";  // who makes the commits, as transaction ids say

int Refuse(const std::string& why) {
  SetCdbError(why);
  return CONFD_ERR;
}

// A path with its arguments put in. Short ones need no allocation, and those that are there as a
// whole, or take texts alone, no formatting, which would take as long as most calls.
class FormattedPath {
 public:
  FormattedPath(const char* format, va_list arguments) {
    va_list texts, again;
    va_copy(texts, arguments);
    const bool done = TakeTexts(format, texts);
    va_end(texts);
    if (done) return;
    va_copy(again, arguments);
    const int length = std::vsnprintf(short_, sizeof(short_), format, arguments);
    if (length >= static_cast<int>(sizeof(short_))) {
      long_.resize(static_cast<size_t>(length) + 1);
      std::vsnprintf(long_.data(), long_.size(), format, again);
      long_.pop_back();
      text_ = long_;
    } else if (length >= 0) {
      text_ = std::string_view(short_, static_cast<size_t>(length));
    }
    va_end(again);
  }
  std::string_view text() const { return text_; }

 private:
  // False where something else than texts is to be put in, or all of it is not short.
  bool TakeTexts(const char* format, va_list arguments) {
    size_t size = 0;
    const auto append = [this, &size](const char* text, size_t length) {
      if (length > sizeof(short_) - size) return false;
      std::memcpy(short_ + size, text, length);
      size += length;
      return true;
    };
    for (const bool whole = std::strcmp(format, "%s") == 0;; format += 2) {
      const char* const plain = format;
      format = strchrnul(format, '%');
      if (!append(plain, static_cast<size_t>(format - plain))) return false;
      if (*format == '\0') break;
      const char* const text = format[1] == 's' ? va_arg(arguments, const char*) : nullptr;
      if (text == nullptr) return false;
      if (whole) {
        text_ = text;
        return true;
      }
      if (!append(text, std::strlen(text))) return false;
    }
    text_ = std::string_view(short_, size);
    return true;
  }

  char short_[512];
  std::string long_;
  std::string_view text_;
};

// What a call works on: the session, its tree and the resolved path.
struct Target {
  CdbService* service = nullptr;
  CdbSession* session = nullptr;
  PathTree tree;
  const PathSteps* steps = nullptr;  // null after an error

  Target(int sock, std::string_view path) {
    if (!Open(sock)) return;
    steps = session->Resolve(path, tree);
  }
  explicit Target(int sock) { Open(sock); }

  bool Open(int sock) {
    service = CdbService::Instance();
    session = service != nullptr ? service->Session(sock) : nullptr;
    if (session == nullptr) {
      SetCdbError("there is no session " + std::to_string(sock));
      return false;
    }
    tree = service->TreeOf(*session);
    return true;
  }
  std::string Path() const {
    std::string path;
    return ToDataPath(*steps, &path) ? path : "";
  }
};

int Absent(const Target& target) { return Refuse(target.Path() + " does not exist"); }

// The text of the leaf at the path; null after an error.
const char* LeafText(const Target& target, ValueKind kind) {
  if (target.steps == nullptr) return nullptr;
  if (target.steps->empty() || !target.steps->back().node->is(LYS_LEAF) ||
      (kind != ValueKind::kNone && target.steps->back().node->kind != kind)) {
    SetCdbError(target.Path() + " has no value of this type");
    return nullptr;
  }
  const lyd_node* leaf = target.steps->back().data;
  if (leaf == nullptr) {
    Absent(target);
    return nullptr;
  }
  return TextOf(leaf);
}

int GetLeafList(const Target& target, confd_value_t* value) {
  const CdbNode& node = *target.steps->back().node;
  const lyd_node* siblings = SiblingsOf(*target.steps, target.tree);
  if (siblings == nullptr) return Absent(target);
  const auto& elements = target.tree.index->Entries(node, siblings, target.tree.written != nullptr);
  value->type = C_LIST;
  value->val.list.size = static_cast<unsigned int>(elements.size());
  value->val.list.ptr = static_cast<confd_value_t*>(
      std::calloc(elements.empty() ? 1 : elements.size(), sizeof(confd_value_t)));
  if (value->val.list.ptr == nullptr) return Refuse("out of memory");
  for (size_t i = 0; i < elements.size(); ++i)
    ToValue(node, TextOf(elements[i]), &value->val.list.ptr[i]);
  return CONFD_OK;
}

int Get(int sock, confd_value_t* value, std::string_view path) {
  const Target target(sock, path);
  if (target.steps == nullptr) return CONFD_ERR;
  if (!target.steps->empty() && target.steps->back().node->is(LYS_LEAFLIST))
    return GetLeafList(target, value);
  const char* text = LeafText(target, ValueKind::kNone);
  if (text == nullptr) return CONFD_ERR;
  if (!ToValue(*target.steps->back().node, text, value))
    return Refuse(target.Path() + " has no value");
  return CONFD_OK;
}

int NumInstances(int sock, std::string_view path) {
  const Target target(sock, path);
  if (target.steps == nullptr) return CONFD_ERR;
  if (target.steps->empty() || target.steps->back().is_entry ||
      !target.steps->back().node->is(LYS_LIST))
    return Refuse(target.Path() + " is no list");
  const CdbNode& list = *target.steps->back().node;
  const lyd_node* siblings = SiblingsOf(*target.steps, target.tree);
  size_t count = 0;
  if (target.tree.written == nullptr) {
    // Whoever asks reads them next, by position.
    if (siblings != nullptr) count = target.tree.index->Entries(list, siblings, false).size();
  } else {
    while ((siblings = EntryFrom(siblings, list, target.tree)) != nullptr) {
      siblings = siblings->next;
      ++count;
    }
  }
  return count <= INT_MAX ? static_cast<int>(count) : Refuse("too many entries");
}

// A target that can be written: in the operational datastore, in an entry that exists.
bool Writable(const Target& target) {
  if (target.steps == nullptr) return false;
  if (target.session->db() != CDB_OPERATIONAL || target.steps->empty()) {
    SetCdbError("only operational data can be written");
    return false;
  }
  for (const PathStep& step : *target.steps) {
    const bool last = &step == &target.steps->back();
    if (!last && step.is_entry && step.data == nullptr) {
      SetCdbError(target.Path() + " is in an entry that does not exist");
      return false;
    }
  }
  return true;
}

// Creates what the path names, with all above it that is not there, or gives a leaf another value.
int Write(const Target& target, const char* text) {
  if ((target.steps->back().node->schema->flags & LYS_CONFIG_R) == 0)
    return Refuse(target.Path() + " is configuration, only state can be written");
  WrittenState& written = target.service->datastore().Operational().written();
  std::string error;
  const lyd_node* last = nullptr;   // so far down the path
  const lyd_node* first = nullptr;  // that was not there
  for (const PathStep& step : *target.steps) {
    if (step.data != nullptr) {
      last = step.data;
      continue;
    }
    last = written.Create(last, step.node->schema, step.keys, text, &error);
    if (last == nullptr) break;
    if (first == nullptr) first = last;
  }
  const bool changes = first == nullptr && last != nullptr && text != nullptr;
  if (last != nullptr && (!changes || written.Change(last, text, &error))) return CONFD_OK;
  if (first != nullptr) written.Delete(first);
  return Refuse(error);
}

int Create(int sock, std::string_view path) {
  const Target target(sock, path);
  if (!Writable(target)) return CONFD_ERR;
  const PathStep& step = target.steps->back();
  const bool entry = step.node->is(LYS_LIST | LYS_LEAFLIST) && step.is_entry;
  const bool empty_leaf = step.node->is(LYS_LEAF) && step.node->kind == ValueKind::kEmpty;
  const bool presence = step.node->is(LYS_CONTAINER) && !IsPlainContainer(step.node->schema);
  if (!entry && !empty_leaf && !presence) return Refuse(target.Path() + " cannot be created");
  if (step.data != nullptr) return Refuse(target.Path() + " exists already");
  return Write(target, nullptr);
}

int SetElement(int sock, const confd_value_t& value, std::string_view path) {
  const Target target(sock, path);
  if (!Writable(target)) return CONFD_ERR;
  const PathStep& step = target.steps->back();
  std::string text;
  if (!step.node->is(LYS_LEAF) || step.node->is_key() || !ToText(step.node, value, &text))
    return Refuse(target.Path() + " cannot be set");
  return Write(target, text.c_str());
}

int Delete(int sock, std::string_view path) {
  const Target target(sock, path);
  if (!Writable(target)) return CONFD_ERR;
  const PathStep& step = target.steps->back();
  WrittenState& written = target.service->datastore().Operational().written();
  if (step.data != nullptr) return written.Delete(step.data) ? CONFD_OK : Absent(target);
  if (step.is_entry || !step.node->is(LYS_LIST)) return Absent(target);
  std::vector<const lyd_node*> entries;
  const lyd_node* entry = SiblingsOf(*target.steps, target.tree);
  while ((entry = EntryFrom(entry, *step.node, target.tree)) != nullptr) {
    entries.push_back(entry);
    entry = entry->next;
  }
  for (const lyd_node* doomed : entries) written.Delete(doomed);
  return CONFD_OK;
}

int MoveTo(int sock, std::string_view path) {
  const Target target(sock);
  if (target.session == nullptr) return CONFD_ERR;
  return target.session->MoveTo(path, target.tree) ? CONFD_OK : CONFD_ERR;
}

}  // namespace
}  // namespace host

using host::FormattedPath;
using host::Target;

// Puts the path of a call together; `format` is the last named parameter.
#define FORMAT_PATH(path, format)              \
  va_list arguments;                           \
  va_start(arguments, format);                 \
  const FormattedPath path(format, arguments); \
  va_end(arguments)

extern "C" {

int cdb_get_txid(int sock, struct cdb_txid* txid) {
  const Target target(sock);
  if (target.session == nullptr) return CONFD_ERR;
  const uint64_t id = target.service->datastore().TransactionId();
  memset(txid, 0, sizeof(*txid));
  txid->s1 = static_cast<int32_t>(id >> 32);
  txid->s2 = static_cast<int32_t>(id & 0xffffffff);
  std::snprintf(txid->primary, sizeof(txid->primary), "%s", host::kNodeName);
  return CONFD_OK;
}

int cdb_set_namespace(int sock, int hashed_ns) {
  const Target target(sock);
  if (target.session == nullptr) return CONFD_ERR;
  if (hashed_ns != yang_tags::kNamespace)
    return host::Refuse("there is no namespace " + std::to_string(hashed_ns));
  return CONFD_OK;
}

int cdb_set_timeout(int sock, int seconds) {
  const Target target(sock);
  if (target.session == nullptr) return CONFD_ERR;
  return seconds >= 0 ? CONFD_OK : host::Refuse("a timeout cannot be negative");
}

int cdb_cd(int sock, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  return host::MoveTo(sock, path.text());
}

int cdb_getcwd(int sock, size_t size, char* curdir) {
  const Target target(sock);
  if (target.session == nullptr) return CONFD_ERR;
  const std::string& text = target.session->Position();
  if (text.size() + 1 > size) return host::Refuse("the position does not fit into the buffer");
  memcpy(curdir, text.c_str(), text.size() + 1);
  return CONFD_OK;
}

int cdb_getcwd_kpath(int sock, confd_hkeypath_t** kp) {
  const Target target(sock);
  const host::PathSteps* steps =
      target.session != nullptr ? target.session->PositionSteps(target.tree) : nullptr;
  if (steps == nullptr) return CONFD_ERR;
  auto* keypath = static_cast<confd_hkeypath_t*>(std::malloc(sizeof(confd_hkeypath_t)));
  if (keypath == nullptr || !host::ToKeypath(*steps, keypath)) {
    std::free(keypath);
    return host::Refuse("the position has no keypath");
  }
  *kp = keypath;
  return CONFD_OK;
}

int cdb_exists(int sock, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  const Target target(sock, path.text());
  if (target.steps == nullptr) return CONFD_ERR;
  return host::Exists(*target.steps, target.tree) ? 1 : 0;
}

int cdb_num_instances(int sock, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  return host::NumInstances(sock, path.text());
}

int cdb_get(int sock, confd_value_t* value, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  return host::Get(sock, value, path.text());
}

int cdb_get_buf(int sock, unsigned char** buffer, int* length, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  const char* text = host::LeafText(Target(sock, path.text()), host::ValueKind::kText);
  if (text == nullptr) return CONFD_ERR;
  *length = static_cast<int>(strlen(text));
  *buffer = reinterpret_cast<unsigned char*>(strdup(text));
  return *buffer != nullptr ? CONFD_OK : host::Refuse("out of memory");
}

int cdb_get_int32(int sock, int32_t* value, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  const char* text = host::LeafText(Target(sock, path.text()), host::ValueKind::kInt32);
  if (text == nullptr) return CONFD_ERR;
  *value = static_cast<int32_t>(std::strtol(text, nullptr, 10));
  return CONFD_OK;
}

int cdb_get_enum_value(int sock, int32_t* value, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  const Target target(sock, path.text());
  const char* text = host::LeafText(target, host::ValueKind::kNone);
  confd_value_t found{};
  if (text == nullptr) return CONFD_ERR;
  const bool is_value = host::ToValue(*target.steps->back().node, text, &found);
  const bool is_enum = is_value && found.type == C_ENUM_VALUE;
  if (is_value && !is_enum) confd_free_value(&found);
  if (!is_enum) return host::Refuse(target.Path() + " is no enumeration value");
  *value = found.val.enumvalue;
  return CONFD_OK;
}

int cdb_create(int sock, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  return host::Create(sock, path.text());
}

int cdb_delete(int sock, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  return host::Delete(sock, path.text());
}

int cdb_set_elem(int sock, confd_value_t* value, const char* fmt, ...) {
  FORMAT_PATH(path, fmt);
  return host::SetElement(sock, *value, path.text());
}

}  // extern "C"
