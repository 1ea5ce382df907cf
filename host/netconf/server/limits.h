// What the server grants its peers. Together the limits bound the memory that all peers can make
// the process hold, and the time that one can occupy without making progress.
#ifndef HOST_NETCONF_SERVER_LIMITS_H_
#define HOST_NETCONF_SERVER_LIMITS_H_

#include <chrono>
#include <cstddef>

namespace host {

struct NetconfLimits {
  size_t sessions = 512;
  // Of which those who may only read leave so many to the others.
  size_t reserved_sessions = 32;
  // One user who may only read has so many, so that some leave room to the others.
  size_t user_sessions = 64;
  // One message. A whole configuration of 65,536 entries in each group takes some 80 MB.
  size_t message_bytes = size_t{128} << 20;
  // The same for those who may only read.
  size_t reader_message_bytes = size_t{1} << 20;
  // Incomplete messages of all sessions; the session that goes beyond it ends.
  size_t all_input_bytes = size_t{256} << 20;
  // Printed parts of replies that their peers have not read. Large replies are printed as they are
  // read. Beyond it requests for data are refused (resource-denied).
  size_t all_output_bytes = size_t{128} << 20;
  // Pages (tree_pages.h) of the replies that are under way. A page that needs a copy beyond it is
  // lost, and the sessions that come to need it end.
  size_t all_page_bytes = size_t{256} << 20;
  int depth = 64;  // nesting of elements
  // To the peer's hello; without a byte of a message that has begun; without reading from a reply.
  // To the name of a peer's account; then its number has to do until the name is known.
  std::chrono::milliseconds name_timeout{1000};
  std::chrono::seconds hello_timeout{30};
  std::chrono::seconds stall_timeout{60};
};

}  // namespace host

#endif  // HOST_NETCONF_SERVER_LIMITS_H_
