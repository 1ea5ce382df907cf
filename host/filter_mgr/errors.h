// What the Filter Manager answers. The numbers are the interface: the daemon logs them as
// "filtMgrErr", and operators look them up here and in the operator's guide.
#ifndef HOST_FILTER_MGR_ERRORS_H_
#define HOST_FILTER_MGR_ERRORS_H_

namespace host {

enum FilterMgrError : int {
  FILTER_MGR_OK = 0,
  FILTER_MGR_ERR_EXISTS = 1,         // createGroup: the group is known already
  FILTER_MGR_ERR_INVALID_GROUP = 2,  // no valid type or stage, or a second group of a type
  FILTER_MGR_ERR_CAPACITY = 3,       // more entries than there is room for; the log has the numbers
  FILTER_MGR_ERR_UNSUPPORTED = 4,    // an entry that cannot be enforced exactly; the log names it
  FILTER_MGR_ERR_PRIVILEGE = 5,      // the process may not change the kernel's filters
  FILTER_MGR_ERR_KERNEL = 6,         // the kernel refused; the log names the port and the entry
  FILTER_MGR_ERR_NO_ANSWER = 7,      // the kernel could not be asked
  FILTER_MGR_ERR_WITHDRAWN = 8,      // the other group of the same submission was refused
};

// The code in words, for messages.
inline const char* FilterMgrErrorText(FilterMgrError error) {
  static constexpr const char* kTexts[] = {
      "in force",
      "the group exists already",
      "no valid type or stage, or a second group of its type",
      "more entries than there is room for",
      "an entry that cannot be enforced exactly",
      "the daemon may not change the kernel's filters",
      "the kernel refused",
      "the kernel could not be asked",
      "the other group of its submission was refused",
  };
  return kTexts[error];
}

}  // namespace host

#endif  // HOST_FILTER_MGR_ERRORS_H_
