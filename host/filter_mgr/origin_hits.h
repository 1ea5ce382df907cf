// The hits of the groups in force by the origins of their entries, for parts of the process that
// show the configuration together with what it has hit.
#ifndef HOST_FILTER_MGR_ORIGIN_HITS_H_
#define HOST_FILTER_MGR_ORIGIN_HITS_H_

#include <functional>
#include <memory>

#include "host/filter_mgr/group_table.h"
#include "host/runtime/hits.h"

namespace host {

// `trusted` tells whether what was sent is made from the configuration. Both may go before the
// reading does: there is nothing more to tell once `*alive` is gone.
std::unique_ptr<OriginHitsReading> ReadOriginHits(const GroupTable& table,
                                                  std::function<bool()> trusted,
                                                  const std::weak_ptr<const void>& alive);

}  // namespace host

#endif  // HOST_FILTER_MGR_ORIGIN_HITS_H_
