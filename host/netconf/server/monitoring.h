// The server's own state: ietf-netconf-monitoring (RFC 6022) and ietf-yang-library (RFC 8525).
#ifndef HOST_NETCONF_SERVER_MONITORING_H_
#define HOST_NETCONF_SERVER_MONITORING_H_

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "host/cdb/schema/yang_tree.h"
#include "host/netconf/operations/locks.h"

namespace host {

// What is counted for each session, and for all of them together (RFC 6022 section 2.1.5).
struct RpcCounters {
  uint32_t in_rpcs = 0;
  uint32_t in_bad_rpcs = 0;
  uint32_t out_rpc_errors = 0;
  uint32_t out_notifications = 0;
};

struct ServerCounters {
  time_t started = 0;
  uint32_t in_bad_hellos = 0;
  uint32_t in_sessions = 0;
  uint32_t dropped_sessions = 0;
  RpcCounters rpcs;
};

struct SessionState {
  uint32_t id = 0;
  std::string user;
  time_t login = 0;
  RpcCounters rpcs;
};

struct ServerState {
  const std::vector<std::string>& capabilities;
  const Locks& locks;
  const ServerCounters& counters;
  std::vector<SessionState> sessions;
};

// The netconf-state tree; null when the schema does not take it.
Tree BuildNetconfState(const ly_ctx* context, const ServerState& state);

// The tree below the top-level node `name` ("yang-library" or "modules-state") of the schema's own
// description; null when there is none.
Tree BuildYangLibrary(const ly_ctx* context, const char* name);

}  // namespace host

#endif  // HOST_NETCONF_SERVER_MONITORING_H_
