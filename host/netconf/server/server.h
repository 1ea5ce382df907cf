// The NETCONF server: a UNIX socket, its sessions, and what they share.
//
// Sessions are clear text on the socket; who may connect is the business of the socket's mode and
// group, and who is at the other end is told by the kernel. All work is done on the event loop that
// is given; nothing here waits.
#ifndef HOST_NETCONF_SERVER_SERVER_H_
#define HOST_NETCONF_SERVER_SERVER_H_

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/cdb/datastore.h"
#include "host/cdb/tree_pages.h"
#include "host/netconf/notifications/notifier.h"
#include "host/netconf/operations/candidate.h"
#include "host/netconf/operations/confirmed_commit.h"
#include "host/netconf/operations/dispatcher.h"
#include "host/netconf/operations/locks.h"
#include "host/netconf/peer/peer_log.h"
#include "host/netconf/peer/user_names.h"
#include "host/netconf/server/limits.h"
#include "host/netconf/server/pacer.h"
#include "host/netconf/server/session.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/events.h"
#include "host/runtime/state_providers.h"

namespace host {

struct NetconfServerOptions {
  std::string socket_path;
  mode_t socket_mode = 0660;
  std::string socket_group;  // empty: the process's own
  std::string write_group;   // see access.h; empty: none
  NetconfLimits limits;
  UserNames::LookUp user_name;         // empty: the system's
  std::string notification_directory;  // see Notifier; empty: notifications are not kept on disk
  std::shared_ptr<Events> events;      // what notifications are made of; null: the server's alone
};

class NetconfServer : private SessionControl, private CommitObserver {
 public:
  // Listens on the socket of `options`, and shows the server's state through `providers` (may be
  // null). A socket file that a dead process left is replaced. Null with the reason in `error` when
  // the socket is in use, its directory is missing, a group is unknown, or the kernel refuses.
  // `datastore` must outlive the server.
  static std::unique_ptr<NetconfServer> Create(const NetconfServerOptions& options,
                                               Datastore& datastore,
                                               std::shared_ptr<EventLoop> loop,
                                               std::shared_ptr<StateProviders> providers,
                                               std::string* error);
  NetconfServer(const NetconfServer&) = delete;
  NetconfServer& operator=(const NetconfServer&) = delete;
  // Ends all sessions and removes the socket file.
  ~NetconfServer() override;

  size_t session_count() const { return sessions_.size(); }
  const NetconfUsage& usage() const { return usage_; }
  const PageMemory& pages() const { return *pages_; }

 private:
  NetconfServer(const NetconfServerOptions& options, Datastore& datastore,
                std::shared_ptr<EventLoop> loop, std::unique_ptr<GenericXml> xml);

  void ShowState(StateProviders* providers);

  void BeforeCommit(const lyd_node* diff) override;
  void OnCommit(const lyd_node* diff, const CommitInfo& info) override;
  bool KillSession(uint32_t id, const SessionInfo& killer) override;
  void WatchListener();
  void Accept();
  std::shared_ptr<PeerLog> LogOf(uid_t user, bool may_write);
  std::string WhyRefused(const std::optional<Peer>& peer) const;
  void OnUserName(uid_t user, const std::string& name);
  void OnSessionEnd(uint32_t id);

  const NetconfServerOptions options_;
  Datastore& datastore_;
  const std::shared_ptr<EventLoop> loop_;
  const std::unique_ptr<GenericXml> xml_;
  const std::vector<std::string> capabilities_;
  const std::shared_ptr<PageMemory> pages_;
  const std::shared_ptr<Events> events_;
  Notifier notifier_;
  Candidate candidate_;
  ConfirmedCommit confirmed_;
  Locks locks_;
  std::shared_ptr<FindingsService> findings_;
  Dispatcher dispatcher_;
  Pacer pacer_;
  NetconfUsage usage_;
  ServerCounters counters_;
  std::optional<gid_t> write_group_;  // looked up once, before anybody is served
  std::unique_ptr<UserNames> user_names_;
  // Of those who may only read, until they are rested: nobody gets more by coming again.
  std::map<uid_t, std::shared_ptr<PeerLog>> reader_logs_;
  std::vector<StateProviders::Registration> shown_;

  int listener_ = -1;
  dev_t socket_device_ = 0;  // of the socket file, to remove no other
  ino_t socket_inode_ = 0;
  uint32_t next_id_ = 1;
  std::map<uint32_t, std::unique_ptr<Session>> sessions_;
  std::vector<std::unique_ptr<Session>> ended_;  // until the loop's next turn
  std::unique_ptr<Watch> listener_watch_;
  std::unique_ptr<Watch> cleanup_watch_;
};

}  // namespace host

#endif  // HOST_NETCONF_SERVER_SERVER_H_
