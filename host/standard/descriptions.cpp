// Descriptions and names: see descriptions.h.
#include "host/standard/descriptions.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/runtime/utf8.h"
#include "host/standard/tags.h"

namespace host::standard {
namespace {

constexpr size_t kLongestText = 255;  // characters

// Whether a description may have the character: no control character (yang/acl-app-types.yang), and
// none that YANG has not (RFC 7950, section 14).
bool MayBeInText(char32_t c) {
  const bool control = c < 0x20 || (c >= 0x7f && c <= 0x9f);
  return !control && (c & 0xfffe) != 0xfffe && (c < 0xfdd0 || c > 0xfdef);
}

// A text as a description: one line, of as many characters as there may be.
struct Line {
  std::string text;
  bool is_cut = false;
  bool has_blanks = false;  // in place of characters that may not be there
};

Line LineOf(std::string_view text) {
  Line line;
  for (size_t characters = 0; !text.empty(); ++characters) {
    if (characters == kLongestText) {
      line.is_cut = true;
      break;
    }
    char32_t code = 0;
    const size_t size = ReadUtf8(text, &code);
    const bool may_be = size > 0 && MayBeInText(code);
    line.text += may_be ? text.substr(0, size) : " ";
    line.has_blanks = line.has_blanks || !may_be;
    text.remove_prefix(std::max<size_t>(size, 1));
  }
  return line;
}

// Whether the entry is the only one of what it is made from.
bool IsAlone(const std::vector<const Ace*>& aces, size_t at) {
  return (at == 0 || aces[at - 1] != aces[at]) &&
         (at + 1 == aces.size() || aces[at + 1] != aces[at]);
}

// Whether the list's profile has something of its own that says which it is.
bool NamedByUs(const Acl& acl) { return acl.priority || !acl.profile_name.empty(); }

// Calls take(tag, list or entry, its name in `back`, description) for what has another name there.
// The description, which keeps names, is null for the end of a profile.
template <class Take>
void EachChangedName(const std::vector<ProfileOrigin>& origins, const AccessLists& back,
                     Profiles* profiles, const Take& take) {
  for (size_t i = 0; i < origins.size(); ++i) {
    const auto& [acl, aces, ends_as_profiles] = origins[i];
    const Acl& list = back.acls[i];
    Profile& profile = profiles->profiles[i];
    if (NamedByUs(*acl) && !acl->name.empty() && acl->name != list.name) {
      take("acl", *acl, list.name, &profile.description);
    }
    for (size_t j = 0; j < profile.entries.size(); ++j) {
      const Ace* ace = aces[j];
      if (ace == nullptr || !ace->ace_priority || !IsAlone(aces, j)) continue;
      if (ace->name.empty() || ace->name == list.aces[j].name) continue;
      take("ace", *ace, list.aces[j].name, &profile.entries[j].description);
    }
    if (!ends_as_profiles || acl->aces.back().name == list.aces.back().name) continue;
    take("ace", acl->aces.back(), list.aces.back().name, nullptr);
  }
}

}  // namespace

std::string Describe(const std::string& text, const std::string& path, Report* report) {
  Line line = LineOf(text);
  if (line.has_blanks && report != nullptr) {
    report->Add({path, "control characters in a text, such as ends of lines", Outcome::kNoted,
                 "blanks in their place: \"" + line.text + "\"", false});
  }
  if (line.is_cut && report != nullptr) {
    report->Add({path, "a text of more than 255 characters", Outcome::kNoted,
                 "cut behind these: \"" + line.text + "\"", false});
  }
  return std::move(line.text);
}

std::string StartOf(const std::string& text) { return text.substr(0, 8 * kLongestText); }

void KeepOwnNames(const std::vector<ProfileOrigin>& origins, Profiles* profiles, Report* report) {
  const auto has_own = [](const ProfileOrigin& origin) {
    return NamedByUs(*origin.acl) ||
           std::any_of(origin.aces.begin(), origin.aces.end(),
                       [](const Ace* ace) { return ace != nullptr && ace->ace_priority; });
  };
  if (!std::any_of(origins.begin(), origins.end(), has_own)) return;
  AccessLists back;
  bool changed = true;
  // A tag may free a name for others, which are looked at again.
  for (int round = 0; changed && round < 3; ++round) {
    Report unused;
    back = ToAccessLists(*profiles, {}, &unused);
    changed = false;
    EachChangedName(origins, back, profiles,
                    [&](const char* tag, const auto& item, const std::string& /*other*/,
                        std::string* description) {
                      if (description == nullptr || round == 2) return;
                      changed = true;
                      const std::optional<Tag> old = TagIn(*description, tag);
                      const std::string& text = old ? old->text : *description;
                      *description = Describe(Tagged(tag, StartOf(item.name), text), item.path,
                                              round == 0 ? report : nullptr);
                    });
  }
  EachChangedName(origins, back, profiles,
                  [&](const char* /*tag*/, const auto& item, const std::string& other,
                      const std::string* /*description*/) {
                    report->Add({item.path, "the name \"" + item.name + "\"", Outcome::kNoted,
                                 "an export calls it \"" + other + "\"", false});
                  });
}

}  // namespace host::standard
