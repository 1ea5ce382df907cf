#include "tests/support/scripted_platform.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <new>

namespace acl_test {
namespace {

ScriptedPlatform* current = nullptr;
int allocations_to_failure = -1;  // none fails

constexpr char kProfiles[] = "/config/access-list/acl-profile/ingress/access-list";
constexpr char kInterfaces[] = "/config/access-list/interface";

bool StartsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

// One form for a path: "/list/[0]/" is "/list[0]".
std::string Canonical(std::string path) {
  for (size_t at; (at = path.find("/[")) != std::string::npos;) path.erase(at, 1);
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

ScriptedPlatform::ScriptedPlatform() {
  EXPECT_EQ(current, nullptr) << "one platform at a time";
  current = this;
}

ScriptedPlatform::~ScriptedPlatform() {
  EXPECT_EQ(handed_out_, 0) << "handed out and not given back";
  current = nullptr;
}

ScriptedPlatform& ScriptedPlatform::Get() { return *current; }

std::vector<std::string> ScriptedPlatform::Take(std::initializer_list<const char*> heads) {
  std::vector<std::string> taken;
  for (std::string& line : record_) {
    const bool wanted = std::any_of(heads.begin(), heads.end(),
                                    [&](const char* head) { return StartsWith(line, head); });
    if (wanted || heads.size() == 0) taken.push_back(std::move(line));
  }
  record_.clear();
  return taken;
}

void ScriptedPlatform::FailCall(int number) {
  calls_ = 0;
  failing_call_ = number;
}

void ScriptedPlatform::FailAllocation(int number) { allocations_to_failure = number; }

int ScriptedPlatform::Call(const std::string& line, int result, bool* failed) {
  Record(line);
  bool scripted = false;
  for (const auto& [call, rule_result] : rules_) {
    if (line == call || StartsWith(line, call + ' ')) {
      result = rule_result;
      scripted = true;
    }
  }
  if (calls_++ == failing_call_) {
    result = -1;
    scripted = true;
    failed_call_ = line;
  }
  if (failed != nullptr) *failed = scripted;
  return result;
}

std::string ScriptedPlatform::AddProfile(const std::string& name, int type, int priority) {
  const std::string path =
      std::string(kProfiles) + '[' + std::to_string(Instances(kProfiles)) + ']';
  cdb[path + "/acl-name"] = Buf(name);
  cdb[path + "/acl-type"] = Enum(type);
  cdb[path + (type == 0 ? "/acl-priority-l2/priority" : "/acl-priority-l3/priority")] =
      Int32(priority);
  return path;
}

std::string ScriptedPlatform::AddEntry(const std::string& profile_path, int ace_priority) {
  const std::string list = profile_path + "/access-list-entry";
  const std::string path = list + '[' + std::to_string(Instances(list)) + ']';
  cdb[path + "/ace-priority"] = Int32(ace_priority);
  return path;
}

std::string ScriptedPlatform::AddInterface(const std::string& name,
                                           const std::vector<std::string>& profiles) {
  const std::string path =
      std::string(kInterfaces) + '[' + std::to_string(Instances(kInterfaces)) + ']';
  std::vector<Value> names;
  for (const std::string& profile : profiles) names.push_back(Buf(profile));
  cdb[path + "/interface-name"] = Buf(name);
  cdb[path + "/ingress"] = List(names);
  return path;
}

int ScriptedPlatform::OpenSession() {
  int socket = kFirstSessionSocket;
  while (!sessions_.insert(socket).second) ++socket;
  HandOut(1);
  return socket;
}

void ScriptedPlatform::CloseSession(int socket) {
  sessions_.erase(socket);
  positions_.erase(socket);
  HandOut(-1);
}

const Value* ScriptedPlatform::Find(const std::string& path) const {
  auto it = cdb.find(Canonical(path));
  return it == cdb.end() ? nullptr : &it->second;
}

bool ScriptedPlatform::Exists(const std::string& path) const {
  const std::string node = Canonical(path);
  if (cdb.count(node) != 0) return true;
  for (char below : {'/', '[', '{'}) {
    auto it = cdb.lower_bound(node + below);
    if (it != cdb.end() && StartsWith(it->first, node + below)) return true;
  }
  return false;
}

int ScriptedPlatform::Instances(const std::string& list) const {
  const std::string node = Canonical(list);
  int count = 0;
  while (Exists(node + '[' + std::to_string(count) + ']')) ++count;
  // Created entries: with keys, and nothing below them.
  for (auto it = cdb.lower_bound(node + '{'); it != cdb.end(); ++it) {
    if (!StartsWith(it->first, node + '{')) break;
    if (it->second.get()->type == C_NOEXISTS && it->first.find("}/") == std::string::npos) ++count;
  }
  return count;
}

void ScriptedPlatform::Delete(const std::string& list) {
  auto it = cdb.lower_bound(list + '{');
  while (it != cdb.end() && StartsWith(it->first, list + '{')) it = cdb.erase(it);
}

namespace {

template <class Element>
using Words = std::string (*)(const Element&);

template <class T>
std::string Number(const FiltersCommon::Match& match) {
  return std::to_string(dynamic_cast<const T&>(match).value());
}

std::string AddressText(const ether_addr& address) {
  std::vector<uint8_t> octets(address.ether_addr_octet, address.ether_addr_octet + ETH_ALEN);
  return ToText(Binary(octets).get());
}

std::string AddressText(const in_addr& address) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

template <class T>
std::string Masked(const FiltersCommon::Match& match) {
  const T& address = dynamic_cast<const T&>(match);
  return AddressText(address.address()) +
         (address.mask() ? " mask " + AddressText(*address.mask()) : "");
}

std::string TosOrDscp(const FiltersCommon::Match& match) {
  const bool dscp = dynamic_cast<const FiltersCommon::MatchDSCP*>(&match) != nullptr;
  return dscp ? "dscp " + Number<FiltersCommon::MatchDSCP>(match)
              : "tos " + Number<FiltersCommon::MatchToS>(match);
}

struct MatchWords {
  const char* name;
  Words<FiltersCommon::Match> value;
};

const std::map<FiltersCommon::filtersMatch_t, MatchWords>& MatchTable() {
  using namespace FiltersCommon;
  static const std::map<filtersMatch_t, MatchWords> table = {
      {FILTERS_MATCH_EXTERNAL_VLAN_ID, {"vlan ", Number<MatchExternalVlanId>}},
      {FILTERS_MATCH_TPID, {"tpid ", Number<MatchTPID>}},
      {FILTERS_MATCH_DST_MAC, {"dst-mac ", Masked<MatchDstMac>}},
      {FILTERS_MATCH_DST_L4_PORT, {"dst-port ", Number<MatchDstL4Port>}},
      {FILTERS_MATCH_SRC_MAC, {"src-mac ", Masked<MatchSrcMac>}},
      {FILTERS_MATCH_SRC_IPV4, {"src-ip ", Masked<MatchSrcIPv4>}},
      {FILTERS_MATCH_DST_IPV4, {"dst-ip ", Masked<MatchDstIPv4>}},
      {FILTERS_MATCH_PCP, {"pcp ", Number<MatchPcp>}},
      {FILTERS_MATCH_IP_PROTOCOL, {"protocol ", Number<MatchIpProtocol>}},
      {FILTERS_MATCH_TOS, {"", TosOrDscp}},
  };
  return table;
}

std::string ActionText(const FiltersCommon::Action& action) {
  switch (action.kind()) {
    case FiltersCommon::FILTERS_ACTION_PERMIT:
      return " permit";
    case FiltersCommon::FILTERS_ACTION_DENY:
      return " deny";
    default:
      return " set-pcp " +
             std::to_string(dynamic_cast<const FiltersCommon::ActionSetPcpAndQueue&>(action).pcp());
  }
}

}  // namespace

std::string Describe(const FiltersCommon::FiltersEntry& entry) {
  std::string text = std::to_string(entry.getId()) + '/' + std::to_string(entry.getPriority());
  if (const auto* ports = entry.getMatch<FiltersCommon::MatchIngressPorts>()) {
    for (limid_t port : ports->ports()) text += " port " + std::to_string(port);
  }
  for (const auto& match : entry.getMatches()) {
    const MatchWords& words = MatchTable().at(match->kind());
    text += std::string(" ") + words.name + words.value(*match);
  }
  text += " ->";
  for (const auto& action : entry.getActions()) text += ActionText(*action);
  return text;
}

std::vector<std::string> Describe(const FiltersCommon::FiltersGroup& group) {
  std::vector<std::string> lines;
  for (const auto& [id, entry] : group.getEntriesRef()) lines.push_back(Describe(entry));
  return lines;
}

}  // namespace acl_test

// The allocation that FailAllocation() lets fail; all others go their usual way.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  if (acl_test::allocations_to_failure >= 0 && acl_test::allocations_to_failure-- == 0) {
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
