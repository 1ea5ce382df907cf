// What the page shows, as JSON: page/page.js reads it.
#ifndef TOOLS_METRICS_PAGE_STATE_H_
#define TOOLS_METRICS_PAGE_STATE_H_

#include <string>

#include "tools/metrics/snapshot.h"

namespace metrics {

// The state as it was read last, with what is long cut to what a person would look at.
std::string PageState(const Snapshot& snapshot, double interval_s);

}  // namespace metrics

#endif  // TOOLS_METRICS_PAGE_STATE_H_
