// What import and export have in common: see standards.h.
#include "tools/aclctl/standards.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace aclctl {

using host::standard::Standard;

namespace {

constexpr struct {
  const char* name;
  Standard standard;
} kStandards[] = {{"rfc8519", Standard::kRfc8519},
                  {"rfc9899", Standard::kRfc9899},
                  {"openconfig", Standard::kOpenConfig}};

constexpr size_t kMostListed = 20;  // of what changes nothing for frames; the file has all

}  // namespace

Failure FindStandard(const std::string& name, Standard* standard) {
  std::string names;
  for (const auto& known : kStandards) {
    names += (names.empty() ? "" : ", ") + std::string(known.name);
    if (name != known.name) continue;
    *standard = known.standard;
    return {};
  }
  return {kUsage,
          (name.empty() ? "the model is not named" : "there is no model \"" + name + "\"") +
              std::string(": it is one of ") + names,
          {}};
}

void AddLossOptions(Syntax* syntax, LossOptions* options) {
  syntax->Flag("--drop-conditions", &options->allowance.drop_conditions,
               "leave out conditions that cannot be kept: their entries then match more");
  syntax->Flag("--skip-entries", &options->allowance.skip_entries,
               "leave out entries, lists and bindings that cannot be kept");
  syntax->Option("--report", "FILE", &options->report, "write what became of what, as JSON",
                 Names::kFiles);
}

Failure TellReport(const host::standard::Report& report, const LossOptions& options,
                   const std::string& what) {
  using host::standard::Outcome;
  std::fputs(PrintReport(report, kMostListed).c_str(), stderr);
  if (!options.report.empty()) {
    std::ofstream file(options.report, std::ios::binary);
    if (!(file << ReportAsJson(report) << std::flush)) {
      return {kFile, "cannot write " + options.report + ": " + std::strerror(errno), {}};
    }
  }
  const auto count = [&report](Outcome outcome) { return std::to_string(report.CountOf(outcome)); };
  switch (report.Worst()) {
    case Outcome::kRefused:
      return {
          kRefused, what + " cannot be converted: " + count(Outcome::kRefused) + " refused", {}};
    case Outcome::kLeftOut:
      return {kLossy,
              what + " is converted, but for what was left out: " + count(Outcome::kLeftOut),
              {}};
    case Outcome::kNoted:
    case Outcome::kExact:
      break;
  }
  return {};
}

}  // namespace aclctl
