// aclctl: the operator's command for the acl-app daemon.
#include <libyang/libyang.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "host/runtime/settings.h"
#include "tools/aclctl/command_line.h"
#include "tools/aclctl/terminal.h"

namespace aclctl {
namespace {

int Report(const Failure& failure) {
  if (!failure) return kSuccess;
  std::fprintf(stderr, "aclctl: %s\n", failure.message.c_str());
  for (const std::string& detail : failure.details) {
    std::fprintf(stderr, "  %s\n", detail.c_str());
  }
  return failure.code;
}

// What has been printed may have failed before, when it no longer fitted into the buffer. A reader
// that has seen enough is no failure.
Failure FinishOutput() {
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (written || errno == EPIPE) return {};
  return {kFile, std::string("cannot write: ") + std::strerror(errno), {}};
}

int Main(const std::vector<std::string>& words) {
  setlocale(LC_CTYPE, "");  // tables measure text in the terminal's characters
  CommandLine line;
  if (const Failure failure = ReadCommandLine(words, &line)) {
    Report(failure);
    const std::string command =
        line.command != nullptr ? std::string(line.command->name) + " " : "";
    std::fprintf(stderr, "Try 'aclctl %s--help'.\n", command.c_str());
    return failure.code;
  }
  if (!line.print.empty()) {
    std::fputs(line.print.c_str(), stdout);
    return Report(FinishOutput());
  }
  std::string error;
  if (line.common.socket.empty() && !host::FindSocket(&line.common.socket, &error)) {
    std::fprintf(stderr, "aclctl: %s\n", error.c_str());
    return kFile;
  }
  ly_log_options(LY_LOSTORE_LAST);
  Failure failure;
  {
    const Pager pager((line.command->traits & kPaged) != 0 && line.common.form == Form::kText);
    failure = line.run(line.common);
    if (const Failure not_written = FinishOutput()) failure = failure ? failure : not_written;
  }
  return Report(failure);
}

}  // namespace
}  // namespace aclctl

int main(int argc, char** argv) {
  return aclctl::Main(std::vector<std::string>(argv + 1, argv + argc));
}
