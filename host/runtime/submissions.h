// Where the Filter Manager and the part of the process that keeps a record of each commit meet. The
// core stands between them, sends the groups and keeps the answers to itself; so the Filter Manager
// notes here what was sent and what became of it, also when that shows later than the answer.
#ifndef HOST_RUNTIME_SUBMISSIONS_H_
#define HOST_RUNTIME_SUBMISSIONS_H_

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host {

// How groups stand that were sent.
struct Standing {
  enum State {
    kInForce,
    kPartial,  // in force, but for some ports; there it is tried again
    kPending,  // taken, and not in force yet: it failed for a passing reason and is tried again
    kRefused,  // not taken; what was in force before still is
  };
  State state = kInForce;
  int error = 0;       // kRefused: the Filter Manager's code
  std::string reason;  // for people; empty for kInForce

  bool taken() const { return state != kRefused; }
  bool operator==(const Standing& other) const {
    return state == other.state && error == other.error && reason == other.reason;
  }
};

// One group that was sent with its content.
struct Submission {
  std::string group;  // its type: "l2" or "l3"
  size_t entries = 0;
  Standing standing;
};

// Where the groups in force take effect.
struct Coverage {
  size_t interfaces = 0;  // that they name; 0 where nothing is enforced
  size_t in_force = 0;    // on which they are in force
};

// What others may ask of the Filter Manager.
class FilterControl {
 public:
  virtual ~FilterControl() = default;
  // Puts in force what was sent and still waits for the rest of its submission.
  virtual void Finish() = 0;
  // Puts in force what was sent while it was held back, and notes it as sent now.
  virtual void Release() = 0;
  virtual Coverage Covered() const = 0;
};

class Submissions {
 public:
  using OnSettled = std::function<void(const Standing&)>;

  // The Filter Manager's side. `control` must be taken back (null) before it goes.
  void SetControl(FilterControl* control) { control_ = control; }
  // Notes a group that was sent; how it stands is told when it is known.
  void Add(Submission submission) {
    since_.push_back(std::move(submission));
    ++open_;
  }
  // How the groups stand that were added and not told of yet: they came into force together or not
  // at all. Where they are refused, the last of them has the reason, and the others `withdrawn`.
  void Resolve(const Standing& standing, const Standing& withdrawn) {
    for (size_t i = since_.size() - open_; i < since_.size(); ++i) {
      const bool last = i + 1 == since_.size();
      since_[i].standing = standing.taken() || last ? standing : withdrawn;
    }
    open_ = 0;
  }
  // How the groups taken last stand now, after Take() has told otherwise of them.
  void Settle(const Standing& standing) const {
    if (on_settled_) on_settled_(standing);
  }

  // The other side. All that was sent since the last call, in order, with how it stands.
  std::vector<Submission> Take() {
    if (control_ != nullptr) control_->Finish();
    open_ = 0;
    return std::exchange(since_, {});
  }
  Coverage Covered() const { return control_ != nullptr ? control_->Covered() : Coverage(); }
  // Null for no one.
  void SetOnSettled(OnSettled on_settled) { on_settled_ = std::move(on_settled); }

  // Ports on which an earlier process's filters are in force; the Filter Manager tells at its
  // start.
  size_t left_in_force() const { return left_in_force_; }
  void SetLeftInForce(size_t ports) { left_in_force_ = ports; }

  // From now on nothing is put in force: what is sent is checked, taken, and pending for `reason`.
  // What was in force before this process must not be replaced while it is in doubt that the
  // configuration is the one that was committed last.
  void Hold(std::string reason) { held_ = std::move(reason); }
  // Why groups are held back; empty when they are not.
  const std::string& held() const { return held_; }
  // Ends that: what was sent last is put in force now.
  void Release() {
    held_.clear();
    if (control_ != nullptr) control_->Release();
  }

  // The group `type` may have so many entries, whatever its capacity: they were accepted once.
  void Accept(const std::string& type, size_t entries) { accepted_[type] = entries; }
  size_t accepted(const std::string& type) const {
    const auto found = accepted_.find(type);
    return found != accepted_.end() ? found->second : 0;
  }

 private:
  FilterControl* control_ = nullptr;
  std::vector<Submission> since_;
  size_t open_ = 0;  // the last ones of `since_`, not told of yet
  OnSettled on_settled_;
  size_t left_in_force_ = 0;
  std::string held_;
  std::map<std::string, size_t> accepted_;
};

}  // namespace host

#endif  // HOST_RUNTIME_SUBMISSIONS_H_
