// The content of a reply that may be large, made in parts.
#ifndef HOST_NETCONF_REPLY_DATA_STREAM_H_
#define HOST_NETCONF_REPLY_DATA_STREAM_H_

#include <string>

#include "host/netconf/message/rpc_error.h"

namespace host {

class DataStream {
 public:
  enum class Progress {
    kMore,    // there may be more
    kEnd,     // that was all
    kFailed,  // the rest cannot be given any more
  };

  virtual ~DataStream() = default;
  // Whether the content stands in the element <data>.
  virtual bool in_data() const { return true; }
  // To be called once, before Next(). Decides what the stream shows; returns why that is
  // impossible, otherwise nothing.
  virtual RpcErrors Begin() = 0;
  // Appends the next part, which may be empty, to `*xml`. Takes some tenths of a millisecond unless
  // a state provider or an XPath expression takes longer.
  virtual Progress Next(std::string* xml) = 0;
};

}  // namespace host

#endif  // HOST_NETCONF_REPLY_DATA_STREAM_H_
