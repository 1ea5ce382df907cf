// How aclctl ends: a status for each kind of error, so that scripts can tell them apart.
#ifndef TOOLS_ACLCTL_EXIT_CODES_H_
#define TOOLS_ACLCTL_EXIT_CODES_H_

namespace aclctl {

enum ExitCode {
  kSuccess = 0,
  kUsage = 2,        // the command line is wrong
  kFile = 3,         // a file cannot be read, or is no JSON or XML
  kUnreachable = 4,  // no daemon at the socket
  kRefused = 5,      // the daemon refused the request; the reasons are printed
  kProtocol = 6,     // the daemon's answer cannot be understood, or does not come
  kKernel = 7,       // the kernel refused
  kNotApplied = 8,   // the commit stands, but its filters are not in force
};

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_EXIT_CODES_H_
