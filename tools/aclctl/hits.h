// What the entries in force have hit, for commands that show it with the configuration.
#ifndef TOOLS_ACLCTL_HITS_H_
#define TOOLS_ACLCTL_HITS_H_

#include <functional>

#include "host/runtime/hits.h"
#include "tools/aclctl/command.h"

namespace aclctl {

// Calls `fetch`, which reads running, and fetches the hits of the same moment: again where a commit
// came between. `*why` says why there are no hits that are surely those of what was read; empty
// where there are.
Failure FetchWithHits(Client* client, const std::function<Failure()>& fetch,
                      host::HitsByOrigin* hits, std::string* why);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_HITS_H_
