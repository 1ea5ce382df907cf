// Tags in descriptions: see tags.h.
#include "host/standard/tags.h"

#include <algorithm>

#include "host/standard/characters.h"

namespace host::standard {

std::string Tagged(std::string_view tag, std::string_view name, const std::string& text) {
  std::string tagged = "[";
  tagged.append(tag) += ' ';
  for (const char c : name) {
    if (c == ']' || c == '\\') tagged += '\\';
    tagged += c;
  }
  tagged += ']';
  return text.empty() ? tagged : tagged + " " + text;
}

std::optional<Tag> TagIn(const std::string& description, std::string_view tag) {
  size_t at = tag.size() + 2;
  if (description.size() <= at || description[0] != '[' || description[at - 1] != ' ' ||
      description.compare(1, tag.size(), tag) != 0) {
    return std::nullopt;
  }
  Tag found;
  for (; at < description.size() && description[at] != ']'; ++at) {
    if (description[at] == '\\' && at + 1 < description.size()) ++at;
    found.name += description[at];
  }
  if (at >= description.size() || found.name.empty()) return std::nullopt;
  const std::string rest = description.substr(at + 1);
  if (!rest.empty() && rest[0] != ' ') return std::nullopt;
  if (!rest.empty()) found.text = rest.substr(1);
  return found;
}

std::string UniqueNames::Take(const std::string& wanted) {
  constexpr size_t kRoom = 8;  // for what makes a name another
  std::string name(FirstCharacters(wanted, longest_));
  while (!taken_.insert(name).second) {
    // Names with the same beginning come to the same suffixes, so they count together.
    const std::string stem(FirstCharacters(wanted, longest_ - std::min(longest_, kRoom)));
    const uint32_t number = ++last_.try_emplace(stem, 1).first->second;
    const std::string suffix = separator_ + std::to_string(number);
    name = FirstCharacters(wanted, longest_ - std::min(longest_, suffix.size()));
    name += suffix;
  }
  return name;
}

}  // namespace host::standard
