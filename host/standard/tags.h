// What ours has no place for and keeps in descriptions, for an export to give it back:
// "[ace NAME]", "[seq NUMBER] TEXT", "[acl NAME] TEXT". A bracket or a backslash in a name has a
// backslash before it.
#ifndef HOST_STANDARD_TAGS_H_
#define HOST_STANDARD_TAGS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace host::standard {

struct Tag {
  std::string name;
  std::string text;  // behind the tag
};

// "[tag NAME] TEXT".
std::string Tagged(std::string_view tag, std::string_view name, const std::string& text);
// What such a description says; nothing where it is none.
std::optional<Tag> TagIn(const std::string& description, std::string_view tag);

// Names that all differ, given out in constant time each.
class UniqueNames {
 public:
  // `separator` stands before the number that makes a name another, in names of at most `longest`
  // characters.
  UniqueNames(std::string separator, size_t longest)
      : separator_(std::move(separator)), longest_(longest) {}
  // `wanted`, or that with a number behind it.
  std::string Take(const std::string& wanted);

 private:
  std::string separator_;
  size_t longest_;
  std::unordered_set<std::string> taken_;
  std::unordered_map<std::string, uint32_t> last_;  // number given out, by the name wanted
};

}  // namespace host::standard

#endif  // HOST_STANDARD_TAGS_H_
