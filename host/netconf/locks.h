// Locks of whole datastores (RFC 6241 section 7.5): who holds which.
#ifndef HOST_NETCONF_LOCKS_H_
#define HOST_NETCONF_LOCKS_H_

#include <cstdint>
#include <map>
#include <string>

namespace host {

class Locks {
 public:
  // Session that holds the lock of `datastore`; 0 when it is free.
  uint32_t HolderOf(const std::string& datastore) const {
    const auto found = holders_.find(datastore);
    return found == holders_.end() ? 0 : found->second;
  }
  // True when a session other than `session` holds the lock.
  bool HeldByOther(const std::string& datastore, uint32_t session) const {
    const uint32_t holder = HolderOf(datastore);
    return holder != 0 && holder != session;
  }
  void Take(const std::string& datastore, uint32_t session) { holders_[datastore] = session; }
  void Release(const std::string& datastore) { holders_.erase(datastore); }
  // To be called at a session's end.
  void ReleaseAllOf(uint32_t session) {
    for (auto it = holders_.begin(); it != holders_.end();) {
      it = it->second == session ? holders_.erase(it) : std::next(it);
    }
  }

 private:
  std::map<std::string, uint32_t> holders_;  // datastore name to session id
};

}  // namespace host

#endif  // HOST_NETCONF_LOCKS_H_
