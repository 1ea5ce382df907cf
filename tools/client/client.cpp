// A NETCONF session from the client's side: see client.h.
#include "tools/client/client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <string_view>

#include "host/netconf/wire/hello.h"
#include "host/netconf/wire/listener.h"
#include "host/netconf/wire/unreachable.h"
#include "host/xml/xml_text.h"

namespace client {
namespace {

std::string NetconfChildText(const lyd_node* parent, const char* name) {
  const lyd_node* child = host::FindNetconfChild(parent, name);
  return child == nullptr ? "" : std::string(host::XmlText(child));
}

Failure ReadErrors(const lyd_node* reply) {
  Failure failure{kRefused, "the daemon refused the request", {}};
  for (const lyd_node* child = lyd_child(reply); child != nullptr; child = child->next) {
    if (host::XmlName(child) != "rpc-error") continue;
    const std::string path = ShortPath(NetconfChildText(child, "error-path"));
    std::string line = path.empty() ? "" : path + ": ";
    const std::string tag = NetconfChildText(child, "error-tag");
    line += NetconfChildText(child, "error-message") + " (" + tag + ")";
    failure.access_denied |= tag == "access-denied";
    failure.details.push_back(line);
  }
  if (failure.details.empty()) return {};
  return failure;
}

// Takes what the daemon sends until it ends the session, for a second, or until `stop` is readable.
void AwaitEnd(int fd, int stop) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  char ignored[4096];
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    pollfd ready[] = {{fd, POLLIN, 0}, {stop, POLLIN, 0}};
    if (left.count() <= 0 || poll(ready, 2, static_cast<int>(left.count())) <= 0) return;
    if (ready[1].revents != 0) return;
    if (recv(fd, ignored, sizeof(ignored), 0) <= 0) return;
  }
}

}  // namespace

Client::Client(Patience patience)
    : patience_(patience),
      xml_(host::GenericXml::Create()),
      decoder_(std::numeric_limits<size_t>::max() / 2) {}

Client::~Client() {
  // So that the daemon takes the session for ended, not for broken off.
  if (session_id_ != 0) {
    const Failure failure = Send("<rpc message-id=\"" + std::to_string(++last_id_) + "\" xmlns=\"" +
                                 host::kNetconfNamespace + "\"><close-session/></rpc>");
    if (!failure) AwaitEnd(fd_, patience_.end);
  }
  if (fd_ >= 0) close(fd_);
}

Failure Client::Open(const std::string& path) {
  fd_ = host::ConnectTo(path);
  if (fd_ < 0) {
    return {kUnreachable, host::WhyUnreachable(path, errno), {}};
  }
  // The daemon speaks first. It says in place of its hello why there is no session.
  std::string message, error;
  if (Failure failure = Receive(&message)) return failure;
  const host::Tree refusal = xml_->Parse(message, &error);
  if (refusal != nullptr && host::XmlName(refusal.get()) == "rpc-reply") {
    Failure failure = ReadErrors(refusal.get());
    failure.message = "the daemon refuses the session";
    return failure;
  }
  host::PeerHello hello;
  if (!host::ParseHello(message, *xml_, &hello, &error) || !hello.Has(host::kBase11)) {
    return {kProtocol, "what answers at " + path + " is not the daemon: " + error, {}};
  }
  if (Failure failure = Send(host::ClientHello({host::kBase11}))) return failure;
  session_id_ = hello.session_id;
  framing_ = host::Framing::kChunked;
  decoder_.SetFraming(framing_);
  return {};
}

Failure Client::Call(const std::string& operation, host::Tree* reply, std::string* text) {
  std::string id, message;
  if (Failure failure = SendOperation(operation, &id)) return failure;
  if (Failure failure = Receive(&message)) return failure;
  Failure failure = ReadReply(message, id, reply);
  if (text != nullptr) *text = std::move(message);
  return failure;
}

