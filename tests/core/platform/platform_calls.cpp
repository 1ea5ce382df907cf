// The platform's functions and classes, on top of the ScriptedPlatform: each records its call and
// answers from the script.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
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
#include "tests/core/platform/scripted_platform.h"

using acl_test::KeyPath;
using acl_test::Line;
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

// What a call gives that returns a pointer, which may have to be given back: null when the script
// lets it fail.
template <class T>
T* Pointer(const std::string& line, T* result, int handed_out = 0) {
  if (Script().Call(line) != 0) return nullptr;
  Script().HandOut(handed_out);
  return result;
}

std::string VPrint(const char* format, va_list args) {
  char text[2048];
  EXPECT_LT(std::vsnprintf(text, sizeof text, format, args), static_cast<int>(sizeof text));
  return text;
}

// Makes `text` of the format and the arguments of a variadic function.
#define PRINT_INTO(text, format)                 \
  va_list args;                                  \
  va_start(args, format);                        \
  const std::string text = VPrint(format, args); \
  va_end(args)

}  // namespace

namespace acl_test {

qzmw_t* ScriptedPlatform::middleware() { return &the_middleware; }
zlog_category_s* ScriptedPlatform::trace_category() { return &the_category; }

}  // namespace acl_test

// ---- Middleware ----

qzmw_t* qzmw_init(const char* name) { return Pointer(Line("qzmw_init", name), &the_middleware, 1); }

int qzmw_loop_while(qzmw_t* mw, bool* flag) {
  EXPECT_EQ(mw, &the_middleware);
  return Script().Call(Line("qzmw_loop_while", *flag ? "true" : "false"));
}

void qzmw_finish(qzmw_t** mw) {
  EXPECT_EQ(std::exchange(*mw, nullptr), &the_middleware);
  Script().HandOut(-1, "qzmw_finish");
}

zlog_category_s* qzmw_trace_init(qzmw_t* mw, const char* name) {
  EXPECT_EQ(mw, &the_middleware);
  return Pointer(Line("qzmw_trace_init", name), &the_category);
}

void qzmw_print_backtrace() {
  std::fputs("backtrace\n", stderr);
  Script().Record("backtrace");
}

void qzmw_gen_fault(int level, const char* function, const char* file, int line,
                    const char* message) {
  EXPECT_GT(line, 0);
  const std::string text = Line("fault", level, function, file) + ": " + message;
  if (level == 1) std::fprintf(stderr, "%s\n", text.c_str());
  Script().Record(text);
}

qzmw_log_t* qzmw_log_init(qzmw_t* mw, const uint32_t* component,
                          const qzmw_log_class_t* log_class) {
  EXPECT_EQ(mw, &the_middleware);
  return Pointer(Line("qzmw_log_init", *component, log_class->id, log_class->name), &the_log, 1);
}

void qzmw_log_finish(qzmw_log_t** log) {
  EXPECT_EQ(std::exchange(*log, nullptr), &the_log);
  Script().HandOut(-1, "qzmw_log_finish");
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
  Script().Record(Line("trace", level, func) + ": " + text);
}

// ---- Configuration database ----

int cdb_get_txid(int sock, cdb_txid* txid) {
  return Script().Call(Line("cdb_get_txid", sock), [=] { *txid = Script().txid; });
}

int cdb_set_namespace(int sock, int ns) {
  return Script().Call(Line("cdb_set_namespace", sock, ns));
}

int cdb_set_timeout(int sock, int seconds) {
  return Script().Call(Line("cdb_set_timeout", sock, seconds));
}

int cdb_getcwd(int sock, size_t size, char* curdir) {
  return Script().Call(Line("cdb_getcwd", sock),
                       [=] { std::snprintf(curdir, size, "%s", Script().position.c_str()); });
}

int cdb_getcwd_kpath(int sock, confd_hkeypath_t** kp) {
  return Script().Call(Line("cdb_getcwd_kpath", sock), [=] {
    Script().HandOut(1);
    *kp = new KeyPath(Script().position);
  });
}

