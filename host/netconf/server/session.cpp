// One NETCONF session: see session.h.
#include "host/netconf/server/session.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/netconf/peer/user_names.h"
#include "host/netconf/wire/hello.h"

namespace host {
namespace {

constexpr size_t kReadSize = size_t{64} << 10;
constexpr size_t kMaxHello = size_t{64} << 10;
// With so much to be read no further part of a reply is made.
constexpr size_t kEnoughOutput = size_t{32} << 10;

}  // namespace

Session::Session(uint32_t id, int fd, Peer peer, bool may_write, std::shared_ptr<PeerLog> log,
                 const std::vector<std::string>& capabilities, const Environment& environment,
                 std::function<void(uint32_t id)> on_end)
    : info_{id, UserNames::NumberAsName(peer.uid), may_write, std::move(log)},
      fd_(fd),
      peer_(std::move(peer)),
      env_(environment),
      on_end_(std::move(on_end)),
      decoder_(may_write ? environment.limits.message_bytes
                         : std::min(environment.limits.message_bytes,
                                    environment.limits.reader_message_bytes)) {
  // Written by the loop's next turn at the earliest, so that on_end is never called from here.
  Send(ServerHello(id, capabilities));
  time_watch_ = env_.loop.After(env_.limits.name_timeout, [this] { Begin(info_.user); });
  if (time_watch_ == nullptr) Begin(info_.user);
}

LogFields Session::Fields() const {
  return LogFields({{"USER", info_.user}, {"SESSION", std::to_string(info_.id)}});
}

void Session::Begin(const std::string& user) {
  if (phase_ == Phase::kEnded) return;
  info_.user = user;
  if (begun_) return;
  begun_ = true;
  const LogFields fields = Fields();
  info_.log->Write(LogLevel::kInfo, "netconf: session %u of user %s (uid %u, pid %d%s) begins",
                   info_.id, user.c_str(), peer_.uid, peer_.pid,
                   info_.may_write ? "" : ", may only read");
  WatchSocket();
  WatchTime();
}

Session::~Session() {
  env_.pacer.Remove(this);
  env_.usage.input -= accounted_input_;
  env_.usage.output -= output_bytes_;
  io_watch_.reset();
  close(fd_);
  const LogFields fields = Fields();
  info_.log->Write(LogLevel::kInfo, "netconf: session %u of user %s ends", info_.id,
                   info_.user.c_str());
}

void Session::TellEnd(SessionEnded::Reason event, uint32_t killed_by) {
  subscription_.reset();
  const bool known = phase_ == Phase::kOpen || phase_ == Phase::kClosing;
  if (!known && event != SessionEnded::kBadHello && event != SessionEnded::kTimeout) return;
  env_.events.Publish(SessionEnded{info_.id, info_.user, event, killed_by});
}

void Session::Abort(const std::string& reason, SessionEnded::Reason event, uint32_t killed_by) {
  if (phase_ == Phase::kEnded) return;
  if (!reason.empty()) {
    const LogFields fields = Fields();
    info_.log->Write(LogLevel::kWarning, "netconf: session %u (%s): %s", info_.id,
                     info_.user.c_str(), reason.c_str());
    ++env_.counters.dropped_sessions;
  }
  TellEnd(event, killed_by);
  phase_ = Phase::kEnded;
  env_.pacer.Remove(this);
  io_watch_.reset();
  time_watch_.reset();
  on_end_(info_.id);
}

bool Session::InputWanted() const {
  return !input_ended_ && !OutputPending() && reply_ == nullptr && unread_.empty() &&
         (phase_ == Phase::kHello || phase_ == Phase::kOpen);
}

// Waits for what the session needs to go on. A peer that is gone is reported in any case.
void Session::WatchSocket() {
  const uint32_t events = (InputWanted() ? EPOLLIN : 0u) | (OutputPending() ? EPOLLOUT : 0u);
  io_watch_ = env_.loop.OnIo(fd_, events, [this](uint32_t ready) { OnReady(ready); });
}

// Restarts the clock for what the peer owes, if it owes something.
void Session::WatchTime() {
  time_watch_.reset();
  if (phase_ == Phase::kEnded) return;
  if (OutputPending()) {
    time_watch_ = env_.loop.After(env_.limits.stall_timeout, [this] {
      Abort("the peer does not read what it is sent", SessionEnded::kTimeout);
    });
  } else if (phase_ == Phase::kHello) {
    time_watch_ = env_.loop.After(env_.limits.hello_timeout, [this] {
      Abort("the peer sent no hello", SessionEnded::kTimeout);
    });
  } else if (decoder_.InMessage()) {
    time_watch_ = env_.loop.After(env_.limits.stall_timeout, [this] {
      Abort("the peer does not finish its message", SessionEnded::kTimeout);
    });
  }
}

void Session::OnReady(uint32_t ready) {
  if ((ready & EPOLLERR) != 0) return Abort("the connection failed", SessionEnded::kDropped);
  readable_ = (ready & (EPOLLIN | EPOLLHUP)) != 0;
  Enlist();
}

// Has the pacer call Step(). Nothing else is waited for then.
void Session::Enlist() {
  io_watch_.reset();
  queued_ = true;
  env_.pacer.Add(this, peer_.uid);
}

// There is something for the subscription. Not while the peer still has to read what was sent last.
void Session::Wake() {
  if (queued_ || (OutputPending() && !subscription_->overrun())) return;
  Enlist();
}

bool Session::Step() {
  const LogFields fields = Fields();
  DoWork();
  if (phase_ == Phase::kEnded) return false;
  queued_ = HasWork();
  if (queued_) return true;
  WatchSocket();
  WatchTime();
  return false;
}

void Session::DoWork() {
  blocked_ = false;
  if (reply_ != nullptr) {
    if (output_bytes_ < kEnoughOutput) AddPart();
  } else if (!OutputPending() && !unread_.empty()) {
    Decode();
  } else if (readable_ && InputWanted()) {
    Read();
  } else if (subscription_ != nullptr && phase_ == Phase::kOpen) {
    AddNotifications();
  }
  readable_ = false;
  if (phase_ != Phase::kEnded) Write();
}

bool Session::HasWork() const {
  const bool to_tell =
      phase_ == Phase::kOpen && subscription_ != nullptr && subscription_->HasMore();
  return !blocked_ && (reply_ != nullptr || !unread_.empty() || to_tell);
}

void Session::Read() {
  std::array<char, kReadSize> buffer;
  const ssize_t size = recv(fd_, buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (size < 0) {
    if (errno == EAGAIN || errno == EINTR) return;
    return Abort(std::string("reading failed: ") + std::strerror(errno), SessionEnded::kDropped);
  }
  if (size == 0) {
    input_ended_ = true;
    return Abort(decoder_.InMessage() ? "the peer left within a message" : "",
                 SessionEnded::kDropped);
  }
  unread_.assign(buffer.data(), size);
  Decode();
}

// Decodes what was read, up to one message.
void Session::Decode() {
  std::string_view input = unread_;
  const FrameDecoder::Status status = decoder_.Consume(&input);
  unread_.erase(0, unread_.size() - input.size());
  if (status == FrameDecoder::Status::kBroken) return Abort("a message is not framed as agreed");
  if (phase_ == Phase::kHello && decoder_.message().size() > kMaxHello) {
    return Abort("the hello is too long");
  }
  AccountInput();
  if (env_.usage.input > env_.limits.all_input_bytes) {
    return Abort("the incomplete messages of all sessions together are too large");
  }
  if (status != FrameDecoder::Status::kNeedMore) {
    if (phase_ == Phase::kHello) {
      TakeHello();
    } else {
      TakeMessage(status == FrameDecoder::Status::kTooBig);
    }
    if (phase_ == Phase::kEnded) return;
    decoder_.message() = std::string();
    AccountInput();
  }
}

void Session::AccountInput() {
  const size_t now = decoder_.message().capacity();
  env_.usage.input += now - accounted_input_;
  accounted_input_ = now;
}

void Session::TakeHello() {
  const std::string fault = AcceptHello();
  if (fault.empty()) return env_.events.Publish(SessionBegan{info_.id, info_.user});
  ++env_.counters.in_bad_hellos;
  Abort(fault, SessionEnded::kBadHello);
}

// Reads the peer's hello; why it cannot be accepted, empty when it was.
std::string Session::AcceptHello() {
  PeerHello hello;
  std::string error;
  if (!ParseHello(decoder_.message(), env_.xml, &hello, &error)) return error;
  if (hello.session_id != 0) return "the peer's hello has a session-id";
  base_1_1_ = hello.Has(kBase11);
  if (!base_1_1_ && !hello.Has(kBase10)) return "the peer speaks no version of NETCONF";
  if (base_1_1_) decoder_.SetFraming(Framing::kChunked);
  phase_ = Phase::kOpen;
  return "";
}

void Session::TakeMessage(bool cut) {
  const bool congested = env_.usage.output > env_.limits.all_output_bytes ||
                         env_.pages.used > env_.limits.all_page_bytes;
  const Dispatcher::Conditions conditions{cut, base_1_1_, congested};
  Dispatcher::Reply reply =
      env_.dispatcher.Handle(std::move(decoder_.message()), conditions, info_);
  for (RpcCounters* counters : {&counters_, &env_.counters.rpcs}) {
    (reply.bad_rpc ? counters->in_bad_rpcs : counters->in_rpcs) += 1;
    counters->out_rpc_errors += reply.error_count;
  }
  // The message may have ended sessions, but never this one.
  if (reply.close_session) phase_ = Phase::kClosing;
  if (reply.subscription != nullptr) {
    subscription_ = std::move(reply.subscription);
    subscription_->SetOnMore([this] { Wake(); });
    info_.subscribed = true;
  }
  if (reply.stream == nullptr) return Send(std::move(reply.xml));
  reply_ = std::move(reply.stream);
}

void Session::AddPart() {
  std::string xml;
  const ReplyStream::Progress progress = reply_->Next(&xml);
  if (progress == ReplyStream::Progress::kFailed) {
    return Abort("the data of a reply that it did not read have changed too much meanwhile");
  }
  if (!xml.empty()) {
    Queue(FramePrefix(FramingOut(), xml.size()));
    Queue(std::move(xml));
  }
  if (progress != ReplyStream::Progress::kEnd) return;
  Queue(std::string(FrameSuffix(FramingOut())));
  counters_.out_rpc_errors += reply_->error_count();
  env_.counters.rpcs.out_rpc_errors += reply_->error_count();
  reply_.reset();
}

// What the subscription has, as far as it is enough for one turn.
void Session::AddNotifications() {
  if (subscription_->overrun()) return Abort("the peer does not read its notifications");
  if (!subscription_->HasMore() || output_bytes_ >= kEnoughOutput) return;
  std::string framed, message;
  do {
    subscription_->Next(&message);
    if (message.empty()) break;
    framed += FramePrefix(FramingOut(), message.size()) + message;
    framed += FrameSuffix(FramingOut());
    ++counters_.out_notifications;
    ++env_.counters.rpcs.out_notifications;
  } while (framed.size() < kEnoughOutput && subscription_->HasMore());
  Queue(std::move(framed));
  if (!subscription_->over()) return;
  subscription_.reset();
  info_.subscribed = false;
}

Framing Session::FramingOut() const {
  return phase_ != Phase::kHello && base_1_1_ ? Framing::kChunked : Framing::kEndOfMessage;
}

void Session::Send(std::string message) {
  Queue(FramePrefix(FramingOut(), message.size()));
  Queue(std::move(message));
  Queue(std::string(FrameSuffix(FramingOut())));
}

void Session::Queue(std::string piece) {
  if (piece.empty()) return;
  output_bytes_ += piece.size();
  env_.usage.output += piece.size();
  output_.push_back(std::move(piece));
}

// Writes what the socket takes.
void Session::Write() {
  while (OutputPending()) {
    const std::string& piece = output_.front();
    const ssize_t size = send(fd_, piece.data() + output_sent_, piece.size() - output_sent_,
                              MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN) {
        blocked_ = true;
        return;
      }
      // Who has taken leave need not wait for the answer.
      if (phase_ == Phase::kClosing) return Abort("", SessionEnded::kClosed);
      return Abort(std::string("writing failed: ") + std::strerror(errno), SessionEnded::kDropped);
    }
    output_sent_ += size;
    if (output_sent_ == piece.size()) {
      env_.usage.output -= piece.size();
      output_bytes_ -= piece.size();
      output_.pop_front();
      output_sent_ = 0;
    }
  }
  if (phase_ == Phase::kClosing && reply_ == nullptr) Abort("", SessionEnded::kClosed);
}

}  // namespace host
