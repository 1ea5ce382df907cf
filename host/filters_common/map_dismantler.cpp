#include "host/filters_common/map_dismantler.h"

#include <sys/resource.h>

#include <iterator>
#include <utility>

#include "host/runtime/worker_thread.h"

namespace FiltersCommon {
namespace {

void Append(MapDismantler::Nodes* from, MapDismantler::Nodes* to) {
  if (to->empty()) {
    to->swap(*from);
  } else {
    to->insert(to->end(), std::make_move_iterator(from->begin()),
               std::make_move_iterator(from->end()));
  }
  from->clear();
}

}  // namespace

MapDismantler::~MapDismantler() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

bool MapDismantler::Add(Entries* map) {
  if (!thread_.joinable()) {
    thread_ = host::StartWorker([this] { Run(); });
    if (!thread_.joinable()) return false;
  }
  {
    const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
    if (!lock) return false;
    size_ += map->size();
    maps_.emplace_back().swap(*map);
  }
  changed_.notify_one();
  return true;
}

void MapDismantler::Take(Nodes* nodes) {
  const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
  if (!lock || ready_.empty()) return;
  size_ -= ready_.size();
  Append(&ready_, nodes);
}

MapDismantler::Entries MapDismantler::TakeBack() {
  Entries map;
  const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
  if (!lock || maps_.empty()) return map;
  map.swap(maps_.back());
  maps_.pop_back();
  size_ -= map.size();
  return map;
}

void MapDismantler::Run() {
  // Whoever has something to do goes first: a commit that waits for its processor gains nothing.
  // (On Linux this is of the thread alone, see setpriority(2).)
  constexpr int kNice = 10;
  setpriority(PRIO_PROCESS, 0, kNice);
  Nodes some;
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || !maps_.empty(); });
    Entries map;
    if (!ending_) {
      map.swap(maps_.front());
      maps_.pop_front();
      ready_.reserve(ready_.size() + map.size());
    }
    while (!ending_ && !map.empty()) {
      lock.unlock();
      while (some.size() < kAtOnce && !map.empty())
        some.push_back(map.extract(std::prev(map.end())));
      lock.lock();
      Append(&some, &ready_);
    }
    if (!map.empty()) maps_.push_front(std::move(map));
    if (ending_) return;
  }
}

}  // namespace FiltersCommon
