// From a plain document to profiles: see configuration.h.
#include <algorithm>
#include <charconv>
#include <utility>

#include "host/standard/ace_builder.h"
#include "host/standard/configuration.h"

namespace host::standard {
namespace {

using Form = Node::Form;

// The leaves of `match` that are numbers.
constexpr struct {
  std::string_view name;
  Field field;
  uint32_t least, most;
  unsigned int shift;
  uint64_t mask;
} kPlainNumbers[] = {{"vlan", kVlan, 1, 4094, 0, 0xfff},
                     {"pcp", kPcp, 0, 7, 0, 7},
                     {"dscp", kTos, 0, 63, 2, kDscpMask},
                     {"tos", kTos, 0, 255, 0, 0xff},
                     {"ip-protocol", kIpProtocol, 0, 255, 0, 0xff},
                     {"destination-port", kDestinationPort, 0, 65535, 0, 0xffff}};

// Every function returns false for what is not plain, and for what is not valid.
class PlainReader {
 public:
  PlainReader(bool json, const MatchNames& names, Profiles* profiles)
      : json_(json), names_(names), profiles_(profiles) {}

  bool Read(const Node& config) {
    return Each(config, [this](const Node& access_list) {
      if (access_list.name != "access-list") return false;
      return Each(access_list, [this](const Node& node) {
        if (node.name == "interface") return ReadInterface(node);
        if (node.name != "acl-profile") return false;
        return Each(node, [this](const Node& ingress) {
          if (ingress.name != "ingress") return false;
          return Each(ingress, [this](const Node& profile) {
            return profile.name == "access-list" && ReadProfile(profile);
          });
        });
      });
    });
  }

 private:
  // Takes the children of a container or a list entry.
  template <class Take>
  static bool Each(const Node& node, const Take& take) {
    return node.value.empty() &&
           std::all_of(node.children.begin(), node.children.end(), [&](const Node& child) {
             return child.module == kOwn.name && child.form != Form::kAnnotation && take(child);
           });
  }

  bool TakeNumber(const Node& node, uint32_t least, uint32_t most, uint32_t* number) const {
    if (node.form != (json_ ? Form::kNumber : Form::kText)) return false;
    const std::optional<uint32_t> value = NumberOf(node.value, most);
    if (!value || *value < least || (node.value[0] == '0' && node.value.size() > 1)) return false;
    *number = *value;
    return true;
  }
  bool TakePriority(const Node& node, uint16_t* priority) const {
    uint32_t number = 0;
    if (!TakeNumber(node, 0, 65535, &number)) return false;
    *priority = static_cast<uint16_t>(number);
    return true;
  }
  bool TakeNamed(const Node& node, uint32_t* number) const {
    if (node.form != Form::kText || !node.children.empty()) return false;
    const std::optional<uint32_t> named = names_.Find(node.name, node.value);
    if (named) *number = *named;
    return named.has_value();
  }
  // ASCII is what is plain here: lengths are of characters. Nothing stands twice.
  static bool TakeText(const Node& node, size_t longest, std::string* text) {
    if (!text->empty()) return false;
    *text = node.value;
    return node.children.empty() && !text->empty() && text->size() <= longest &&
           std::all_of(text->begin(), text->end(), [](char c) { return c >= ' ' && c < '\x7f'; });
  }
  static bool TakeName(const Node& node, std::string* name) {
    constexpr std::string_view kExcluded = " \"'[]{}\\`";
    return TakeText(node, 64, name) && name->find_first_of(kExcluded) == std::string::npos;
  }

  bool ReadInterface(const Node& node) {
    std::string name;
    std::vector<std::string> bound;
    const bool plain = Each(node, [&](const Node& child) {
      if (child.name == "interface-name") return name.empty() && TakeName(child, &name);
      return child.name == "ingress" && TakeName(child, &bound.emplace_back());
    });
    return plain && !name.empty() && profiles_->bindings.emplace(name, std::move(bound)).second;
  }

  bool ReadProfile(const Node& node) {
    Profile profile;
    std::string type;
    bool has_priority = false;
    const bool plain = Each(node, [&](const Node& child) {
      if (child.name == "acl-type") return TakeText(child, 2, &type);
      if (child.name == "acl-name") return TakeName(child, &profile.name);
      if (child.name == "description") return TakeText(child, 255, &profile.description);
      if (child.name == "access-list-entry") return ReadEntry(child, &profile);
      if (child.name != (type == "l3" ? "acl-priority-l3" : "acl-priority-l2")) return false;
      return Each(child, [&](const Node& priority) {
        return priority.name == "priority" && !std::exchange(has_priority, true) &&
               TakePriority(priority, &profile.priority);
      });
    });
    profile.l3 = type == "l3";
    if (!plain || profile.name.empty() || profile.name.find('/') != std::string::npos ||
        (!profile.l3 && type != "l2")) {
      return false;
    }
    const auto before = [](const auto& a, const auto& b) {
      return a.ace_priority < b.ace_priority;
    };
    std::sort(profile.entries.begin(), profile.entries.end(), before);
    profiles_->profiles.push_back(std::move(profile));
    return true;
  }

  bool ReadEntry(const Node& node, Profile* profile) {
    ProfileEntry& entry = profile->entries.emplace_back();
    bool has_key = false;
    return Each(node,
                [&](const Node& child) {
                  if (child.name == "ace-priority") {
                    return !std::exchange(has_key, true) &&
                           TakePriority(child, &entry.ace_priority);
                  }
                  if (child.name == "description") return TakeText(child, 255, &entry.description);
                  if (child.name == "match") return ReadMatch(child, &entry);
                  return child.name == "action" && ReadAction(child, &entry);
                }) &&
           has_key;
  }

