// How the daemon is, as operational data (yang/acl-app-status.yang): a line per part, and whether
// the stored configuration is in doubt.
#ifndef HOST_QZCONFD_DAEMON_STATE_H_
#define HOST_QZCONFD_DAEMON_STATE_H_

#include <libyang/libyang.h>

#include <cstdint>
#include <string>

#include "host/cdb/datastore.h"
#include "host/runtime/status_board.h"

namespace host {

// The tree of <daemon>; the caller frees it. `held` is why filters are held back, empty when they
// are not; `started_us` is when the process was, in microseconds since 1970. Null, with the reason
// in the log, when it cannot be built.
lyd_node* BuildDaemonState(const Datastore& datastore, const StatusBoard& board,
                           const std::string& held, int64_t started_us);

// The line about the stored configuration, for the board.
StatusLine StorageLine(const Datastore& datastore);

}  // namespace host

#endif  // HOST_QZCONFD_DAEMON_STATE_H_
