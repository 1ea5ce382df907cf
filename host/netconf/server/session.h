// One NETCONF session on a connected socket: bytes in, bytes out, and the order of things.
//
// A session works on one message at a time and takes the next one only when the reply to the last
// is written: what a peer does not read, or half-sends, is held back in its own socket. Between two
// messages of one peer the loop serves the others. A reply with data is made in parts, as fast as
// the peer reads; a session never holds much more than one part.
//
// When the socket is ready nothing is done but to queue the session with the pacer; all work is
// done in steps there: reading and decoding up to one message, carrying it out, a part of a reply,
// some notifications of a subscription.
#ifndef HOST_NETCONF_SERVER_SESSION_H_
#define HOST_NETCONF_SERVER_SESSION_H_

#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/netconf/notifications/subscription.h"
#include "host/netconf/operations/dispatcher.h"
#include "host/netconf/peer/peer.h"
#include "host/netconf/server/limits.h"
#include "host/netconf/server/monitoring.h"
#include "host/netconf/server/pacer.h"
#include "host/netconf/wire/framing.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/events.h"

namespace host {

// Bytes held for all sessions together.
struct NetconfUsage {
  size_t input = 0;
  size_t output = 0;
};

class Session : private Pacer::Task {
 public:
  struct Environment {
    EventLoop& loop;
    Dispatcher& dispatcher;
    const GenericXml& xml;
    Pacer& pacer;
    const NetconfLimits& limits;
    NetconfUsage& usage;
    const PageMemory& pages;
    ServerCounters& counters;
    const Events& events;
  };

  // Takes over `fd`; `log` is that of the user. The session begins when the name of its user is
  // known (Begin()), or when that takes too long. `on_end` is called once, when the session is
  // over, and not from the constructor; the session is then to be destroyed, though not within the
  // call.
  Session(uint32_t id, int fd, Peer peer, bool may_write, std::shared_ptr<PeerLog> log,
          const std::vector<std::string>& capabilities, const Environment& environment,
          std::function<void(uint32_t id)> on_end);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() override;

  // Begins the session, of a user of that name. Later it only changes the name.
  void Begin(const std::string& user);

  uid_t user() const { return peer_.uid; }
  SessionState State() const { return {info_.id, info_.user, login_, counters_}; }
  // Ends the session for the reason given, with what is unsent. `event` is what others are told.
  void Abort(const std::string& reason, SessionEnded::Reason event = SessionEnded::kOther,
             uint32_t killed_by = 0);
  // Tells others that the session ends, if they know of it. Done by Abort().
  void TellEnd(SessionEnded::Reason event, uint32_t killed_by = 0);

 private:
  enum class Phase { kHello, kOpen, kClosing, kEnded };

  // What lines of the log are about while the session is at work.
  LogFields Fields() const;
  void OnReady(uint32_t ready);
  bool Step() override;
  void DoWork();
  bool HasWork() const;
  void Read();
  void Decode();
  void TakeHello();
  std::string AcceptHello();
  void TakeMessage(bool cut);
  void AddPart();
  void AddNotifications();
  void Enlist();
  void Wake();
  void Send(std::string message);
  void Queue(std::string piece);
  Framing FramingOut() const;
  void Write();
  void WatchSocket();
  void WatchTime();
  void AccountInput();
  bool OutputPending() const { return !output_.empty(); }
  bool InputWanted() const;

  SessionInfo info_;
  const int fd_;
  const Peer peer_;
  Environment env_;
  std::function<void(uint32_t id)> on_end_;
  const time_t login_ = time(nullptr);
  RpcCounters counters_;

  Phase phase_ = Phase::kHello;
  bool begun_ = false;
  bool base_1_1_ = false;
  bool input_ended_ = false;
  FrameDecoder decoder_;
  std::string unread_;  // received, not yet decoded
  size_t accounted_input_ = 0;
  std::unique_ptr<ReplyStream> reply_;  // that is being made
  std::unique_ptr<Subscription> subscription_;
  bool queued_ = false;    // with the pacer, or at work
  bool readable_ = false;  // the socket is
  bool blocked_ = false;   // the socket takes no more
  std::deque<std::string> output_;
  size_t output_sent_ = 0;  // of the first piece
  size_t output_bytes_ = 0;

  std::unique_ptr<Watch> io_watch_;
  std::unique_ptr<Watch> time_watch_;
};

}  // namespace host

#endif  // HOST_NETCONF_SERVER_SESSION_H_
