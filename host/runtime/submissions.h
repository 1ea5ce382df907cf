// What the Filter Manager and the part of the process that has the configuration tell each other,
// beside what the core between them passes on:
//  - what the Filter Manager answered to the groups that it was sent, for those who tell operators
//    what became of a commit; the core keeps the answers to itself;
//  - what was in force before this process, which must not be replaced while it is in doubt that
//  the
//    configuration is the one that was committed last.
#ifndef HOST_RUNTIME_SUBMISSIONS_H_
#define HOST_RUNTIME_SUBMISSIONS_H_

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace host {

// One group that was sent with its content.
struct Submission {
  std::string group;  // its type: "l2" or "l3"
  size_t entries = 0;
  int error = 0;       // the Filter Manager's code, 0 when the group is in force
  std::string reason;  // what the code means; empty without error
};

class Submissions {
 public:
  void Add(Submission submission) { since_.push_back(std::move(submission)); }
  // Those since the last call, in order.
  std::vector<Submission> Take() { return std::exchange(since_, {}); }

  // Ports on which an earlier process's filters are in force; the Filter Manager tells at its
  // start.
  size_t left_in_force() const { return left_in_force_; }
  void SetLeftInForce(size_t ports) { left_in_force_ = ports; }

  // From now on no group is put in force, for `reason`: the Filter Manager keeps what it is sent.
  void Hold(std::string reason) { held_ = std::move(reason); }
  // Why groups are held back; empty when they are not.
  const std::string& held() const { return held_; }
  // Ends that: what was kept is put in force now.
  void Release() {
    held_.clear();
    if (on_release_) on_release_();
  }
  void OnRelease(std::function<void()> put_in_force) { on_release_ = std::move(put_in_force); }

  // The group `type` may have so many entries, whatever its capacity: they were accepted once.
  void Accept(const std::string& type, size_t entries) { accepted_[type] = entries; }
  size_t accepted(const std::string& type) const {
    const auto found = accepted_.find(type);
    return found != accepted_.end() ? found->second : 0;
  }

 private:
  size_t left_in_force_ = 0;
  std::string held_;
  std::function<void()> on_release_;
  std::map<std::string, size_t> accepted_;
  std::vector<Submission> since_;
};

}  // namespace host

#endif  // HOST_RUNTIME_SUBMISSIONS_H_
