// Locks of whole datastores (RFC 6241 section 7.5): who holds which.
#ifndef HOST_NETCONF_OPERATIONS_LOCKS_H_
#define HOST_NETCONF_OPERATIONS_LOCKS_H_

#include <cstdint>
#include <ctime>
#include <iterator>
#include <map>
#include <string>

namespace host {

class Locks {
 public:
  // Session that holds the lock of `datastore`; 0 when it is free.
  uint32_t HolderOf(const std::string& datastore) const {
    const auto found = locks_.find(datastore);
    return found == locks_.end() ? 0 : found->second.holder;
  }
  // True when a session other than `session` holds the lock.
  bool HeldByOther(const std::string& datastore, uint32_t session) const {
    const uint32_t holder = HolderOf(datastore);
    return holder != 0 && holder != session;
  }
  // When the lock of `datastore`, which is held, was taken.
  time_t TakenAt(const std::string& datastore) const { return locks_.at(datastore).since; }
  void Take(const std::string& datastore, uint32_t session) {
    locks_[datastore] = {session, time(nullptr)};
  }
  void Release(const std::string& datastore) { locks_.erase(datastore); }
  // To be called at a session's end.
  void ReleaseAllOf(uint32_t session) {
    for (auto it = locks_.begin(); it != locks_.end();) {
      it = it->second.holder == session ? locks_.erase(it) : std::next(it);
    }
  }

 private:
  struct Lock {
    uint32_t holder = 0;
    time_t since = 0;
  };
  std::map<std::string, Lock> locks_;  // by name of the datastore
};

}  // namespace host

#endif  // HOST_NETCONF_OPERATIONS_LOCKS_H_
