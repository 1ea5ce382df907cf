// The platform's functions and classes, on top of the ScriptedPlatform: each records its call and
// answers from the script.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/confd/confd_cdb.h"
#include "platform/elem_log/elem_log.h"
#include "platform/feature_model/feature_model.h"
#include "platform/filter_mgr/filter_mgr_client.h"
#include "platform/limid/limid.h"
#include "platform/qzconfd/qzconfd.h"
#include "platform/qzmw/qzmw.h"
#include "platform/zlog/zlog.h"
#include "tests/support/scripted_platform.h"

using acl_test::KeyPath;
using acl_test::ScriptedPlatform;
using acl_test::Value;

struct qzmw {};
struct qzmw_log {};
struct zlog_category_s {};

namespace {

qzmw the_middleware;
qzmw_log the_log;
zlog_category_s the_category;

ScriptedPlatform& Script() { return ScriptedPlatform::Get(); }

std::string VPrint(const char* format, va_list args) {
  char text[2048];
  EXPECT_LT(std::vsnprintf(text, sizeof text, format, args), static_cast<int>(sizeof text));
  return text;
}

// Makes `text` of a variadic function's format and arguments.
#define PRINT_INTO(text, format)                 \
  va_list args;                                  \
  va_start(args, format);                        \
  const std::string text = VPrint(format, args); \
  va_end(args)

std::string Line(const std::string& call, int sock) { return call + ' ' + std::to_string(sock); }
std::string Line(const std::string& call, int sock, const std::string& path) {
  return Line(call, sock) + ' ' + path;
}

// A call that reads the leaf at `path`: gives it to `use`, if it is there and of this type (any,
// when that is C_NOEXISTS).
template <class Use>
int ReadLeaf(const char* call, int sock, const std::string& path, confd_vtype type, Use use) {
  return Script().Do(Line(call, sock, path), [&] {
    const Value* leaf = Script().Find(path);
    if (leaf == nullptr || (type != C_NOEXISTS && leaf->get()->type != type)) return CONFD_ERR;
    use(*leaf->get());
    return CONFD_OK;
  });
}

}  // namespace

namespace acl_test {

qzmw_t* ScriptedPlatform::middleware() { return &the_middleware; }
zlog_category_s* ScriptedPlatform::trace_category() { return &the_category; }

}  // namespace acl_test

// ---- Middleware ----

qzmw_t* qzmw_init(const char* name) {
  if (Script().Call(std::string("qzmw_init ") + name) != 0) return nullptr;
  Script().HandOut(1);
  return &the_middleware;
}

int qzmw_loop_while(qzmw_t* mw, bool* flag) {
  EXPECT_EQ(mw, &the_middleware);
  return Script().Call(std::string("qzmw_loop_while ") + (*flag ? "true" : "false"));
}

void qzmw_finish(qzmw_t** mw) {
  EXPECT_EQ(*mw, &the_middleware);
  Script().Record("qzmw_finish");
  Script().HandOut(-1);
  *mw = nullptr;
}

zlog_category_s* qzmw_trace_init(qzmw_t* mw, const char* name) {
  EXPECT_EQ(mw, &the_middleware);
  return Script().Call(std::string("qzmw_trace_init ") + name) == 0 ? &the_category : nullptr;
}

void qzmw_print_backtrace() {
  std::fputs("backtrace\n", stderr);
  Script().Record("backtrace");
}

void qzmw_gen_fault(int level, const char* function, const char* file, int line,
                    const char* message) {
  EXPECT_GT(line, 0);
  const std::string text =
      std::string("fault ") + std::to_string(level) + ' ' + function + ' ' + file + ": " + message;
  if (level == 1) std::fprintf(stderr, "%s\n", text.c_str());
  Script().Record(text);
}

qzmw_log_t* qzmw_log_init(qzmw_t* mw, const uint32_t* component,
                          const qzmw_log_class_t* log_class) {
  EXPECT_EQ(mw, &the_middleware);
  if (Script().Call("qzmw_log_init " + std::to_string(*component) + ' ' +
                    std::to_string(log_class->id) + ' ' + log_class->name) != 0) {
    return nullptr;
  }
  Script().HandOut(1);
  return &the_log;
}

void qzmw_log_finish(qzmw_log_t** log) {
  EXPECT_EQ(*log, &the_log);
  Script().Record("qzmw_log_finish");
  Script().HandOut(-1);
  *log = nullptr;
}

void qzmw_vlog(qzmw_log_t* log, const qzmw_log_msg_t* msg, va_list args) {
  EXPECT_EQ(log, &the_log);
  // The message's layout is the middleware's: tests pass a format.
  Script().Record("message " + VPrint(reinterpret_cast<const char*>(msg), args));
}

