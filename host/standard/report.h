// What became of statements that a conversion does not carry over one to one: data, for people and
// for programs.
//
// The rule is that nothing is lost in silence, and nothing is lost at all unless the operator says
// so. To leave a condition out makes an entry match more than it says; to leave an entry out hands
// its frames to the entries behind it, which is worst for one that denies. So both are refused
// without Allowance, and named with it.
#ifndef HOST_STANDARD_REPORT_H_
#define HOST_STANDARD_REPORT_H_

#include <cstddef>
#include <string>
#include <vector>

namespace host::standard {

enum class Outcome {
  kExact,    // another form of the same meaning
  kNoted,    // not in the result, which treats all frames the same without it: texts, numbers
  kLeftOut,  // not there any more, by the operator's word
  kRefused,  // the conversion has no result
};

struct ReportItem {
  std::string path;     // of the statement, in the document that was read
  std::string meaning;  // what it says
  Outcome outcome = Outcome::kExact;
  std::string done;   // what became of it
  bool loud = false;  // frames may pass that were dropped before
};

// What the operator allows to be left out.
struct Allowance {
  bool drop_conditions = false;  // conditions and actions of an entry, which stays
  bool skip_entries = false;     // entries, lists and attachments
};

class Report {
 public:
  void Add(ReportItem item);
  const std::vector<ReportItem>& items() const { return items_; }
  size_t CountOf(Outcome outcome) const { return counts_[static_cast<size_t>(outcome)]; }
  // The last one of the enumeration that an item has.
  Outcome Worst() const;

 private:
  std::vector<ReportItem> items_;
  size_t counts_[4] = {};
};

// What leaving something out of an entry, or leaving the entry out, does to frames.
struct Loss {
  const char* done;
  bool loud;  // frames may pass that were dropped before
};
Loss LossOfCondition(bool denies);
Loss LossOfEntry(bool denies);

// "exact", "noted", "left-out", "refused".
const char* NameOf(Outcome outcome);

// A line for each item, those that matter most first; of those that are exact and of those that are
// noted at most `most` are listed, the rest are counted. What a terminal would obey, and what would
// make two lines of one, is escaped; long texts are cut.
std::string PrintReport(const Report& report, size_t most);
// An object: the outcome and the items, whole and in ASCII.
std::string ReportAsJson(const Report& report);

}  // namespace host::standard

#endif  // HOST_STANDARD_REPORT_H_
