// The platform that the core is tested against. It does four things:
//
// - It records every call, log line, trace line and fault as one line of text, in order, with the
//   arguments that matter: "cdb_set_timeout 101 5", "cdb_exists 7 /config/...", "log text",
//   "trace 10 StartCommit: Entry Point", "fault 0 function file: text". Faults of level 1 and
//   backtraces also go to stderr, where death tests look.
// - It answers from a small in-memory database (leaves by path; profiles, entries and interfaces
//   by position as the initial load reads them, or by key) and from a few plain members.
// - It fails calls on demand: by what they are (On) or by their number (FailCall).
// - It owns what it hands out: whatever the core does not give back fails the test.
//
// One instance is alive at a time; the platform's functions find it through Get().
#ifndef TESTS_SUPPORT_SCRIPTED_PLATFORM_H_
#define TESTS_SUPPORT_SCRIPTED_PLATFORM_H_

#include <initializer_list>
#include <map>
#include <set>
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
#include "tests/support/values.h"

namespace acl_test {

using Lines = std::vector<std::string>;

constexpr int kLoadSocket = 7;            // for the session of the initial load
constexpr int kSubscriptionSocket = 5;    // CfgSubsSocket()
constexpr int kFirstSessionSocket = 101;  // of sessions that the core opens: the lowest free one
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
  // The call of this number (from 0, counted from here on) fails with -1, and no other.
  void FailCall(int number);
  // Calls since the start or the last FailCall(), and the one that failed by its number.
  int calls() const { return calls_; }
  const std::string& failed_call() const { return failed_call_; }
  // The filter library's next FiltersGroup::insertEntry() of the core fails.
  void RefuseInsert() { insert_refused_ = true; }
  bool TakeInsertRefusal() { return std::exchange(insert_refused_, false); }
  // The `new (std::nothrow)` of this number (from 0, counted from here on) gives null.
  void FailAllocation(int number);

  // Fill the database for an initial load; these return the path of the new list entry.
  std::string AddProfile(const std::string& name, int type, int priority);
  std::string AddEntry(const std::string& profile_path, int ace_priority);
  std::string AddInterface(const std::string& name, const std::vector<std::string>& profiles);

  qzmw_t* middleware();
  zlog_category_s* trace_category();

  // Leaves (and created list entries, with no value) by path.
  std::map<std::string, Value> cdb;
  cdb_txid txid{};
  unsigned int capacity = 1000;
  std::map<std::string, limid_t> limids;  // names not listed get 1001, 1002... as they come
  std::map<int, int> actual_classes;      // those of the log dictionary; others stay as they are

  // What the core gave to the platform.
  std::vector<qzconfd::ConfigHandler*> handlers;
  const ElemLogHeader* log_header = nullptr;
  const ElemLogTables* log_tables = nullptr;

  // For the platform's functions: records the call and gives its result, `result` unless the script
  // says otherwise; `*scripted` tells that it did.
  int Call(const std::string& line, int result = 0, bool* scripted = nullptr);
  // Records the call and gives what `effect` returns (0 when that is nothing), unless the script
  // says otherwise.
  template <class Effect>
  int Do(const std::string& line, Effect effect) {
    bool scripted = false;
    const int result = Call(line, 0, &scripted);
    if (scripted) return result;
    if constexpr (!std::is_void_v<decltype(effect())>) return effect();
    effect();
    return 0;
  }
  void Record(std::string line) { record_.push_back(std::move(line)); }
  // Counts what is handed out (+1) and given back (-1).
  void HandOut(int count) { handed_out_ += count; }
  int OpenSession();
  void CloseSession(int socket);
  bool Exists(const std::string& path) const;
  int Instances(const std::string& list) const;
  const Value* Find(const std::string& path) const;
  void Delete(const std::string& list);
  std::string& position(int socket) { return positions_[socket]; }

 private:
  std::string NextInstance(const std::string& list) const;

  Lines record_;
  std::vector<std::pair<std::string, int>> rules_;
  int calls_ = 0;
  int failing_call_ = -1;
  std::string failed_call_;
  int handed_out_ = 0;
  bool insert_refused_ = false;
  std::set<int> sessions_;
  std::map<int, std::string> positions_;  // current path by socket
};

bool StartsWith(const std::string& text, const std::string& head);

// Texts of filter entries, for comparisons: "3/3 port 1001 vlan 100 -> deny", where the numbers
// ahead are id and priority; matches and actions stand in ascending order of kind.
std::string Describe(const FiltersCommon::FiltersEntry& entry);
Lines Describe(const FiltersCommon::FiltersGroup& group);

}  // namespace acl_test

#endif  // TESTS_SUPPORT_SCRIPTED_PLATFORM_H_