void qzmw_vlog_debug(qzmw_log_t* log, const char* format, va_list args) {
  EXPECT_EQ(log, &the_log);
  Script().Record("log " + VPrint(format, args));
}

void zlog(zlog_category_s* category, const char* file, size_t filelen, const char* func,
          size_t funclen, long line, int level, const char* format, ...) {
  EXPECT_EQ(category, &the_category);
  EXPECT_EQ(std::strlen(file), filelen);
  EXPECT_EQ(std::strlen(func), funclen);
  EXPECT_GT(line, 0);
  PRINT_INTO(text, format);
  Script().Record("trace " + std::to_string(level) + ' ' + func + ": " + text);
}

// ---- Configuration database ----

int cdb_get_txid(int sock, cdb_txid* txid) {
  return Script().Do(Line("cdb_get_txid", sock), [txid] { *txid = Script().txid; });
}

int cdb_set_namespace(int sock, int hashed_ns) {
  return Script().Call(Line("cdb_set_namespace", sock, std::to_string(hashed_ns)));
}

int cdb_set_timeout(int sock, int seconds) {
  return Script().Call(Line("cdb_set_timeout", sock, std::to_string(seconds)));
}

int cdb_cd(int sock, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return Script().Do(Line("cdb_cd", sock, path), [&] {
    std::string& position = Script().position(sock);
    position = path == ".." ? position.substr(0, position.rfind('/')) : path;
  });
}

int cdb_getcwd(int sock, size_t size, char* curdir) {
  return Script().Do(Line("cdb_getcwd", sock),
                     [=] { std::snprintf(curdir, size, "%s", Script().position(sock).c_str()); });
}

int cdb_getcwd_kpath(int sock, confd_hkeypath_t** kp) {
  return Script().Do(Line("cdb_getcwd_kpath", sock), [=] {
    *kp = new KeyPath(Script().position(sock));
    Script().HandOut(1);
  });
}

int cdb_exists(int sock, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return Script().Call(Line("cdb_exists", sock, path), Script().Exists(path) ? 1 : 0);
}

int cdb_num_instances(int sock, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return Script().Call(Line("cdb_num_instances", sock, path), Script().Instances(path));
}

int cdb_get(int sock, confd_value_t* value, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return ReadLeaf("cdb_get", sock, path, C_NOEXISTS, [value](const confd_value_t& leaf) {
    *value = acl_test::CloneValue(leaf);
    Script().HandOut(1);
  });
}

int cdb_get_buf(int sock, unsigned char** buffer, int* length, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return ReadLeaf("cdb_get_buf", sock, path, C_BUF, [=](const confd_value_t& leaf) {
    const confd_buf& text = leaf.val.buf;
    *buffer = static_cast<unsigned char*>(std::calloc(text.size + 1, 1));
    std::copy_n(text.ptr, text.size, *buffer);
    *length = static_cast<int>(text.size);
  });
}

int cdb_get_int32(int sock, int32_t* value, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return ReadLeaf("cdb_get_int32", sock, path, C_INT32,
                  [value](const confd_value_t& leaf) { *value = leaf.val.i32; });
}

int cdb_get_enum_value(int sock, int32_t* value, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return ReadLeaf("cdb_get_enum_value", sock, path, C_ENUM_VALUE,
                  [value](const confd_value_t& leaf) { *value = leaf.val.enumvalue; });
}

int cdb_create(int sock, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return Script().Do(Line("cdb_create", sock, path), [&] { Script().cdb[path] = Value(); });
}

int cdb_delete(int sock, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return Script().Do(Line("cdb_delete", sock, path), [&] { Script().Delete(path); });
}

int cdb_set_elem(int sock, confd_value_t* value, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return Script().Do(Line("cdb_set_elem", sock, path) + " = " + acl_test::ToText(value),
                     [&] { Script().cdb[path] = Value(*value); });
}

int confd_pp_kpath(char* buf, int n, const confd_hkeypath_t* kp) {
  return std::snprintf(buf, n, "%s", static_cast<const KeyPath*>(kp)->text().c_str());
}

void confd_free_value(confd_value_t* value) {
  if (value->type == 0 || value->type == C_NOEXISTS) return;  // nothing was read into it
  acl_test::ReleaseValue(value);
  Script().HandOut(-1);
}

void confd_free_hkeypath(confd_hkeypath_t* kp) {
  if (kp == nullptr) return;
  delete static_cast<KeyPath*>(kp);
  Script().HandOut(-1);
}

const char* confd_lasterr() { return acl_test::kLastError; }

// ---- Framework ----

QzConfdCdbSessionBase::QzConfdCdbSessionBase(QzConfdInterface* interface, cdb_db_type db, bool flag)
    : socket_(Script().OpenSession()) {
  EXPECT_NE(interface, nullptr);
  Script().Record(Line("open", socket_) + ' ' + std::to_string(db) + (flag ? " true" : " false"));
}

