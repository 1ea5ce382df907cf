// The NETCONF server: see server.h.
#include "host/netconf/server/server.h"

#include <grp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/netconf/peer/access.h"
#include "host/netconf/view/standard_view.h"
#include "host/netconf/wire/framing.h"
#include "host/netconf/wire/hello.h"
#include "host/netconf/wire/listener.h"
#include "host/runtime/middleware.h"
#include "host/xml/xml_text.h"

namespace host {
namespace {

// Says in place of a hello why there is no session. The protocol has no words for that; a client
// that knows them can show them.
void Refuse(int fd, const std::string& why) {
  const RpcError error{"protocol", "resource-denied", why, "", "", ""};
  const ReplyFrame frame{std::string("<rpc-reply xmlns=\"") + kNetconfNamespace + "\">",
                         "</rpc-reply>", ""};
  const std::string message =
      PrintErrorReply(frame, {error}, nullptr) + std::string(FrameSuffix(Framing::kEndOfMessage));
  send(fd, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace

std::unique_ptr<NetconfServer> NetconfServer::Create(const NetconfServerOptions& options,
                                                     Datastore& datastore,
                                                     std::shared_ptr<EventLoop> loop,
                                                     std::shared_ptr<StateProviders> providers,
                                                     std::string* error) {
  auto xml = GenericXml::Create();
  if (xml == nullptr) {
    *error = "cannot make a context for XML";
    return nullptr;
  }
  std::unique_ptr<NetconfServer> server(
      new NetconfServer(options, datastore, std::move(loop), std::move(xml)));
  if (!options.write_group.empty()) {
    const group* entry = getgrnam(options.write_group.c_str());
    if (entry == nullptr) {
      *error = "the group " + options.write_group + " of those who may write is not known";
      return nullptr;
    }
    server->write_group_ = entry->gr_gid;
  }
  server->user_names_ = UserNames::Create(
      *server->loop_, options.user_name,
      [server = server.get()](uid_t user, const std::string& name) {
        server->OnUserName(user, name);
      },
      error);
  if (server->user_names_ == nullptr) return nullptr;
  const int fd = ListenAt(options.socket_path, options.socket_mode, options.socket_group, error);
  if (fd < 0) return nullptr;
  server->listener_ = fd;
  struct stat info {};
  if (stat(options.socket_path.c_str(), &info) == 0) {
    server->socket_device_ = info.st_dev;
    server->socket_inode_ = info.st_ino;
  }
  server->confirmed_.Recover();
  server->WatchListener();
  if (providers != nullptr) server->ShowState(providers.get());
  return server;
}

void NetconfServer::ShowState(StateProviders* providers) {
  findings_->Show(providers);
  shown_.push_back(ShowAsAccessLists(providers, datastore_, pages_));
  shown_.push_back(
      providers->Add({"ietf-netconf-monitoring", "netconf-state", [this](const ly_ctx* context) {
                        ServerState state{capabilities_, locks_, counters_, {}};
                        for (const auto& [id, session] : sessions_) {
                          state.sessions.push_back(session->State());
                        }
                        return BuildNetconfState(context, state).release();
                      }}));
  shown_.push_back(
      providers->Add({"acl-app-commits", "confirmed-commit", [this](const ly_ctx* context) {
                        return confirmed_.State(context).release();
                      }}));
  shown_.push_back(providers->Add({"nc-notifications", "netconf", [this](const ly_ctx* context) {
                                     return notifier_.State(context).release();
                                   }}));
  for (const char* node : {"yang-library", "modules-state"}) {
    shown_.push_back(providers->Add({"ietf-yang-library", node, [node](const ly_ctx* context) {
                                       return BuildYangLibrary(context, node).release();
                                     }}));
  }
}

NetconfServer::NetconfServer(const NetconfServerOptions& options, Datastore& datastore,
                             std::shared_ptr<EventLoop> loop, std::unique_ptr<GenericXml> xml)
    : options_(options),
      datastore_(datastore),
      loop_(std::move(loop)),
      xml_(std::move(xml)),
      capabilities_(ServerCapabilities(datastore.Context())),
      pages_(std::make_shared<PageMemory>(options.limits.all_page_bytes)),
      events_(options.events != nullptr ? options.events : std::make_shared<Events>()),
      notifier_(options.notification_directory, datastore, *loop_, events_),
      candidate_(datastore),
      confirmed_(datastore, *loop_, events_.get()),
      findings_(std::make_shared<FindingsService>(datastore, candidate_, pages_)),
      dispatcher_({datastore, candidate_, confirmed_, locks_, *this, pages_, findings_, &notifier_},
                  *xml_, options.limits.depth),
      pacer_(*loop_) {
  counters_.started = time(nullptr);
  datastore_.AddObserver(this);
}

NetconfServer::~NetconfServer() {
  listener_watch_.reset();
  cleanup_watch_.reset();
  for (const auto& [id, session] : sessions_) session->TellEnd(SessionEnded::kOther);
  sessions_.clear();
  ended_.clear();
  datastore_.RemoveObserver(this);
  pages_->kept.clear();
  if (listener_ < 0) return;
  close(listener_);
  struct stat info {};
  if (stat(options_.socket_path.c_str(), &info) == 0 && info.st_dev == socket_device_ &&
      info.st_ino == socket_inode_) {
    unlink(options_.socket_path.c_str());
  }
}

void NetconfServer::WatchListener() {
  listener_watch_ = loop_->OnIo(listener_, EPOLLIN, [this](uint32_t) { Accept(); });
}

// Takes one connection per call; the loop calls again while there are more.
void NetconfServer::Accept() {
  const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd < 0) {
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
    // Out of descriptors, most likely: the connection stays in the queue, so wait a little.
    Log(LogLevel::kError, "netconf: cannot accept a session: %s", std::strerror(errno));
    listener_watch_ = loop_->After(std::chrono::seconds(1), [this] { WatchListener(); });
    return;
  }
  std::optional<Peer> peer = PeerOf(fd);
  const std::string why = WhyRefused(peer);
  const bool may_write = peer.has_value() && MayWrite(*peer, write_group_);
  std::shared_ptr<PeerLog> log = LogOf(peer.has_value() ? peer->uid : -1, may_write);
  if (!why.empty()) {
    log->Write(
        LogLevel::kWarning, "netconf: session of user %s refused: %s",
        peer.has_value()
            ? user_names_->Find(peer->uid).value_or(UserNames::NumberAsName(peer->uid)).c_str()
            : "?",
        why.c_str());
    Refuse(fd, why);
    close(fd);
    return;
  }
  ++counters_.in_sessions;
  const uint32_t id = next_id_++;
  if (next_id_ == 0) next_id_ = 1;
  const Session::Environment environment{*loop_, dispatcher_, *xml_,     pacer_,  options_.limits,
                                         usage_, *pages_,     counters_, *events_};
  const std::optional<std::string> name = user_names_->Find(peer->uid);
  std::unique_ptr<Session>& session = sessions_[id];
  session =
      std::make_unique<Session>(id, fd, std::move(*peer), may_write, std::move(log), capabilities_,
                                environment, [this](uint32_t ended) { OnSessionEnd(ended); });
  if (name.has_value()) session->Begin(*name);
}

void NetconfServer::OnUserName(uid_t user, const std::string& name) {
  for (const auto& [id, session] : sessions_) {
    if (session->user() == user) session->Begin(name);
  }
}

std::shared_ptr<PeerLog> NetconfServer::LogOf(uid_t user, bool may_write) {
  if (may_write) return std::make_shared<PeerLog>(*loop_, user, false);
  const auto found = reader_logs_.find(user);
  if (found != reader_logs_.end()) return found->second;
  // Looks for those that can go only now and then: one who has many accounts could make it long.
  const bool look = reader_logs_.size() % 64 == 63;
  for (auto other = reader_logs_.begin(); look && other != reader_logs_.end();) {
    const bool unused = other->second.use_count() == 1 && other->second->IsRested();
    other = unused ? reader_logs_.erase(other) : std::next(other);
  }
  return reader_logs_[user] = std::make_shared<PeerLog>(*loop_, user, true);
}

// Why a peer gets no session; empty when it does.
std::string NetconfServer::WhyRefused(const std::optional<Peer>& peer) const {
  if (!peer.has_value()) return "the kernel does not tell who it is";
  const NetconfLimits& limits = options_.limits;
  const bool may_write = MayWrite(*peer, write_group_);
  if (sessions_.size() + (may_write ? 0 : limits.reserved_sessions) >= limits.sessions) {
    return "too many sessions, " + std::to_string(sessions_.size()) + " are open";
  }
  const auto own = std::count_if(sessions_.begin(), sessions_.end(), [&](const auto& entry) {
    return entry.second->user() == peer->uid;
  });
  if (may_write || static_cast<size_t>(own) < limits.user_sessions) return "";
  return "too many sessions of this user, " + std::to_string(own) + " are open";
}

void NetconfServer::BeforeCommit(const lyd_node* diff) {
  if (pages_->used != 0) DetachTouched(datastore_.Running(), diff);
}

void NetconfServer::OnCommit(const lyd_node* diff, const CommitInfo&) {
  if (pages_->used != 0) DetachParted(datastore_.Running(), diff);
}

void NetconfServer::OnSessionEnd(uint32_t id) {
  // RFC 6241 section 8.3.5.2: with the lock go the changes that it protected.
  if (locks_.HolderOf("candidate") == id) candidate_.Discard();
  locks_.ReleaseAllOf(id);
  confirmed_.OnSessionEnd(id);
  const auto found = sessions_.find(id);
  if (found == sessions_.end()) return;
  ended_.push_back(std::move(found->second));
  sessions_.erase(found);
  // The session may be on the stack now.
  cleanup_watch_ = loop_->Soon([this] { ended_.clear(); });
}

bool NetconfServer::KillSession(uint32_t id, const SessionInfo& killer) {
  const auto found = sessions_.find(id);
  if (found == sessions_.end()) return false;
  found->second->Abort("killed by session " + std::to_string(killer.id) + " (" + killer.user + ")",
                       SessionEnded::kKilled, killer.id);
  return true;
}

}  // namespace host
