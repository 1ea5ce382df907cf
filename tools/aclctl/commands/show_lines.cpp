// aclctl show lines.
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/running.h"
#include "tools/aclctl/schema.h"

namespace aclctl {
namespace {

struct ShowLinesWanted {
  std::string profile;
  std::string find;
};

Failure ShowLines(const Common& common, const ShowLinesWanted& wanted) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::ContextPtr context;
  if (Failure failure = FetchSchema(&client, {"acl-app"}, &context)) return failure;
  Scope scope;
  scope.everything = wanted.profile.empty();
  scope.all_interfaces = true;
  scope.profiles[wanted.profile].all = true;
  host::Tree tree;
  if (Failure failure = FetchRunning(&client, context.get(), scope, &tree)) return failure;
  const ConfigTree config(context.get(), std::move(tree));
  if (!wanted.profile.empty() && config.FindProfile(wanted.profile) == nullptr) {
    return {kRefused, "there is no profile \"" + wanted.profile + "\"", {}};
  }
  std::istringstream text(InLines(config));
  nlohmann::json lines = nlohmann::json::array();
  for (std::string line; std::getline(text, line);) {
    const bool wanted_text = line.find(wanted.find) != std::string::npos;
    if (!wanted_text || (line.empty() && !wanted.find.empty())) continue;
    if (common.form == Form::kText) std::puts(line.c_str());
    if (!line.empty()) lines.push_back(line);
  }
  if (common.form == Form::kJson) std::puts(lines.dump(2).c_str());
  return {};
}

Run SetUpShowLines(Syntax* syntax) {
  const auto wanted = std::make_shared<ShowLinesWanted>();
  syntax->OptionalOperand("PROFILE", &wanted->profile, "this profile alone", Names::kProfiles);
  syntax->Option("--find", "TEXT", &wanted->find, "lines with this text, as in a description");
  return [wanted](const Common& common) { return ShowLines(common, *wanted); };
}

}  // namespace

const Command kShowLines = {"show lines",
                            Group::kLook,
                            "the configuration in lines, as apply and edit take them",
                            "aclctl show lines guests\naclctl show lines --find 'ticket 4711'",
                            SetUpShowLines,
                            kPaged};

}  // namespace aclctl
