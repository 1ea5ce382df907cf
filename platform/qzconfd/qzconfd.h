// The framework that connects a process to the configuration daemon and calls its handlers back.
//
// All callbacks come from the middleware's event loop on the process's one thread, one at a time.
// For a configuration handler: LoadInitialConfig() and ApplyInitialConfig() once after the start;
// then per commit that touches one of its subscription points StartCommit(), the diff-iteration
// callbacks of the touched points in the order of GetSubscriptionPoints(), and ApplyCommitConfig().
#ifndef PLATFORM_QZCONFD_QZCONFD_H_
#define PLATFORM_QZCONFD_QZCONFD_H_

#include <functional>
#include <memory>
#include <vector>

#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_lib.h"
#include "platform/qzmw/qzmw.h"

// The start-up phase of the configuration daemon in which a process connects. The values are the
// framework's.
enum ELEM_CONFD_PHASE_ET : int {};

// The connection of the process to the configuration daemon. Owned by the AppInterface.
class QzConfdInterface {
 public:
  explicit QzConfdInterface(int cfg_subs_socket) : cfg_subs_socket_(cfg_subs_socket) {}

  // The socket of the configuration subscriptions.
  int CfgSubsSocket() const { return cfg_subs_socket_; }

 private:
  int cfg_subs_socket_;
};

// An open session with one of the databases; destruction closes it.
class QzConfdCdbSessionBase {
 public:
  // `flag` is true for sessions that read what a commit has just changed.
  QzConfdCdbSessionBase(QzConfdInterface* interface, cdb_db_type db, bool flag);
  QzConfdCdbSessionBase(const QzConfdCdbSessionBase&) = delete;
  QzConfdCdbSessionBase& operator=(const QzConfdCdbSessionBase&) = delete;
  virtual ~QzConfdCdbSessionBase();

  // The socket to pass to the cdb_* calls; negative when the session could not be opened.
  int Socket() const { return socket_; }

 private:
  int socket_;
};

// A session with the running datastore.
class QzConfdCdbSession : public QzConfdCdbSessionBase {
 public:
  explicit QzConfdCdbSession(QzConfdInterface* interface)
      : QzConfdCdbSessionBase(interface, CDB_RUNNING, true) {}
};

// A session with the operational datastore, for writing status data.
class QzConfdStatusSession : public QzConfdCdbSessionBase {
 public:
  explicit QzConfdStatusSession(QzConfdInterface* interface)
      : QzConfdCdbSessionBase(interface, CDB_OPERATIONAL, false) {}
};

namespace qzconfd {

using DiffIterator = std::function<confd_iter_ret(confd_hkeypath_t* kp, confd_iter_op op,
                                                  confd_value_t* oldv, confd_value_t* newv)>;

struct SubscriptionPoint {
  int ordinal;
  int namespace_hash;
  const char* path;
  int flags;
  DiffIterator diff_iterator;
};

class BaseHandler {
 public:
  virtual ~BaseHandler() = default;
  virtual void ConfdConnected(ELEM_CONFD_PHASE_ET /*phase*/) {}
  virtual void ConfdDisconnected() {}

  // Set by the AppInterface that the handler is given to; null before. Not owned.
  void SetInterface(QzConfdInterface* interface) { interface_ = interface; }
  QzConfdInterface* Interface() const { return interface_; }

 private:
  QzConfdInterface* interface_ = nullptr;
};

class ConfigHandler : public BaseHandler {
 public:
  virtual void LoadInitialConfig(int cdb_socket) = 0;
  virtual void ApplyInitialConfig() = 0;
  virtual void StartCommit() = 0;
  virtual void ApplyCommitConfig() = 0;
  virtual const std::vector<SubscriptionPoint>& GetSubscriptionPoints() const = 0;
};

class ActionHandler : public BaseHandler {};
class DataHandler : public BaseHandler {};

// Connects the handlers, which must outlive it or its last callback, whichever ends first.
class AppInterface {
 public:
  AppInterface(qzmw_t* mw, zlog_category_s* trace, const char* name,
               const std::vector<ConfigHandler*>& config_handlers,
               const std::vector<ActionHandler*>& action_handlers,
               const std::vector<DataHandler*>& data_handlers, ELEM_CONFD_PHASE_ET phase,
               int options);
  AppInterface(const AppInterface&) = delete;
  AppInterface& operator=(const AppInterface&) = delete;
  virtual ~AppInterface();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qzconfd

#endif  // PLATFORM_QZCONFD_QZCONFD_H_