// A call with a path: its name, its parameters (the path's format is `fmt`), and the function that
// answers it.
#define PATH_CALL(name, parameters, answer)                  \
  int name parameters {                                      \
    PRINT_INTO(path, fmt);                                   \
    return Script().Call(Line(#name, sock, path), (answer)); \
  }

PATH_CALL(cdb_cd, (int sock, const char* fmt, ...), [&] {
  std::string& position = Script().position;
  position = path == ".." ? position.substr(0, position.rfind('/')) : path;
})

PATH_CALL(cdb_exists, (int sock, const char* fmt, ...),
          [&] { return static_cast<int>(Script().cdb.count(path)); })

PATH_CALL(cdb_num_instances, (int sock, const char* fmt, ...),
          [&] { return Script().Instances(path); })

PATH_CALL(cdb_get, (int sock, confd_value_t* value, const char* fmt, ...), [&] {
  const int rc = Script().Read(path, C_NOEXISTS, value);
  if (rc == CONFD_OK) Script().HandOut(1);
  return rc;
})

PATH_CALL(cdb_get_buf, (int sock, unsigned char** buffer, int* length, const char* fmt, ...), [&] {
  confd_value_t value;
  const int rc = Script().Read(path, C_BUF, &value);
  if (rc != CONFD_OK) return rc;
  *buffer = value.val.buf.ptr;
  *length = static_cast<int>(value.val.buf.size);
  return rc;
})

PATH_CALL(cdb_get_int32, (int sock, int32_t* number, const char* fmt, ...),
          [&] { return Script().ReadNumber(path, C_INT32, number); })

PATH_CALL(cdb_get_enum_value, (int sock, int32_t* number, const char* fmt, ...),
          [&] { return Script().ReadNumber(path, C_ENUM_VALUE, number); })

PATH_CALL(cdb_create, (int sock, const char* fmt, ...), [&] { Script().cdb[path] = ""; })

PATH_CALL(cdb_delete, (int sock, const char* fmt, ...), [&] {})

int cdb_set_elem(int sock, confd_value_t* value, const char* fmt, ...) {
  PRINT_INTO(path, fmt);
  return Script().Call(Line("cdb_set_elem", sock, path, "=", value),
                       [&] { Script().cdb[path] = acl_test::Word(value); });
}

int confd_pp_kpath(char* buf, int n, const confd_hkeypath_t* kp) {
  return std::snprintf(buf, n, "%s", static_cast<const KeyPath*>(kp)->text().c_str());
}

void confd_free_value(confd_value_t* value) {
  Value::Free(value);
  Script().HandOut(-1);
}

void confd_free_hkeypath(confd_hkeypath_t* kp) {
  delete static_cast<KeyPath*>(kp);
  Script().HandOut(-1);
}

const char* confd_lasterr() { return acl_test::kLastError; }

// ---- Framework ----

QzConfdCdbSessionBase::QzConfdCdbSessionBase(QzConfdInterface* interface, cdb_db_type db, bool flag)
    : socket_(acl_test::kSessionSocket + Script().sessions++) {
  EXPECT_NE(interface, nullptr);
  Script().HandOut(1, Line("open", socket_, db, flag ? "true" : "false"));
}

QzConfdCdbSessionBase::~QzConfdCdbSessionBase() {
  --Script().sessions;
  Script().HandOut(-1, Line("close", socket_));
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
  Script().HandOut(
      1, Line("AppInterface", name, "handlers", config_handlers.size(), action_handlers.size(),
              data_handlers.size(), "phase", phase, "options", options));
  Script().handlers = config_handlers;
  for (ConfigHandler* handler : config_handlers) handler->SetInterface(&impl_->connection);
}

AppInterface::~AppInterface() { Script().HandOut(-1, "~AppInterface"); }

}  // namespace qzconfd

// ---- Filter Manager ----

namespace FilterMgrClientApi {

class FilterMgrClient::Impl {};

namespace {

int GroupCall(const char* call, const FiltersCommon::FiltersGroup& group) {
  std::string line = Line(call, group.getId(), "stage", group.getStage(), "type", group.getType(),
                          "priority", group.getPriority());
  for (const std::string& entry : acl_test::Describe(group)) line += " {" + entry + '}';
  return Script().Call(line);
}

}  // namespace

FilterMgrClient::FilterMgrClient(qzmw_t* mw, const std::string& name) {
  EXPECT_EQ(mw, &the_middleware);
  Script().HandOut(1, Line("FilterMgrClient", name));
}
FilterMgrClient::~FilterMgrClient() { Script().HandOut(-1, "~FilterMgrClient"); }
int FilterMgrClient::createGroup(FiltersCommon::FiltersGroup group) {
  return GroupCall("createGroup", group);
}
int FilterMgrClient::updateGroup(const FiltersCommon::FiltersGroup& group) {
  return GroupCall("updateGroup", group);
}

}  // namespace FilterMgrClientApi

// ---- Filter model library ----

// The library itself is the real one; the linker leads the core's calls of these operations through
// here (option --wrap), as the library has no reason of its own to refuse what the core asks of it.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
#define REFUSABLE(name, symbol, Argument)                                                    \
  extern "C" FiltersCommon::filtersErr_t __real_##symbol(FiltersCommon::FiltersGroup*,       \
                                                         const Argument&);                   \
  extern "C" FiltersCommon::filtersErr_t __wrap_##symbol(FiltersCommon::FiltersGroup* group, \
                                                         const Argument& argument) {         \
    if (Script().refuse != (name)) return __real_##symbol(group, argument);                  \
    Script().refuse.clear();                                                                 \
    return FiltersCommon::FILTERS_ERR_EXISTS;                                                \
  }
REFUSABLE("insertEntry", _ZN13FiltersCommon12FiltersGroup11insertEntryERKNS_12FiltersEntryE,
          FiltersCommon::FiltersEntry)
REFUSABLE("removeEntry", _ZN13FiltersCommon12FiltersGroup11removeEntryERKt, unsigned short)
REFUSABLE("setStage", _ZN13FiltersCommon12FiltersGroup8setStageERKNS_19filtersGroupStage_tE,
          FiltersCommon::filtersGroupStage_t)
#undef REFUSABLE
// NOLINTEND(bugprone-reserved-identifier)

// ---- The small ones ----

int fm_init() { return Script().Call("fm_init"); }

int fm_local_slot(fm_slot_t* slot) {
  *slot = {3, 4};
  return Script().Call("fm_local_slot");
}

int fm_scalar_card_filter_mgr_pre_ingress_max_entries_per_group(const fm_slot_t* slot,
                                                                unsigned int* value) {
  return Script().Call(Line("fm_capacity", slot->chassis, slot->slot),
                       [=] { *value = acl_test::kCapacity; });
}

int limid_from_intfname(limid_t* id, const char* name) {
  std::map<std::string, limid_t>& limids = Script().limids;
  *id = limids.emplace(name, 1001 + limids.size()).first->second;
  return Script().Call(Line("limid_from_intfname", name));
}

int ElemLogCfgGetActualClass(int class_id) {
  const auto& actual = Script().actual_classes;
  return actual.count(class_id) == 0 ? class_id : actual.at(class_id);
}

void* ElemLogCfgPopulate(const ElemLogHeader* header, const ElemLogTables* tables) {
  Script().log_header = header;
  Script().log_tables = tables;
  return &Script().log_tables;
}
