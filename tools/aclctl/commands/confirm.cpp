// aclctl confirm and cancel: the end of a commit that was made with --confirm.
#include <cstdio>
#include <memory>

#include "host/xml/xml_text.h"
#include "tools/aclctl/commands.h"
#include "tools/aclctl/commit_edit.h"
#include "tools/aclctl/outcome.h"

namespace aclctl {
namespace {

std::string PersistElement(const std::string& token) {
  return token.empty() ? "" : host::XmlElement("persist-id", token);
}

// A commit of the candidate confirms; it must have nothing else to commit, so it is locked, which
// is refused where somebody is about to edit it.
Failure Confirm(const Common& common, const std::string& token) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::Tree reply;
  Failure failure = client.Call("<lock><target><candidate/></target></lock>", &reply);
  if (!failure) failure = client.Call("<commit>" + PersistElement(token) + "</commit>", &reply);
  if (failure.code == kRefused) failure.message = "nothing is confirmed";
  if (failure) return failure;
  std::puts(common.form == Form::kJson ? "{\"result\": \"confirmed\"}" : "confirmed");
  return {};
}

Failure Cancel(const Common& common, const std::string& token) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::Tree reply;
  Failure failure =
      client.Call("<cancel-commit>" + PersistElement(token) + "</cancel-commit>", &reply);
  if (failure.code == kRefused) failure.message = "nothing is taken back";
  if (failure) return failure;
  std::puts(common.form == Form::kJson ? "{\"result\": \"cancelled\"}"
                                       : "cancelled: the configuration is the one from before");
  return {};
}

template <Failure (*run)(const Common& common, const std::string& token)>
Run SetUpConfirm(Syntax* syntax) {
  const auto token = std::make_shared<std::string>(kPersistId);
  syntax->Option("--persist-id", "TOKEN", token.get(),
                 "of a commit that another client made (default: aclctl's)");
  return [token](const Common& common) { return run(common, *token); };
}

}  // namespace

const Command kConfirm = {"confirm", Group::kCommits, "keep what --confirm would take back",
                          "aclctl apply --confirm 120 change.json\naclctl confirm",
                          SetUpConfirm<Confirm>};
const Command kCancel = {"cancel", Group::kCommits, "take back at once what is not confirmed yet",
                         "aclctl cancel", SetUpConfirm<Cancel>};

}  // namespace aclctl
