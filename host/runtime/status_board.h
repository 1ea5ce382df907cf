// How the parts of the process are, in a line each: what an operator looks at first. A part adds a
// function that tells when somebody asks.
#ifndef HOST_RUNTIME_STATUS_BOARD_H_
#define HOST_RUNTIME_STATUS_BOARD_H_

#include <functional>
#include <map>
#include <string>
#include <utility>

namespace host {

struct StatusLine {
  enum State { kOk, kWarning, kError } state = kOk;
  std::string text;  // for people
};

class StatusBoard {
 public:
  using Report = std::function<StatusLine()>;

  // Shows the part `name` from now on, in place of what had that name. A part that ends before the
  // board removes its report, by an empty one.
  void Show(const std::string& name, Report report) { reports_[name] = std::move(report); }
  // By name; reports may be empty.
  const std::map<std::string, Report>& reports() const { return reports_; }

 private:
  std::map<std::string, Report> reports_;
};

}  // namespace host

#endif  // HOST_RUNTIME_STATUS_BOARD_H_