  bool ReadMatch(const Node& match, ProfileEntry* entry) const {
    return Each(match, [&](const Node& node) {
      for (const auto& known : kPlainNumbers) {
        if (node.name != known.name) continue;
        uint32_t number = 0;
        return (TakeNamed(node, &number) || TakeNumber(node, known.least, known.most, &number)) &&
               Set(known.field, {uint64_t{number} << known.shift, known.mask}, entry);
      }
      if (node.name == "ethertype") return TakeEthertype(node, entry);
      if (node.name == "source-ipv4-address") return TakeAddress(node, kSourceIpv4, entry);
      if (node.name == "destination-ipv4-address")
        return TakeAddress(node, kDestinationIpv4, entry);
      return TakeMac(node, "source-mac-address", kSourceMac, entry) ||
             TakeMac(node, "destination-mac-address", kDestinationMac, entry);
    });
  }

  static bool Set(Field field, const Value& value, ProfileEntry* entry) {
    if (entry->matches[field]) return false;
    entry->matches[field] = value;
    return true;
  }

  // "0x0800" or a name; shorter forms are not plain.
  bool TakeEthertype(const Node& node, ProfileEntry* entry) const {
    const std::string& text = node.value;
    uint32_t type = 0;
    if (TakeNamed(node, &type)) return Set(kEthertype, {type, FullMask(kEthertype)}, entry);
    if (text.size() != 6 || text[0] != '0' || text[1] != 'x') return false;
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + 6, type, 16);
    return error == std::errc() && end == text.data() + 6 &&
           Set(kEthertype, {type, FullMask(kEthertype)}, entry);
  }

  // An address, or the mask of one that stands before it.
  static bool TakeMac(const Node& node, std::string_view name, Field field, ProfileEntry* entry) {
    if (node.name.substr(0, name.size()) != name || node.value.find('-') != std::string::npos) {
      return false;
    }
    const std::optional<uint64_t> mac = MacOf(node.value);
    if (!mac) return false;
    if (node.name == name) return Set(field, {*mac, FullMask(field)}, entry);
    auto& address = entry->matches[field];
    if (node.name.substr(name.size()) != "-mask" || !address) return false;
    address->mask = *mac;
    return true;
  }

  static bool TakeAddress(const Node& node, Field field, ProfileEntry* entry) {
    if (node.children.size() != 1 || node.children[0].children.size() != 1) return false;
    const Node& form = node.children[0];
    const Node& ip = form.children[0];
    const bool masked = form.name == "mask";
    if ((!masked && form.name != "no-mask") || ip.name != "ip" || form.module != kOwn.name ||
        ip.module != kOwn.name || (ip.value.find('/') != std::string::npos) != masked) {
      return false;
    }
    const std::optional<Value> value = PrefixOf(ip.value);
    return value && Set(field, *value, entry);
  }

  bool ReadAction(const Node& action, ProfileEntry* entry) const {
    return Each(action, [&](const Node& node) {
      if (node.name == "set") {
        return Each(node, [&](const Node& pcp) {
          uint32_t number = 0;
          if (pcp.name != "pcp" || entry->set_pcp || !TakeNumber(pcp, 0, 7, &number)) return false;
          entry->set_pcp = static_cast<uint8_t>(number);
          return true;
        });
      }
      if (node.name != "packet-handling") return false;
      return Each(node, [&](const Node& leaf) {
        const bool deny = leaf.name == "deny";
        if ((!deny && leaf.name != "permit") || !leaf.children.empty() || !leaf.value.empty() ||
            (json_ && leaf.form != Form::kEmpty) || entry->handling != Handling::kNone) {
          return false;
        }
        entry->handling = deny ? Handling::kDeny : Handling::kPermit;
        return true;
      });
    });
  }

  const bool json_;
  const MatchNames& names_;
  Profiles* profiles_;
};

}  // namespace

MatchNames::MatchNames(const ly_ctx* context) {
  const CdbSchema schema(context);
  const CdbNode* node = schema.root();
  for (const char* name : {"config", "access-list", "acl-profile", "ingress", "access-list",
                           "access-list-entry", "match"}) {
    if (node != nullptr) node = node->Child(name);
  }
  if (node == nullptr) return;
  for (const auto& leaf : node->children) {
    auto& numbers = leaves_[leaf->name];
    for (const auto& [name, number] : leaf->enums) numbers[name] = static_cast<uint32_t>(number);
  }
}

std::optional<uint32_t> MatchNames::Find(std::string_view leaf, const std::string& name) const {
  const auto numbers = leaves_.find(leaf);
  if (numbers == leaves_.end()) return std::nullopt;
  const auto number = numbers->second.find(name);
  return number != numbers->second.end() ? std::optional(number->second) : std::nullopt;
}

std::optional<Profiles> ReadPlainConfiguration(const Document& document, Format format,
                                               const MatchNames& names) {
  Profiles profiles;
  const std::vector<Node>& top = document.root.children;
  if (top.size() != 1 || top[0].name != "config" || top[0].module != kOwn.name) return std::nullopt;
  if (!PlainReader(format == Format::kJson, names, &profiles).Read(top[0])) return std::nullopt;
  return profiles;
}

}  // namespace host::standard
