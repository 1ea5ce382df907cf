// A small HTTP server for what is only to be looked at: GET and HEAD of a few paths, in one thread
// of its own. Peers are not trusted: their number, the size of their requests and the time that
// they take are bounded, and what a page of another site may do with the answers is nothing.
#ifndef TOOLS_METRICS_HTTP_SERVER_H_
#define TOOLS_METRICS_HTTP_SERVER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

struct MHD_Daemon;

namespace metrics {

struct Content {
  const char* type;                         // MIME type
  std::shared_ptr<const std::string> body;  // may be shared by many answers
};

class HttpServer {
 public:
  // Makes the content of a path, in the server's thread.
  using Make = std::function<Content()>;

  // Listens at a numeric address; port 0 takes one that is free. Null with the reason in `*error`.
  static std::unique_ptr<HttpServer> Start(const std::string& address, uint16_t port,
                                           std::map<std::string, Make> paths, std::string* error);
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  // Ends all connections.
  ~HttpServer();

  // Where the server is reached, such as "http://127.0.0.1:9830/".
  const std::string& url() const { return url_; }

  // What there is to answer to a request.
  struct Request {
    std::string method, path;
    std::string host;       // empty: none is given
    bool has_body = false;  // or says that one follows
  };
  struct Answer {
    unsigned int status;
    Content content;
  };
  Answer AnswerTo(const Request& request) const;

 private:
  HttpServer(std::map<std::string, Make> paths, bool loopback)
      : paths_(std::move(paths)), loopback_(loopback) {}

  const std::map<std::string, Make> paths_;
  const bool loopback_;  // it listens for this machine alone
  std::string url_;
  MHD_Daemon* daemon_ = nullptr;
};

}  // namespace metrics

#endif  // TOOLS_METRICS_HTTP_SERVER_H_
