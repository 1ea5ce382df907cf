#include "tests/core/platform/scripted_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>

namespace acl_test {
namespace {

ScriptedPlatform* current = nullptr;
int allocations_to_failure = -1;  // none fails

template <class Match>
void Add(const FiltersCommon::FiltersEntry& entry, const char* name, std::string* text) {
  const auto* match = entry.getMatch<Match>();
  if (match != nullptr) *text += Line(name, match->value());
}

template <class Match>
void AddAddress(const FiltersCommon::FiltersEntry& entry, const char* name, std::string* text) {
  const auto* match = entry.getMatch<Match>();
  if (match == nullptr) return;
  *text += name + (' ' + Word(match->address()));
  if (match->mask()) *text += " mask " + Word(*match->mask());
}

}  // namespace

bool StartsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

std::string Describe(const FiltersCommon::FiltersEntry& entry) {
  std::string text = std::to_string(entry.getId()) + '/' + std::to_string(entry.getPriority());
  if (const auto* ports = entry.getMatch<FiltersCommon::MatchIngressPorts>()) {
    for (limid_t port : ports->ports()) text += Line(" port", port);
  }
  Add<FiltersCommon::MatchExternalVlanId>(entry, " vlan", &text);
  Add<FiltersCommon::MatchTPID>(entry, " tpid", &text);
  AddAddress<FiltersCommon::MatchDstMac>(entry, " dst-mac", &text);
  Add<FiltersCommon::MatchDstL4Port>(entry, " dst-port", &text);
  AddAddress<FiltersCommon::MatchSrcMac>(entry, " src-mac", &text);
  AddAddress<FiltersCommon::MatchSrcIPv4>(entry, " src-ip", &text);
  AddAddress<FiltersCommon::MatchDstIPv4>(entry, " dst-ip", &text);
  Add<FiltersCommon::MatchPcp>(entry, " pcp", &text);
  Add<FiltersCommon::MatchIpProtocol>(entry, " protocol", &text);
  Add<FiltersCommon::MatchDSCP>(entry, " dscp", &text);
  Add<FiltersCommon::MatchToS>(entry, " tos", &text);
  text += " ->";
  if (entry.findAction(FiltersCommon::ActionPermit::kKind) != nullptr) text += " permit";
  if (entry.findAction(FiltersCommon::ActionDeny::kKind) != nullptr) text += " deny";
  const auto* set_pcp = entry.getAction<FiltersCommon::ActionSetPcpAndQueue>();
  return set_pcp == nullptr ? text : Line(text, "set-pcp", set_pcp->pcp());
}

Lines Describe(const FiltersCommon::FiltersGroup& group) {
  Lines lines;
  for (const auto& [id, entry] : group.getEntriesRef()) lines.push_back(Describe(entry));
  return lines;
}

ScriptedPlatform::ScriptedPlatform() {
  EXPECT_EQ(current, nullptr) << "one platform at a time";
  current = this;
}

ScriptedPlatform::~ScriptedPlatform() {
  EXPECT_EQ(handed_out_, 0) << "handed out and not given back";
  current = nullptr;
}

ScriptedPlatform& ScriptedPlatform::Get() { return *current; }

Lines ScriptedPlatform::Take(std::initializer_list<const char*> heads) {
  Lines taken = std::exchange(record_, {});
  const auto unwanted = [&](const std::string& line) {
    return heads.size() != 0 && std::none_of(heads.begin(), heads.end(), [&](const char* head) {
             return StartsWith(line, head);
           });
  };
  taken.erase(std::remove_if(taken.begin(), taken.end(), unwanted), taken.end());
  return taken;
}

void ScriptedPlatform::FailCall(int number) {
  calls = 0;
  failing_call_ = number;
}

void ScriptedPlatform::FailAllocation(int number) { allocations_to_failure = number; }

bool ScriptedPlatform::Scripted(const std::string& line, int* result) {
  Record(line);
  bool scripted = false;
  for (const auto& [call, rule_result] : rules_) {
    if (!StartsWith(line + ' ', call + ' ')) continue;
    *result = rule_result;
    scripted = true;
  }
  if (calls++ != failing_call_) return scripted;
  *result = -1;
  failed_call = line;
  record_.clear();
  return true;
}

void ScriptedPlatform::HandOut(int count, const std::string& line) {
  if (!line.empty()) Record(line);
  handed_out_ += count;
}

std::string ScriptedPlatform::AddInstance(const std::string& list) {
  const int count = Instances(list);
  cdb[list] = std::to_string(count + 1);
  return list + '[' + std::to_string(count) + ']';
}

std::string ScriptedPlatform::AddProfile(const std::string& name, int type, int priority) {
  std::string path = AddInstance("/config/access-list/acl-profile/ingress/access-list/");
  cdb[path + "/acl-name"] = '"' + name + '"';
  cdb[path + "/acl-type"] = Line("enum", type);
  cdb[path + (type == 0 ? "/acl-priority-l2" : "/acl-priority-l3") + "/priority"] =
      Line("int32", priority);
  return path;
}

std::string ScriptedPlatform::AddEntry(const std::string& profile_path, int ace_priority) {
  std::string path = AddInstance(profile_path + "/access-list-entry");
  cdb[path + "/ace-priority"] = Line("int32", ace_priority);
  return path;
}

std::string ScriptedPlatform::AddInterface(const std::string& name, const std::string& ingress) {
  std::string path = AddInstance("/config/access-list/interface/");
  cdb[path + "/interface-name"] = '"' + name + '"';
  cdb[path + "/ingress"] = ingress;
  return path;
}

int ScriptedPlatform::Read(const std::string& path, confd_vtype type, confd_value_t* value) const {
  const auto leaf = cdb.find(path);
  if (leaf == cdb.end()) return CONFD_ERR;
  Value read(leaf->second);
  if (type != C_NOEXISTS && read->type != type) return CONFD_ERR;
  *value = read.Release();
  return CONFD_OK;
}

int ScriptedPlatform::ReadNumber(const std::string& path, confd_vtype type, int32_t* number) const {
  confd_value_t value;
  const int rc = Read(path, type, &value);
  if (rc == CONFD_OK) *number = value.val.i32;  // where an enumeration's value is as well
  return rc;
}

int ScriptedPlatform::Instances(const std::string& list) const {
  const auto count = cdb.find(list);
  return count == cdb.end() ? 0 : std::stoi(count->second);
}

}  // namespace acl_test

// The allocation that FailAllocation() lets fail; all others go their usual way.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  int& left = acl_test::allocations_to_failure;
  return left >= 0 && left-- == 0 ? nullptr : ::operator new(size);
}
