// The model as the configuration manager sees it: the real one, behind a record of every change
// that is asked of it ("model CreateEntry P 5", in the platform's record). A script rule for such a
// line gives the result instead, and the model is then not asked.
#ifndef TESTS_SUPPORT_RECORDING_FILTER_H_
#define TESTS_SUPPORT_RECORDING_FILTER_H_

#include <string>

#include "filter/acl_filter.h"

namespace acl_test {

class RecordingFilter : public acl_app::AclFilter {
 public:
  using Name = const std::string&;
  using AclFilter::AclFilter;

  acl_app::aclErr_t CreateAclProfile(int type, Name name) override;
  acl_app::aclErr_t RemoveAclProfile(Name name) override;
  acl_app::aclErr_t SetAclPrio(Name name, int prio) override;
  acl_app::aclErr_t CreateEntry(Name name, int prio) override;
  acl_app::aclErr_t RemoveEntry(Name name, int prio) override;
  acl_app::aclErr_t CreateMatch(Name name, int prio, acl_app::aclFiltersMatch_t kind,
                                const confd_value_t* value1, const confd_value_t* value2) override;
  acl_app::aclErr_t RemoveMatch(Name name, int prio, acl_app::aclFiltersMatch_t kind) override;
  acl_app::aclErr_t CreateAction(Name name, int prio, FiltersCommon::filtersAction_t kind,
                                 const confd_value_t* value) override;
  acl_app::aclErr_t RemoveAction(Name name, int prio, FiltersCommon::filtersAction_t kind) override;
  acl_app::aclErr_t CreateInterface(Name interface) override;
  acl_app::aclErr_t RemoveInterface(Name interface) override;
  acl_app::aclErr_t ClearAclsFromInterface(Name interface) override;
  acl_app::aclErr_t AddAclIntoInterface(Name interface, Name profile) override;
  acl_app::aclErr_t RemoveAclFromInterface(Name interface, Name profile) override;
  acl_app::aclErr_t SubmitConfiguration() override;
};

}  // namespace acl_test

#endif  // TESTS_SUPPORT_RECORDING_FILTER_H_
