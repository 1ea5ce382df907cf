// Answers the operation get-hits of module acl-app-filters: what all entries in force have hit, as
// text. No tree is built, for this is asked again and again, of tens of thousands of entries.
#ifndef HOST_FILTER_MGR_HITS_ANSWER_H_
#define HOST_FILTER_MGR_HITS_ANSWER_H_

#include <memory>

#include "host/filter_mgr/group_table.h"
#include "host/runtime/state_providers.h"

struct lyd_node;

namespace host {

// `input` is the operation's. A group is told as it is when its turn comes. `table` may go before
// the answer does: there is nothing more to tell once `*alive` is gone.
std::unique_ptr<StateProviders::TextPieces> AnswerHits(const lyd_node* input,
                                                       const GroupTable& table,
                                                       const std::weak_ptr<const void>& alive);

}  // namespace host

#endif  // HOST_FILTER_MGR_HITS_ANSWER_H_
