// What became of the commits, as operational data (module acl-app-commits).
#ifndef HOST_QZCONFD_COMMIT_STATE_H_
#define HOST_QZCONFD_COMMIT_STATE_H_

#include <cstdint>

#include "host/qzconfd/commit_outcomes.h"

struct ly_ctx;
struct lyd_node;

namespace host {

// Builds the tree below the top-level node "commits"; `running` is the last commit's id. The caller
// frees it with lyd_free_all(). Null, with a log line, when the schema does not take it.
lyd_node* BuildCommitState(const ly_ctx* context, uint64_t running, const CommitOutcomes& outcomes);

}  // namespace host

#endif  // HOST_QZCONFD_COMMIT_STATE_H_