QzConfdCdbSessionBase::~QzConfdCdbSessionBase() {
  Script().Record(Line("close", socket_));
  Script().CloseSession(socket_);
}

namespace qzconfd {

class AppInterface::Impl {
 public:
  QzConfdInterface connection{acl_test::kSubscriptionSocket};
};

AppInterface::AppInterface(qzmw_t* mw, zlog_category_s* trace, const char* name,
                           const std::vector<ConfigHandler*>& config_handlers,
                           const std::vector<ActionHandler*>& action_handlers,
                           const std::vector<DataHandler*>& data_handlers,
                           ELEM_CONFD_PHASE_ET phase, int options)
    : impl_(std::make_unique<Impl>()) {
  EXPECT_EQ(mw, &the_middleware);
  EXPECT_EQ(trace, &the_category);
  Script().Record(
      std::string("AppInterface ") + name + " handlers " + std::to_string(config_handlers.size()) +
      ' ' + std::to_string(action_handlers.size()) + ' ' + std::to_string(data_handlers.size()) +
      " phase " + std::to_string(phase) + " options " + std::to_string(options));
  Script().HandOut(1);
  Script().handlers = config_handlers;
  for (ConfigHandler* handler : config_handlers) handler->SetInterface(&impl_->connection);
}

AppInterface::~AppInterface() {
  Script().Record("~AppInterface");
  Script().HandOut(-1);
}

}  // namespace qzconfd

// ---- Filter Manager ----

namespace FilterMgrClientApi {

class FilterMgrClient::Impl {};

namespace {

std::string GroupLine(const char* call, const FiltersCommon::FiltersGroup& group) {
  std::string line = std::string(call) + ' ' + std::to_string(group.getId()) + " stage " +
                     std::to_string(group.getStage()) + " type " + std::to_string(group.getType()) +
                     " priority " + std::to_string(group.getPriority());
  for (const std::string& entry : acl_test::Describe(group)) line += " {" + entry + '}';
  return line;
}

}  // namespace

FilterMgrClient::FilterMgrClient(qzmw_t* mw, const std::string& name) {
  EXPECT_EQ(mw, &the_middleware);
  Script().Record("FilterMgrClient " + name);
  Script().HandOut(1);
}

FilterMgrClient::~FilterMgrClient() {
  Script().Record("~FilterMgrClient");
  Script().HandOut(-1);
}

int FilterMgrClient::createGroup(FiltersCommon::FiltersGroup group) {
  return Script().Call(GroupLine("createGroup", group));
}

int FilterMgrClient::updateGroup(const FiltersCommon::FiltersGroup& group) {
  return Script().Call(GroupLine("updateGroup", group));
}

}  // namespace FilterMgrClientApi

// ---- Filter model library ----

// The library itself is the real one; the linker leads the core's calls of this operation through
// here (option --wrap), as the library has no reason of its own to refuse what the core inserts.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

FiltersCommon::filtersErr_t
__real__ZN13FiltersCommon12FiltersGroup11insertEntryERKNS_12FiltersEntryE(
    FiltersCommon::FiltersGroup* group, const FiltersCommon::FiltersEntry& entry);

FiltersCommon::filtersErr_t
__wrap__ZN13FiltersCommon12FiltersGroup11insertEntryERKNS_12FiltersEntryE(
    FiltersCommon::FiltersGroup* group, const FiltersCommon::FiltersEntry& entry) {
  if (Script().TakeInsertRefusal()) return FiltersCommon::FILTERS_ERR_EXISTS;
  return __real__ZN13FiltersCommon12FiltersGroup11insertEntryERKNS_12FiltersEntryE(group, entry);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

// ---- The small ones ----

int fm_init() { return Script().Call("fm_init"); }

int fm_local_slot(fm_slot_t* slot) {
  *slot = {3, 4};
  return Script().Call("fm_local_slot");
}

int fm_scalar_card_filter_mgr_pre_ingress_max_entries_per_group(const fm_slot_t* slot,
                                                                unsigned int* value) {
  return Script().Do(Line("fm_capacity", slot->chassis, std::to_string(slot->slot)),
                     [value] { *value = Script().capacity; });
}

int limid_from_intfname(limid_t* id, const char* name) {
  std::map<std::string, limid_t>& limids = Script().limids;
  *id = limids.emplace(name, 1001 + limids.size()).first->second;
  return Script().Call(std::string("limid_from_intfname ") + name);
}

int ElemLogCfgGetActualClass(int class_id) {
  auto it = Script().actual_classes.find(class_id);
  return it == Script().actual_classes.end() ? class_id : it->second;
}

void* ElemLogCfgPopulate(const ElemLogHeader* header, const ElemLogTables* tables) {
  Script().log_header = header;
  Script().log_tables = tables;
  return &Script().log_tables;
}
