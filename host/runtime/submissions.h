// What the Filter Manager answered to the groups that it was sent, for the part of the process that
// tells operators what became of a commit. The core that sends the groups keeps the answers to
// itself.
#ifndef HOST_RUNTIME_SUBMISSIONS_H_
#define HOST_RUNTIME_SUBMISSIONS_H_

#include <cstddef>
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

 private:
  std::vector<Submission> since_;
};

}  // namespace host

#endif  // HOST_RUNTIME_SUBMISSIONS_H_
