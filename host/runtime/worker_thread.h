// Threads beside the event loop.
#ifndef HOST_RUNTIME_WORKER_THREAD_H_
#define HOST_RUNTIME_WORKER_THREAD_H_

#include <pthread.h>

#include <csignal>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace host {

// A thread that runs `work` with all signals blocked: they are the event loop's business
// (pthread_sigmask(3); a thread starts with its creator's mask). One that is not joinable, with the
// reason in `why` unless that is null, where the system gives none.
template <class Work>
std::thread StartWorker(Work work, std::string* why = nullptr) {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread;
  try {
    thread = std::thread(std::move(work));
  } catch (const std::system_error& failure) {
    if (why != nullptr) *why = failure.what();
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

}  // namespace host

#endif  // HOST_RUNTIME_WORKER_THREAD_H_
