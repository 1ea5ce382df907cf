// The standards that import and export speak, and what both commands have in common.
#ifndef TOOLS_ACLCTL_STANDARDS_H_
#define TOOLS_ACLCTL_STANDARDS_H_

#include <string>

#include "host/standard/profiles.h"
#include "tools/aclctl/command.h"

namespace aclctl {

// The standard of that name; where there is none, a failure that names them all.
Failure FindStandard(const std::string& name, host::standard::Standard* standard);

// How what is lost is dealt with, as the command line says.
struct LossOptions {
  host::standard::Allowance allowance;
  std::string report;  // path of a file for the report; empty: none
};

// Declares --drop-conditions, --skip-entries and --report.
void AddLossOptions(Syntax* syntax, LossOptions* options);

// Tells what became of what, on the standard error output and in the file. The failure says whether
// the conversion has a result: kRefused where it has none, kLossy where it has less than was there.
Failure TellReport(const host::standard::Report& report, const LossOptions& options,
                   const std::string& what);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_STANDARDS_H_
