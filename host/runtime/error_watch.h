// Collects the texts of the errors that are logged while something is done, so that who asked for
// it can be told why it failed: the lines of level "error" and above, and those of the log service
// that speak of a failure, for which it has no level of its own. Lines that the log's level keeps
// out are collected as well.
#ifndef HOST_RUNTIME_ERROR_WATCH_H_
#define HOST_RUNTIME_ERROR_WATCH_H_

#include <string>
#include <vector>

namespace host {

class ErrorWatch {
 public:
  // Begins to collect. One at a time: the latest that lives does.
  ErrorWatch();
  ErrorWatch(const ErrorWatch&) = delete;
  ErrorWatch& operator=(const ErrorWatch&) = delete;
  ~ErrorWatch();

  // The first lines, as many as an operator can use, then the last one.
  const std::vector<std::string>& lines() const { return lines_; }

  // For the log: the watch that collects now, null when there is none.
  static ErrorWatch* Current();
  // Whether a line of this printf format tells of a failure.
  static bool IsError(const char* format);
  void Add(const std::string& line);

 private:
  ErrorWatch* const outer_;
  std::vector<std::string> lines_;
};

}  // namespace host

#endif  // HOST_RUNTIME_ERROR_WATCH_H_
