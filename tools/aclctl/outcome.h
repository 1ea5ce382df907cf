// What the daemon made of a commit: whether it is in force.
#ifndef TOOLS_ACLCTL_OUTCOME_H_
#define TOOLS_ACLCTL_OUTCOME_H_

#include <string>

#include "tools/aclctl/client.h"

namespace aclctl {

// The session's own commit. The daemon is through with a commit before it answers, so it need only
// be read.
class CommitReport {
 public:
  // To be called before the commit is made.
  Failure Begin(Client* client);
  // To be called after it succeeded. A failure (kNotApplied), with the reasons, when the commit is
  // not in force.
  Failure Read(Client* client);

  // After Read(): the commit's number, empty when there was nothing to commit.
  const std::string& id() const { return id_; }
  // Prints the commit to standard output: its number, its result and what is in force.
  void PrintJson() const;
  // What is in force now, such as "L2 9 entries, L3 20 entries".
  const std::string& in_force() const { return in_force_; }

 private:
  std::string before_;  // the last commit before
  std::string id_;
  std::string result_ = "unchanged";
  std::string in_force_;
};

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_OUTCOME_H_
