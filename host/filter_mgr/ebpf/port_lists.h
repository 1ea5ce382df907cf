// The numbers of the ports that lists of ports name, each once. Runs of entries share their list.
#ifndef HOST_FILTER_MGR_EBPF_PORT_LISTS_H_
#define HOST_FILTER_MGR_EBPF_PORT_LISTS_H_

#include <algorithm>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "platform/limid/limid.h"

namespace host {

class PortLists {
 public:
  using NumberOf = std::function<bool(limid_t, uint32_t*)>;

  // `number_of` answers false for a port that is unknown (reported by itself) or has no number.
  explicit PortLists(NumberOf number_of) : number_of_(std::move(number_of)) {}

  const std::vector<uint32_t>& Find(const std::list<limid_t>& list) {
    if (&list == last_) return numbers_;
    last_ = &list;
    numbers_.clear();
    for (const limid_t id : list) {
      const auto [it, is_new] = known_.try_emplace(id);
      if (is_new) {
        uint32_t number = 0;
        if (number_of_(id, &number)) it->second = number;
      }
      if (it->second &&
          std::find(numbers_.begin(), numbers_.end(), *it->second) == numbers_.end()) {
        numbers_.push_back(*it->second);
      }
    }
    return numbers_;
  }

 private:
  NumberOf number_of_;
  std::map<limid_t, std::optional<uint32_t>> known_;
  const std::list<limid_t>* last_ = nullptr;
  std::vector<uint32_t> numbers_;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_PORT_LISTS_H_
