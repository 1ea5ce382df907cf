// Replies in parts: see reply_stream.h.
#include "host/netconf/reply/reply_stream.h"

namespace host {

std::string PrintErrorReply(const ReplyFrame& frame, const RpcErrors& errors,
                            const ly_ctx* context) {
  std::string xml = frame.start;
  for (const RpcError& error : errors) xml += PrintRpcError(error, context);
  return xml + frame.end;
}

ReplyStream::~ReplyStream() {
  if (!ended_) log_->Write(LogLevel::kWarning, "netconf: %s not read to its end", name_.c_str());
}

ReplyStream::Progress ReplyStream::Next(std::string* xml) {
  const size_t before = xml->size();
  if (!begun_) {
    begun_ = true;
    const RpcErrors errors = data_->Begin();
    if (!errors.empty()) {
      ended_ = true;
      error_count_ = errors.size();
      *xml += PrintErrorReply(frame_, errors, context_);
      log_->Write(LogLevel::kWarning, "netconf: %s refused: %s", name_.c_str(),
                  errors.front().message.c_str());
      return Progress::kEnd;
    }
    *xml += frame_.start;
    if (data_->in_data()) *xml += "<data" + frame_.child_namespace + ">";
  }
  const Progress progress = data_->Next(xml);
  if (progress == Progress::kEnd) {
    ended_ = true;
    if (data_->in_data()) *xml += "</data>";
    *xml += frame_.end;
  }
  size_ += xml->size() - before;
  // Who watches reads every few seconds.
  if (ended_) log_->Write(LogLevel::kDebug, "netconf: %s done, %zu bytes", name_.c_str(), size_);
  return progress;
}

}  // namespace host
