// What the daemon finds in a configuration that does nothing, or not what it seems to.
#ifndef TOOLS_ACLCTL_COMMANDS_FINDINGS_H_
#define TOOLS_ACLCTL_COMMANDS_FINDINGS_H_

#include <string>
#include <vector>

#include "tools/aclctl/client.h"
#include "tools/aclctl/edit_file.h"

namespace aclctl {

struct Findings {
  struct Line {
    std::string kind, where, what;
    std::string Text() const { return where + ": " + what; }
  };
  std::vector<Line> lines;  // a part, where there are thousands
  size_t count = 0;
  bool complete = true;  // all was looked at
  std::string cost;      // of a frame, in a line; empty where no group has entries

  // Those that `before` has not.
  std::vector<std::string> Since(const Findings& before) const;
};

// The input of get-findings for an edit.
std::string FindingsInput(const Edit& edit);

// Asks for what is found: in running when `input` is empty. `text` (may be null) is what was
// received.
Failure FetchFindings(Client* client, const std::string& input, Findings* found,
                      std::string* text = nullptr);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_COMMANDS_FINDINGS_H_
