// The platform that the core is tested against.
//
// - It records every call, log line, trace line and fault as one line of text, in order, with the
//   arguments that matter: "cdb_set_timeout 101 5", "cdb_exists 7 /config/...", "log text",
//   "trace 10 StartCommit: Entry Point", "fault 0 function file: text". Faults of level 1 and
//   backtraces also go to stderr, where death tests look.
// - It answers from a small database and a few plain members, and fails calls on demand.
// - It owns what it hands out: whatever the core does not give back fails the test.
//
// One instance is alive at a time; the platform's functions find it through Get().
#ifndef TESTS_CORE_PLATFORM_SCRIPTED_PLATFORM_H_
#define TESTS_CORE_PLATFORM_SCRIPTED_PLATFORM_H_

#include <initializer_list>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/confd/confd_cdb.h"
#include "platform/elem_log/elem_log.h"
#include "platform/filters_common/filters_group.h"
#include "platform/limid/limid.h"
#include "platform/qzconfd/qzconfd.h"
#include "platform/qzmw/qzmw.h"
#include "tests/core/platform/values.h"

namespace acl_test {

using Lines = std::vector<std::string>;

constexpr unsigned int kCapacity = 1000;
constexpr int kLoadSocket = 7;          // for the session of the initial load
constexpr int kSubscriptionSocket = 5;  // CfgSubsSocket()
constexpr int kSessionSocket = 101;     // of a session that the core opens; the next one has 102
// What confd_lasterr() says. As a format it would go wrong.
constexpr char kLastError[] = "no such node: %s%n";

class ScriptedPlatform {
 public:
  ScriptedPlatform();
  ScriptedPlatform(const ScriptedPlatform&) = delete;
  ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;
  // Expects that everything handed out was given back.
  ~ScriptedPlatform();
  static ScriptedPlatform& Get();

  // The record so far, which then starts anew: the lines that begin with one of `heads` (all when
  // there are none).
  Lines Take(std::initializer_list<const char*> heads = {});

  // Every call whose line is `call`, or starts with `call` and a blank, returns `result` and has no
  // effect; calls that return a pointer return null. A later rule wins.
  void On(const std::string& call, int result) { rules_.emplace_back(call, result); }
  void EndRules() { rules_.clear(); }
  // The call of this number (from 0, counted from here on) fails with -1, and no other. The record
  // starts anew behind it.
  void FailCall(int number);
  // The `new (std::nothrow)` of this number (from 0, counted from here on) gives null.
  void FailAllocation(int number);

  // Fill the database for an initial load; these return the path of the new list entry.
  std::string AddProfile(const std::string& name, int type, int priority);
  std::string AddEntry(const std::string& profile_path, int ace_priority);
  std::string AddInterface(const std::string& name, const std::string& ingress);  // "[\"P\"]"

  qzmw_t* middleware();
  zlog_category_s* trace_category();

  // Texts of values (of created list entries: ""; of lists: the number of entries) by path.
  std::map<std::string, std::string> cdb;
  cdb_txid txid{};
  std::map<std::string, limid_t> limids;  // names not listed get 1001, 1002... as they come
  std::map<int, int> actual_classes;      // those of the log dictionary; others stay as they are
  // The operation of FiltersGroup that the filter library refuses the core once, such as
  // "setStage".
  std::string refuse;

  // What the core gave to the platform.
  std::vector<qzconfd::ConfigHandler*> handlers;
  const ElemLogHeader* log_header = nullptr;
  const ElemLogTables* log_tables = nullptr;
  int calls = 0;            // since the start or the last FailCall()
  std::string failed_call;  // by its number

  // For the platform's functions: records the call and gives what `answer` returns (0 when that is
  // nothing), unless the script says otherwise.
  template <class Answer>
  int Call(const std::string& line, Answer answer) {
    int result = 0;
    if (Scripted(line, &result)) return result;
    if constexpr (!std::is_void_v<decltype(answer())>) return answer();
    answer();
    return 0;
  }
  int Call(const std::string& line) {
    return Call(line, [] {});
  }
  void Record(std::string line) { record_.push_back(std::move(line)); }
  // Counts what is handed out (+1) and given back (-1), and records that.
  void HandOut(int count, const std::string& line = {});
  // Reads a leaf of this type (any, when that is C_NOEXISTS) into `value`, the caller's.
  int Read(const std::string& path, confd_vtype type, confd_value_t* value) const;
  int ReadNumber(const std::string& path, confd_vtype type, int32_t* number) const;
  int Instances(const std::string& list) const;

  int sessions = 0;      // that are open
  std::string position;  // of the sessions

 private:
  std::string AddInstance(const std::string& list);
  bool Scripted(const std::string& line, int* result);

  Lines record_;
  std::vector<std::pair<std::string, int>> rules_;
  int failing_call_ = -1;
  int handed_out_ = 0;
};

bool StartsWith(const std::string& text, const std::string& head);

// Texts of filter entries, for comparisons: "3/3 port 1001 vlan 100 -> deny", where the numbers
// ahead are id and priority; matches and actions stand in ascending order of kind.
std::string Describe(const FiltersCommon::FiltersEntry& entry);
Lines Describe(const FiltersCommon::FiltersGroup& group);

}  // namespace acl_test

#endif  // TESTS_CORE_PLATFORM_SCRIPTED_PLATFORM_H_
