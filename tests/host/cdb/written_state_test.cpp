// Written state, by the cdb_* calls, beside a tree that is written by libyang alone.
#include "host/cdb/written_state.h"

#include <random>
#include <regex>

#include "host/cdb/calls/cdb_service.h"
#include "host/cdb/operational_store.h"
#include "platform/confd/confd_cdb.h"
#include "tests/host/cdb/support.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

constexpr int kNames = 7;  // that entries have

std::string Named(const std::string& list, int name) {
  return list + "{" + std::to_string(name) + "}";
}

std::string PlainPath(const std::string& path) {
  static const std::regex interface("interface\\{(\\d)\\}"), profile("profile\\{(\\d)\\}");
  const std::string named = std::regex_replace(path, interface, "interface[interface-name='$1']");
  return "/acl-app:status/acl-resources/" +
         std::regex_replace(named, profile, "profile[acl-name='$1']");
}

lyd_node* Find(const lyd_node* tree, const std::string& path) {
  lyd_node* found = nullptr;  // may become that of a part of the path
  return lyd_find_path(tree, PlainPath(path).c_str(), 0, &found) == LY_SUCCESS ? found : nullptr;
}

// Writes as the calls do: a leaf is given `value`, an entry (null) is not to be there yet.
bool Write(lyd_node* tree, const std::string& path, const char* value) {
  for (size_t end = 0; (end = path.find("}/", end + 1)) != std::string::npos;)
    if (Find(tree, path.substr(0, end + 1)) == nullptr) return false;
  return lyd_new_path(tree, nullptr, PlainPath(path).c_str(), value,
                      value != nullptr ? LYD_NEW_PATH_UPDATE : 0, nullptr) == LY_SUCCESS;
}

// The same nodes in the same order, and libyang finds those of `a`, by its tables where it has
// some.
void ExpectSame(const lyd_node* a, const lyd_node* b) {
  for (const lyd_node* first = a; a != nullptr && b != nullptr; a = a->next, b = b->next) {
    EXPECT_EQ(LY_SUCCESS, lyd_compare_single(a, b, 0)) << PathOf(a) << " " << PathOf(b);
    EXPECT_EQ(a, FindSame(first, a)) << PathOf(a);
    ExpectSame(lyd_child(a), lyd_child(b));
  }
  EXPECT_EQ(a, b);
}

TEST(WrittenStateTest, IsAsIfWrittenPlainly) {
  const auto datastore = OpenDatastore();
  CdbService service(datastore.get());
  WrittenState& written = datastore->Operational().written();
  const int sock = service.OpenSession(CDB_OPERATIONAL);
  cdb_cd(sock, "/status/acl-resources");
  lyd_node* plain = nullptr;
  lyd_new_path(nullptr, datastore->Context(), "/acl-app:status", nullptr, 0, &plain);
  const Tree owner(plain);
  std::mt19937 random(11);
  const auto any = [&random](int count) { return static_cast<int>(random() % count); };
  for (int step = 0; step < RandomRounds(5000) && !testing::Test::HasFailure(); ++step) {
    const std::string layer = any(2) == 0 ? "l2" : "l3", above = Named("interface", any(kNames));
    const std::string lists[] = {"interface", layer + "/profile", above + "/" + layer + "/profile"};
    const std::string list = lists[any(3)], entry = Named(list, any(kNames));
    const std::string used = Named(lists[1 + any(2)], any(kNames)) + "/used-entries";
    const std::string leaf = any(3) == 0 ? above + "/" + layer + "/total" : used;
    const int what = any(40);
    SCOPED_TRACE(std::to_string(step) + ": " + std::to_string(what) + " " + entry + " " + leaf);
    bool expected = true;
    int result = CONFD_ERR;
    if (what == 0) {
      expected = list != lists[2] || Find(plain, above) != nullptr;
      result = cdb_delete(sock, "%s", list.c_str());
      for (int name = 0; name < kNames; ++name) lyd_free_tree(Find(plain, Named(list, name)));
    } else if (what < 4) {
      const std::string& doomed = what == 1 ? leaf : entry;
      expected = Find(plain, doomed) != nullptr;
      result = cdb_delete(sock, "%s", doomed.c_str());
      lyd_free_tree(Find(plain, doomed));
    } else if (what < 20) {
      expected = Write(plain, entry, nullptr);
      result = cdb_create(sock, "%s", entry.c_str());
    } else {
      confd_value_t value{};
      value.type = C_UINT32;
      value.val.u32 = static_cast<uint32_t>(any(3));
      expected = Write(plain, leaf, std::to_string(value.val.u32).c_str());
      result = cdb_set_elem(sock, &value, "%s", leaf.c_str());
    }
    EXPECT_EQ(expected ? CONFD_OK : CONFD_ERR, result);
    for (const std::string& path : {entry, leaf})
      EXPECT_EQ(Find(plain, path) != nullptr, cdb_exists(sock, "%s", path.c_str())) << path;
    int count = 0;
    for (int name = 0; name < kNames; ++name) count += Find(plain, Named(list, name)) != nullptr;
    EXPECT_EQ(count, cdb_num_instances(sock, "%s", list.c_str()));
    EXPECT_EQ(-1, cdb_exists(sock, "%s[%d]", list.c_str(), count));
    // Others see it seldom: much comes and goes meanwhile.
    if (any(100) == 0) ExpectSame(written.Shown(), plain);
  }
  // What comes back is kept, else little.
  const auto kept = [&written, sock](int round) {
    for (int i = 0; i < 64; ++i) cdb_create(sock, "interface{%d-%d}", round, i);
    cdb_delete(sock, "interface");
    return written.kept();
  };
  EXPECT_EQ(kept(0), kept(0));
  for (int round = 1; round < 100; ++round) EXPECT_GT(2000u, kept(round));
}

}  // namespace
}  // namespace host
