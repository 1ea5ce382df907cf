#include "host/runtime/entry_origins.h"

#include <algorithm>

namespace host {

void GroupOrigins::Append(std::string interface, std::string profile,
                          std::shared_ptr<const AcePriorities> priorities) {
  if (priorities->empty()) return;
  runs_.push_back({std::move(interface), std::move(profile), std::move(priorities), size()});
}

EntryOrigin GroupOrigins::Of(size_t position) const {
  const auto run = std::partition_point(runs_.begin(), runs_.end(),
                                        [=](const Run& r) { return r.end() <= position; });
  if (run == runs_.end()) return {};
  return {&run->interface, &run->profile, (*run->priorities)[position - run->first]};
}

}  // namespace host
