#include "tests/support/scripted_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>

namespace acl_test {
namespace {

ScriptedPlatform* current = nullptr;
int allocations_to_failure = -1;  // none fails

constexpr char kProfiles[] = "/config/access-list/acl-profile/ingress/access-list";
constexpr char kInterfaces[] = "/config/access-list/interface";

// One form for a path: "/list/[0]/" is "/list[0]".
std::string Canonical(std::string path) {
  for (size_t at; (at = path.find("/[")) != std::string::npos;) path.erase(at, 1);
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

bool StartsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
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
  Lines taken;
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

int ScriptedPlatform::Call(const std::string& line, int result, bool* scripted) {
  Record(line);
  bool by_script = false;
  for (const auto& [call, rule_result] : rules_) {
    if (line != call && !StartsWith(line, call + ' ')) continue;
    result = rule_result;
    by_script = true;
  }
  if (calls_++ == failing_call_) {
    result = -1;
    by_script = true;
    failed_call_ = line;
  }
  if (scripted != nullptr) *scripted = by_script;
  return result;
}

std::string ScriptedPlatform::NextInstance(const std::string& list) const {
  return list + '[' + std::to_string(Instances(list)) + ']';
}

std::string ScriptedPlatform::AddProfile(const std::string& name, int type, int priority) {
  std::string path = NextInstance(kProfiles);
  cdb[path + "/acl-name"] = '"' + name + '"';
  cdb[path + "/acl-type"] = "enum " + std::to_string(type);
  cdb[path + (type == 0 ? "/acl-priority-l2/priority" : "/acl-priority-l3/priority")] =
      "int32 " + std::to_string(priority);
  return path;
}

std::string ScriptedPlatform::AddEntry(const std::string& profile_path, int ace_priority) {
  std::string path = NextInstance(profile_path + "/access-list-entry");
  cdb[path + "/ace-priority"] = "int32 " + std::to_string(ace_priority);
  return path;
}

std::string ScriptedPlatform::AddInterface(const std::string& name,
                                           const std::vector<std::string>& profiles) {
  std::string path = NextInstance(kInterfaces);
  std::vector<Value> names;
  names.reserve(profiles.size());
  for (const std::string& profile : profiles) names.emplace_back('"' + profile + '"');
  cdb[path + "/interface-name"] = '"' + name + '"';
  cdb[path + "/ingress"] = ListOf(names);
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
