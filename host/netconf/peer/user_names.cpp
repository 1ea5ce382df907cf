// Names of accounts: see user_names.h.
#include "host/netconf/peer/user_names.h"

#include <pwd.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "host/runtime/worker_thread.h"

namespace host {
namespace {

constexpr std::chrono::minutes kFresh{5};
constexpr size_t kMostNames = 4096;  // kept; with more all are forgotten

std::string AskNameService(uid_t user) {
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 16384> buffer;
  const int result = getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
  return result == 0 && found != nullptr ? found->pw_name : "";
}

}  // namespace

struct UserNames::Shared {
  ~Shared() {
    if (event_fd >= 0) close(event_fd);
  }

  // What the thread does.
  void Serve() {
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
      changed.wait(lock, [this] { return ended || !asked.empty(); });
      if (ended) return;
      const uid_t user = asked.front();
      asked.pop_front();
      lock.unlock();
      std::string name = look_up(user);
      lock.lock();
      answers.emplace_back(user, std::move(name));
      eventfd_write(event_fd, 1);
    }
  }

  LookUp look_up;
  int event_fd = -1;
  std::mutex mutex;  // guards what follows
  std::condition_variable changed;
  bool ended = false;
  std::deque<uid_t> asked;
  std::vector<std::pair<uid_t, std::string>> answers;
};

std::unique_ptr<UserNames> UserNames::Create(EventLoop& loop, LookUp look_up, OnName on_name,
                                             std::string* error) {
  auto shared = std::make_shared<Shared>();
  shared->look_up = look_up ? std::move(look_up) : AskNameService;
  shared->event_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  std::unique_ptr<UserNames> names(new UserNames(shared, std::move(on_name)));
  if (shared->event_fd >= 0) {
    names->watch_ = loop.OnIo(shared->event_fd, EPOLLIN,
                              [names = names.get()](uint32_t) { names->TakeAnswers(); });
  }
  if (names->watch_ == nullptr) {
    *error = std::string("cannot wait for the names of accounts: ") + std::strerror(errno);
    return nullptr;
  }
  std::string why;
  std::thread thread = StartWorker([shared] { shared->Serve(); }, &why);
  if (!thread.joinable()) {
    *error = "cannot start the thread that looks up accounts: " + why;
    return nullptr;
  }
  thread.detach();
  return names;
}

UserNames::UserNames(std::shared_ptr<Shared> shared, OnName on_name)
    : shared_(std::move(shared)), on_name_(std::move(on_name)) {}

UserNames::~UserNames() {
  watch_.reset();
  const std::lock_guard<std::mutex> lock(shared_->mutex);
  shared_->ended = true;
  shared_->changed.notify_one();
}

std::optional<std::string> UserNames::Find(uid_t user) {
  const auto now = std::chrono::steady_clock::now();
  const auto found = known_.find(user);
  if (found != known_.end() && now - found->second.asked < kFresh) return found->second.name;
  if (known_.size() >= kMostNames) known_.clear();
  Known& known = known_[user];
  known.asked = now;
  const std::lock_guard<std::mutex> lock(shared_->mutex);
  shared_->asked.push_back(user);
  shared_->changed.notify_one();
  return known.name;
}

void UserNames::TakeAnswers() {
  eventfd_t count = 0;
  eventfd_read(shared_->event_fd, &count);
  std::vector<std::pair<uid_t, std::string>> answers;
  {
    const std::lock_guard<std::mutex> lock(shared_->mutex);
    answers.swap(shared_->answers);
  }
  for (auto& [user, name] : answers) {
    std::optional<std::string>& known = known_[user].name;
    if (name.empty()) name = known.value_or(NumberAsName(user));
    const bool is_new = known != name;
    known = name;
    if (is_new) on_name_(user, name);
  }
}

}  // namespace host
