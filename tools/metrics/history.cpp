// The hits of entries over the last minutes: see history.h.
#include "tools/metrics/history.h"

#include <algorithm>

namespace metrics {
namespace {

// Finds entries in the reading before. Both have them in the same order as long as nothing is
// configured, so the place behind the last one found is looked at first.
class Finder {
 public:
  explicit Finder(const std::vector<EntryHits>& entries) : entries_(entries) {}

  const EntryHits* Find(const EntryName& name) {
    if (next_ < entries_.size() && entries_[next_].name == name) return &entries_[next_++];
    if (places_.empty()) {
      for (size_t i = 0; i < entries_.size(); ++i) places_[entries_[i].name] = i;
    }
    const auto found = places_.find(name);
    if (found == places_.end()) return nullptr;
    next_ = found->second + 1;
    return &entries_[found->second];
  }

 private:
  const std::vector<EntryHits>& entries_;
  size_t next_ = 0;
  std::map<EntryName, size_t> places_;
};

}  // namespace

double History::Curve::Packets() const {
  double sum = 0;
  for (const Point& point : points) sum += point.packets;
  return sum;
}

std::vector<History::Increase> History::Increases(const std::vector<EntryHits>& hits) const {
  Finder finder(last_);
  std::vector<Increase> increases;
  for (const EntryHits& entry : hits) {
    if (entry.packets == 0) continue;
    const EntryHits* before = finder.Find(entry.name);
    const EntryHits none;
    if (before == nullptr) before = &none;  // it is new, or had hit nothing
    // A counter that began anew says nothing of the time in between.
    if (entry.packets <= before->packets || entry.bytes < before->bytes) continue;
    increases.push_back({&entry, static_cast<double>(entry.packets - before->packets),
                         static_cast<double>(entry.bytes - before->bytes)});
  }
  return increases;
}

void History::Add(const std::vector<EntryHits>& hits, Clock::time_point now) {
  const double seconds = std::chrono::duration<double>(now - last_time_).count();
  if (begun_ && seconds > 0) {
    std::vector<Increase> increases = Increases(hits);
    const size_t most = std::min(increases.size(), kCurves / 2);
    std::partial_sort(increases.begin(), increases.begin() + static_cast<long>(most),
                      increases.end(),
                      [](const Increase& a, const Increase& b) { return a.packets > b.packets; });
    for (size_t i = 0; i < increases.size(); ++i) {
      const Increase& increase = increases[i];
      auto curve = curves_.find(increase.hits->name);
      if (curve == curves_.end()) {
        if (i >= most) continue;
        curve = curves_.emplace(increase.hits->name, Curve()).first;
      }
      curve->second.hits = *increase.hits;
      curve->second.points.push_back({now, seconds, increase.packets, increase.bytes});
    }
    for (auto& [name, curve] : curves_) {
      if (curve.points.back().time != now) curve.points.push_back({now, seconds, 0, 0});
    }
  }
  begun_ = true;
  last_ = hits;
  last_time_ = now;
  DropIdle(now);
}

void History::DropIdle(Clock::time_point now) {
  for (auto at = curves_.begin(); at != curves_.end();) {
    std::deque<Point>& points = at->second.points;
    while (!points.empty() && now - points.front().time > kWindow) points.pop_front();
    at = at->second.Packets() > 0 ? std::next(at) : curves_.erase(at);
  }
  while (curves_.size() > kCurves) {
    curves_.erase(std::min_element(
        curves_.begin(), curves_.end(),
        [](const auto& a, const auto& b) { return a.second.Packets() < b.second.Packets(); }));
  }
}

std::vector<BusyEntry> History::Busiest(size_t most, Clock::time_point now) const {
  std::vector<std::pair<double, const Curve*>> order;
  for (const auto& [name, curve] : curves_) order.emplace_back(-curve.Packets(), &curve);
  std::sort(order.begin(), order.end());
  if (order.size() > most) order.resize(most);
  std::vector<BusyEntry> busiest;
  for (const auto& [packets, curve] : order) {
    BusyEntry entry;
    entry.hits = curve->hits;
    for (const Point& point : curve->points) {
      if (now - point.time > kWindow) continue;
      entry.curve.emplace_back(point.time, point.packets / point.seconds);
      entry.packets_per_s = point.packets / point.seconds;
      entry.bytes_per_s = point.bytes / point.seconds;
    }
    busiest.push_back(std::move(entry));
  }
  return busiest;
}

}  // namespace metrics
