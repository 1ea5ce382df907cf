// Work in short turns: see pacer.h.
#include "host/netconf/server/pacer.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace host {
namespace {

constexpr std::chrono::milliseconds kTurn{1};

}  // namespace

void Pacer::Add(Task* task, uid_t user) {
  auto queue = std::find_if(users_.begin(), users_.end(),
                            [user](const UserQueue& known) { return known.user == user; });
  if (queue == users_.end()) queue = users_.insert(users_.end(), {user, {}});
  queue->tasks.push_back(task);
  if (turn_ == nullptr) turn_ = loop_.Soon([this] { Run(); });
}

void Pacer::Remove(Task* task) {
  for (UserQueue& queue : users_) {
    queue.tasks.erase(std::remove(queue.tasks.begin(), queue.tasks.end(), task), queue.tasks.end());
  }
}

void Pacer::Run() {
  const auto end = std::chrono::steady_clock::now() + kTurn;
  do {
    RunStep();
  } while (!users_.empty() && std::chrono::steady_clock::now() < end);
  turn_ = users_.empty() ? nullptr : loop_.Soon([this] { Run(); });
}

// The first user's first task has its step; then both are the last.
void Pacer::RunStep() {
  UserQueue queue = std::move(users_.front());
  users_.pop_front();
  if (queue.tasks.empty()) return;
  Task* task = queue.tasks.front();
  queue.tasks.pop_front();
  const uid_t user = queue.user;
  if (!queue.tasks.empty()) users_.push_back(std::move(queue));
  // The step may add and remove tasks, itself included.
  if (task->Step()) Add(task, user);
}

}  // namespace host
