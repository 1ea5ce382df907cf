#include "tests/support/recording_filter.h"

#include "tests/support/scripted_platform.h"

namespace acl_test {
namespace {

using acl_app::aclErr_t;
using acl_app::AclFilter;

std::string Word(const std::string& text) { return ' ' + text; }
std::string Word(long number) { return ' ' + std::to_string(number); }
std::string Word(const confd_value_t* value) { return ' ' + ToText(value); }

template <class Real, class... Args>
aclErr_t Ask(const char* operation, Real real, const Args&... args) {
  bool scripted = false;
  const int result = ScriptedPlatform::Get().Call(
      std::string("model ") + operation + (std::string() + ... + Word(args)), 0, &scripted);
  return scripted ? static_cast<aclErr_t>(result) : real();
}

}  // namespace

#define ASK(operation, args, ...) \
  return Ask(                     \
      #operation, [&] { return AclFilter::operation args; }, ##__VA_ARGS__)

aclErr_t RecordingFilter::CreateAclProfile(int type, Name name) {
  ASK(CreateAclProfile, (type, name), type, name);
}

aclErr_t RecordingFilter::RemoveAclProfile(Name name) { ASK(RemoveAclProfile, (name), name); }

aclErr_t RecordingFilter::SetAclPrio(Name name, int prio) {
  ASK(SetAclPrio, (name, prio), name, prio);
}

aclErr_t RecordingFilter::CreateEntry(Name name, int prio) {
  ASK(CreateEntry, (name, prio), name, prio);
}

aclErr_t RecordingFilter::RemoveEntry(Name name, int prio) {
  ASK(RemoveEntry, (name, prio), name, prio);
}

aclErr_t RecordingFilter::CreateMatch(Name name, int prio, acl_app::aclFiltersMatch_t kind,
                                      const confd_value_t* value1, const confd_value_t* value2) {
  ASK(CreateMatch, (name, prio, kind, value1, value2), name, prio, kind, value1, value2);
}

aclErr_t RecordingFilter::RemoveMatch(Name name, int prio, acl_app::aclFiltersMatch_t kind) {
  ASK(RemoveMatch, (name, prio, kind), name, prio, kind);
}

aclErr_t RecordingFilter::CreateAction(Name name, int prio, FiltersCommon::filtersAction_t kind,
                                       const confd_value_t* value) {
  ASK(CreateAction, (name, prio, kind, value), name, prio, kind, value);
}

aclErr_t RecordingFilter::RemoveAction(Name name, int prio, FiltersCommon::filtersAction_t kind) {
  ASK(RemoveAction, (name, prio, kind), name, prio, kind);
}

aclErr_t RecordingFilter::CreateInterface(Name interface) {
  ASK(CreateInterface, (interface), interface);
}

aclErr_t RecordingFilter::RemoveInterface(Name interface) {
  ASK(RemoveInterface, (interface), interface);
}

aclErr_t RecordingFilter::ClearAclsFromInterface(Name interface) {
  ASK(ClearAclsFromInterface, (interface), interface);
}

aclErr_t RecordingFilter::AddAclIntoInterface(Name interface, Name profile) {
  ASK(AddAclIntoInterface, (interface, profile), interface, profile);
}

aclErr_t RecordingFilter::RemoveAclFromInterface(Name interface, Name profile) {
  ASK(RemoveAclFromInterface, (interface, profile), interface, profile);
}

aclErr_t RecordingFilter::SubmitConfiguration() { ASK(SubmitConfiguration, ()); }

}  // namespace acl_test
