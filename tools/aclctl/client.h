// The session with the daemon (tools/client), and what goes wrong with it, by their short names.
#ifndef TOOLS_ACLCTL_CLIENT_H_
#define TOOLS_ACLCTL_CLIENT_H_

#include "tools/client/client.h"
#include "tools/client/exit_codes.h"

namespace aclctl {

using client::Client;
using client::ExitCode;
using client::Failure;
using client::InnerXml;
using client::ShortPath;

using client::kFile;
using client::kKernel;
using client::kLossy;
using client::kNotApplied;
using client::kProtocol;
using client::kRefused;
using client::kSuccess;
using client::kUnreachable;
using client::kUsage;

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_CLIENT_H_
