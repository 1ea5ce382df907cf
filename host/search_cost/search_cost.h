// What a group's search costs a frame.
#ifndef HOST_SEARCH_COST_SEARCH_COST_H_
#define HOST_SEARCH_COST_SEARCH_COST_H_

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

namespace host {

// Of the port where it costs most.
struct SearchCost {
  struct Tables {
    double mean = 0;  // hash tables looked into, over sample frames
    uint32_t worst = 0;
  };

  std::string port;
  std::optional<Tables> tables;  // none where entries are compared one after the other
  uint32_t entries_worst = 0;    // entries that a frame is compared with

  // The mean as people and programs read it, such as "3.2". `tables` must have a value.
  std::string MeanText() const {
    const auto tenths = std::llround(tables->mean * 10);
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
  }
  // Whether `other` costs more.
  bool operator<(const SearchCost& other) const {
    const Tables a = tables.value_or(Tables()), b = other.tables.value_or(Tables());
    if (a.worst != b.worst) return a.worst < b.worst;
    return a.mean != b.mean ? a.mean < b.mean : entries_worst < other.entries_worst;
  }
};

// How many sample frames tell the cost of a search over so many entries.
inline uint32_t SearchSamples(size_t entries) {
  constexpr size_t kLeast = 16, kMost = 1024;
  return static_cast<uint32_t>(entries < kLeast ? kLeast : entries > kMost ? kMost : entries);
}

}  // namespace host

#endif  // HOST_SEARCH_COST_SEARCH_COST_H_
