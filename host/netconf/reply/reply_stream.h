// A reply whose data are made in parts: from its start tag to its end tag.
#ifndef HOST_NETCONF_REPLY_REPLY_STREAM_H_
#define HOST_NETCONF_REPLY_REPLY_STREAM_H_

#include <cstdint>
#include <memory>
#include <string>

#include "host/netconf/peer/peer_log.h"
#include "host/netconf/reply/data_stream.h"

struct ly_ctx;

namespace host {

// What stands around the data.
struct ReplyFrame {
  std::string start;  // of <rpc-reply>
  std::string end;
  std::string child_namespace;  // attribute that a child of it needs; may be empty
};

// The reply that consists of errors.
std::string PrintErrorReply(const ReplyFrame& frame, const RpcErrors& errors,
                            const ly_ctx* context);

class ReplyStream {
 public:
  using Progress = DataStream::Progress;

  // `name` is how `log`, that of the user, calls the operation and who asked for it.
  ReplyStream(ReplyFrame frame, std::unique_ptr<DataStream> data, const ly_ctx* context,
              std::string name, std::shared_ptr<PeerLog> log)
      : frame_(std::move(frame)),
        data_(std::move(data)),
        context_(context),
        name_(std::move(name)),
        log_(std::move(log)) {}
  ReplyStream(const ReplyStream&) = delete;
  ReplyStream& operator=(const ReplyStream&) = delete;
  ~ReplyStream();

  // Appends the next part, which may be empty, to `*xml`.
  Progress Next(std::string* xml);
  // Errors that the reply has. Known after the first part.
  uint32_t error_count() const { return error_count_; }

 private:
  const ReplyFrame frame_;
  const std::unique_ptr<DataStream> data_;
  const ly_ctx* context_;
  const std::string name_;
  const std::shared_ptr<PeerLog> log_;
  bool begun_ = false;
  bool ended_ = false;
  uint32_t error_count_ = 0;
  size_t size_ = 0;
};

}  // namespace host

#endif  // HOST_NETCONF_REPLY_REPLY_STREAM_H_