Failure Client::CallForText(const std::string& operation, std::string* text) {
  std::string id;
  if (Failure failure = SendOperation(operation, &id)) return failure;
  if (Failure failure = Receive(text)) return failure;
  // Data come without errors or not at all. Within them the tags would be there as texts alone,
  // with their brackets escaped.
  const size_t end = text->find('>');
  const bool plain = end != std::string::npos && text->find("<data") != std::string::npos &&
                     text->compare(0, 10, "<rpc-reply") == 0 &&
                     std::string_view(*text).substr(0, end).find("message-id=\"" + id + '"') !=
                         std::string_view::npos &&
                     text->find("rpc-error>") == std::string::npos;
  host::Tree reply;
  return plain ? Failure() : ReadReply(*text, id, &reply);
}

Failure Client::SendOperation(const std::string& operation, std::string* id) {
  *id = std::to_string(++last_id_);
  return Send("<rpc message-id=\"" + *id + "\" xmlns=\"" + host::kNetconfNamespace + "\">" +
              operation + "</rpc>");
}

Failure Client::ReadReply(const std::string& message, const std::string& id,
                          host::Tree* reply) const {
  std::string error;
  *reply = xml_->Parse(message, &error);
  if (*reply == nullptr || host::XmlName(reply->get()) != "rpc-reply" ||
      host::XmlAttribute(reply->get(), "message-id") != id) {
    return {kProtocol, "the daemon's answer cannot be understood: " + error, {}};
  }
  return ReadErrors(reply->get());
}

Failure Client::Next(host::Tree* notification) {
  std::string message, error;
  if (Failure failure = Receive(&message)) return failure;
  *notification = xml_->Parse(message, &error);
  if (*notification != nullptr && host::XmlName(notification->get()) == "notification") return {};
  return {kProtocol, "what the daemon sent is no notification: " + error, {}};
}

Failure Client::Send(const std::string& message) {
  const std::string framed = host::FramePrefix(framing_, message.size()) + message +
                             std::string(host::FrameSuffix(framing_));
  for (size_t sent = 0; sent < framed.size();) {
    const ssize_t size = send(fd_, framed.data() + sent, framed.size() - sent, MSG_NOSIGNAL);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) {
      return {kProtocol,
              std::string("the connection to the daemon broke: ") + std::strerror(errno),
              {}};
    }
    sent += size;
  }
  return {};
}

Failure Client::Receive(std::string* message) {
  while (true) {
    std::string_view input = unread_;
    const host::FrameDecoder::Status status = decoder_.Consume(&input);
    unread_.erase(0, unread_.size() - input.size());
    if (status == host::FrameDecoder::Status::kMessage) {
      *message = std::move(decoder_.message());
      return {};
    }
    if (status != host::FrameDecoder::Status::kNeedMore) {
      return {kProtocol, "the daemon's answer is not framed as agreed", {}};
    }
    if (Failure failure = WaitForInput()) return failure;
    char buffer[65536];
    const ssize_t size = recv(fd_, buffer, sizeof(buffer), 0);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return {kProtocol, "the daemon ended the session", {}};
    unread_.assign(buffer, size);
  }
}

Failure Client::WaitForInput() const {
  pollfd ready[] = {{fd_, POLLIN, 0}, {patience_.end, POLLIN, 0}};
  if (poll(ready, 2, static_cast<int>(patience_.time.count())) == 0) {
    return {kProtocol, "the daemon does not answer", {}};
  }
  if (ready[1].revents != 0) return {kProtocol, "it was not waited for the answer", {}};
  return {};
}

std::string ShortPath(const std::string& path) {
  std::string result;
  char quote = 0;
  for (const char c : path) {
    if (quote == 0 && c == ':') {
      result.erase(result.find_last_of("/[") + 1);
      continue;
    }
    if (c == '\'' || c == '"') quote = quote == 0 ? c : quote == c ? 0 : quote;
    result += c;
  }
  return result;
}

std::string InnerXml(const std::string& text, const std::string& element) {
  const size_t open = text.find("<" + element);
  const size_t start = open == std::string::npos ? open : text.find('>', open);
  const size_t end = text.rfind("</" + element);
  if (start == std::string::npos || end == std::string::npos || end <= start) return "";
  return text.substr(start + 1, end - start - 1);
}

}  // namespace client
