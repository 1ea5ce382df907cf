// Kinds of errors of the daemon's clients. aclctl ends with them as its status, so that scripts can
// tell them apart.
#ifndef TOOLS_CLIENT_EXIT_CODES_H_
#define TOOLS_CLIENT_EXIT_CODES_H_

namespace client {

enum ExitCode {
  kSuccess = 0,
  kUsage = 2,        // the command line is wrong
  kFile = 3,         // a file cannot be read, or is no JSON or XML
  kUnreachable = 4,  // no daemon at the socket
  kRefused = 5,      // the daemon refused the request; the reasons are printed
  kProtocol = 6,     // the daemon's answer cannot be understood, or does not come
  kKernel = 7,       // the kernel refused
  kNotApplied = 8,   // the commit stands, but its filters are not in force
  kLossy = 9,        // converted, without what the operator allowed to be left out
};

}  // namespace client

#endif  // TOOLS_CLIENT_EXIT_CODES_H_
