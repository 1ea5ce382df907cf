// Stands in for the process's log: the lines that the code under test writes.
#ifndef TESTS_HOST_FILTER_MGR_CAPTURED_LOG_H_
#define TESTS_HOST_FILTER_MGR_CAPTURED_LOG_H_

#include <string>
#include <vector>

namespace host {

std::vector<std::string>& CapturedLog();

}  // namespace host

#endif  // TESTS_HOST_FILTER_MGR_CAPTURED_LOG_H_
