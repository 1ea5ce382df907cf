// The model as the configuration manager sees it: the real one, behind a record of every change
// that is asked of it ("model CreateEntry P 5", in the platform's record). A script rule for such a
// line gives the result instead, and the model is then not asked.
#ifndef TESTS_SUPPORT_RECORDING_FILTER_H_
#define TESTS_SUPPORT_RECORDING_FILTER_H_

#include <string>

#include "filter/acl_filter.h"
#include "tests/support/scripted_platform.h"

namespace acl_test {

class RecordingFilter : public acl_app::AclFilter {
 public:
  using AclFilter::AclFilter;

// Overrides an operation: its name, its parameters, and these as arguments.
#define RECORDED(operation, parameters, ...)                                                \
  acl_app::aclErr_t operation parameters override {                                         \
    return Ask([&] { return AclFilter::operation(__VA_ARGS__); }, #operation, __VA_ARGS__); \
  }
  using Name = const std::string&;
  using Kind = acl_app::aclFiltersMatch_t;
  using ActionKind = FiltersCommon::filtersAction_t;
  using ValuePtr = const confd_value_t*;

  RECORDED(CreateAclProfile, (int type, Name name), type, name)
  RECORDED(RemoveAclProfile, (Name name), name)
  RECORDED(SetAclPrio, (Name name, int prio), name, prio)
  RECORDED(CreateEntry, (Name name, int prio), name, prio)
  RECORDED(RemoveEntry, (Name name, int prio), name, prio)
  RECORDED(CreateMatch, (Name name, int prio, Kind kind, ValuePtr value1, ValuePtr value2), name,
           prio, kind, value1, value2)
  RECORDED(RemoveMatch, (Name name, int prio, Kind kind), name, prio, kind)
  RECORDED(CreateAction, (Name name, int prio, ActionKind kind, ValuePtr value), name, prio, kind,
           value)
  RECORDED(RemoveAction, (Name name, int prio, ActionKind kind), name, prio, kind)
  RECORDED(CreateInterface, (Name interface), interface)
  RECORDED(RemoveInterface, (Name interface), interface)
  RECORDED(ClearAclsFromInterface, (Name interface), interface)
  RECORDED(AddAclIntoInterface, (Name interface, Name profile), interface, profile)
  RECORDED(RemoveAclFromInterface, (Name interface, Name profile), interface, profile)
#undef RECORDED
  acl_app::aclErr_t SubmitConfiguration() override {
    return Ask([&] { return AclFilter::SubmitConfiguration(); }, "SubmitConfiguration");
  }

 private:
  static std::string Word(Name text) { return ' ' + text; }
  static std::string Word(long number) { return ' ' + std::to_string(number); }
  static std::string Word(ValuePtr value) { return ' ' + ToText(value); }

  template <class Real, class... Args>
  static acl_app::aclErr_t Ask(Real real, const char* operation, const Args&... args) {
    return static_cast<acl_app::aclErr_t>(ScriptedPlatform::Get().Do(
        std::string("model ") + operation + (std::string() + ... + Word(args)), real));
  }
};

}  // namespace acl_test

#endif  // TESTS_SUPPORT_RECORDING_FILTER_H_
