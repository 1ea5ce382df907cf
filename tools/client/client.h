// A NETCONF session with the daemon, from the client's side. It blocks, as long as its patience
// lasts.
#ifndef TOOLS_CLIENT_CLIENT_H_
#define TOOLS_CLIENT_CLIENT_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/netconf/wire/framing.h"
#include "host/xml/generic_xml.h"
#include "tools/client/exit_codes.h"

namespace client {

// Why a command did not succeed.
struct Failure {
  ExitCode code = kSuccess;
  std::string message;
  std::vector<std::string> details;  // a line each, such as the errors of a refused edit
  bool access_denied = false;        // the user may not do this, whatever the request holds

  explicit operator bool() const { return code != kSuccess; }
};

class Client {
 public:
  // How long it waits for the daemon (-1: for ever), and a descriptor that ends the waiting when it
  // becomes readable (-1: none; not owned).
  struct Patience {
    std::chrono::milliseconds time = std::chrono::minutes(2);
    int end = -1;
  };

  explicit Client(Patience patience);
  Client() : Client(Patience()) {}
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client();

  // Connects to the socket at `path` and exchanges hellos.
  Failure Open(const std::string& path);
  // Carries out one operation, given as XML. On success `*reply` is the <rpc-reply> element and, if
  // `text` is not null, `*text` what was received.
  Failure Call(const std::string& operation, host::Tree* reply, std::string* text = nullptr);
  // The same for replies that are large, and read by the caller: `*text` is the reply, of which
  // nothing is known but that it is this one's and that it has no errors.
  Failure CallForText(const std::string& operation, std::string* text);

  // Waits for the next notification, after a call has subscribed to them.
  Failure Next(host::Tree* notification);

  // The number that the daemon gave the session.
  uint32_t session_id() const { return session_id_; }
  const host::GenericXml& xml() const { return *xml_; }

 private:
  Failure SendOperation(const std::string& operation, std::string* id);
  // The errors of the reply to message `id`; `*reply` is the reply.
  Failure ReadReply(const std::string& message, const std::string& id, host::Tree* reply) const;
  Failure Send(const std::string& message);
  Failure Receive(std::string* message);
  Failure WaitForInput() const;

  const Patience patience_;
  std::unique_ptr<host::GenericXml> xml_;
  int fd_ = -1;
  uint32_t session_id_ = 0;
  host::Framing framing_ = host::Framing::kEndOfMessage;
  host::FrameDecoder decoder_;
  std::string unread_;
  int last_id_ = 0;
};

// The content of the reply's <data>, or what its only child holds, as XML: `text` without envelope.
std::string InnerXml(const std::string& text, const std::string& element);

// An instance path without the prefixes, which a person does not need.
std::string ShortPath(const std::string& path);

}  // namespace client

#endif  // TOOLS_CLIENT_CLIENT_H_
