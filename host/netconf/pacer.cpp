// Long work in short turns: see pacer.h.
#include "host/netconf/pacer.h"

#include <algorithm>
#include <chrono>

namespace host {
namespace {

constexpr std::chrono::milliseconds kTurn{1};

}  // namespace

void Pacer::Add(Task* task) {
  if (std::find(tasks_.begin(), tasks_.end(), task) != tasks_.end()) return;
  tasks_.push_back(task);
  if (turn_ == nullptr) turn_ = loop_.Soon([this] { Run(); });
}

void Pacer::Remove(Task* task) {
  tasks_.erase(std::remove(tasks_.begin(), tasks_.end(), task), tasks_.end());
}

void Pacer::Run() {
  const auto end = std::chrono::steady_clock::now() + kTurn;
  while (!tasks_.empty()) {
    Task* task = tasks_.front();
    tasks_.pop_front();
    // A step may remove tasks, also its own.
    if (task->Step()) tasks_.push_back(task);
    if (std::chrono::steady_clock::now() >= end) break;
  }
  turn_ = tasks_.empty() ? nullptr : loop_.Soon([this] { Run(); });
}

}  // namespace host
