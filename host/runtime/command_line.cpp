// What the daemon's command line asks for, before anything of the daemon runs.
//
// main() takes no notice of its arguments, for everything comes from the configuration. So the
// executable is linked with "--wrap=main": the C library calls __wrap_main(), and __real_main() is
// what the daemon's sources call main().
#include <cstdio>
#include <string_view>

#include "host/runtime/settings.h"
#include "host/runtime/version.h"

extern "C" {
int __real_main();                        // NOLINT(bugprone-reserved-identifier): the linker's name
int __wrap_main(int argc, char* argv[]);  // NOLINT(bugprone-reserved-identifier): as above
}

namespace {

constexpr char kUsage[] = "Usage: acl-app [--help | --settings | --version]\n";
constexpr char kHelp[] =
    "%s"
    "\n"
    "The access control list daemon. It runs in the foreground until SIGTERM or SIGINT.\n"
    "Its settings are those of %s\n"
    "(ACL_APP_SETTINGS names another file); its configuration is edited over NETCONF, by\n"
    "aclctl(1) for instance.\n"
    "\n"
    "Options:\n"
    "  --help      print this and exit\n"
    "  --settings  print every setting with its default and its meaning, and exit\n"
    "  --version   print the version and exit\n"
    "\n"
    "Exit status:\n"
    "  0  it was asked to end, or to print this\n"
    "  1  it could not start; the last line of the log says why\n"
    "  2  the command line is wrong\n";

}  // namespace

int __wrap_main(int argc, char* argv[]) {
  if (argc <= 1) return __real_main();
  const std::string_view argument = argv[1];
  if (argc == 2 && argument == "--version") {
    std::printf("acl-app %s\n", host::Version());
  } else if (argc == 2 && argument == "--help") {
    std::printf(kHelp, kUsage, host::SettingsFile().c_str());
  } else if (argc == 2 && argument == "--settings") {
    std::fputs(host::DescribeSettings().c_str(), stdout);
  } else {
    const bool known = argument == "--version" || argument == "--help" || argument == "--settings";
    std::fprintf(stderr, "acl-app: \"%s\" is not understood\n%s", argv[known ? 2 : 1], kUsage);
    return 2;
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}
