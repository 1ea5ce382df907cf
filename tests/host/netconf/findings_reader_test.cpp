// What findings are looked for in is what is configured, also where an edit is still to be made.
#include "host/netconf/operations/findings_reader.h"

#include <gtest/gtest.h>

#include <set>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/schema.h"
#include "tests/host/netconf/random_edits.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

// Does what a server does for its readers.
class Pages : public CommitObserver {
 public:
  explicit Pages(Datastore& datastore) : datastore_(datastore) { datastore_.AddObserver(this); }
  void BeforeCommit(const lyd_node* diff) override { DetachTouched(datastore_.Running(), diff); }
  void OnCommit(const lyd_node* diff, const CommitInfo&) override {
    DetachParted(datastore_.Running(), diff);
  }

 private:
  Datastore& datastore_;
};

std::string Text(FindingsReader reader) {
  FindingsReader::Progress progress;
  do progress = reader.Step();
  while (progress == FindingsReader::Progress::kMore);
  EXPECT_EQ(progress, FindingsReader::Progress::kEnd);
  std::string text;
  const auto configuration = reader.Take();
  for (const auto& [name, profile] : configuration->profiles) {
    text += name + (profile.l3 ? " l3 " : " l2 ") + std::to_string(profile.priority) + "\n";
    for (const findings::Entry& entry : profile.entries) {
      text += "  " + std::to_string(entry.ace_priority) + " vlan " +
              std::to_string(entry.matches.ValueOf(findings::kVlan)) + " action " +
              std::to_string(static_cast<int>(entry.action)) + "\n";
    }
  }
  for (const auto& [name, interface] : configuration->interfaces) {
    text += name + ":";
    for (const std::string& profile : interface.profiles) text += " " + profile;
    text += "\n";
  }
  return text;
}

// The paths of the leaves below `node`.
void CollectLeaves(const CdbNode* node, const std::string& path, std::set<std::string>* leaves) {
  for (const auto& child : node->children) {
    const std::string below = path + (path.empty() ? "" : "/") + child->name;
    if (child->is(LYD_NODE_TERM)) leaves->insert(below);
    CollectLeaves(child.get(), below, leaves);
  }
}

// With a leaf that they did not know, readers would take an entry for another one.
TEST(EntryLeavesTest, AreAllLeavesOfMatchesAndActions) {
  DatastoreErrors errors;
  const ContextPtr context = LoadSchema(ACL_YANG_DIR, &errors);
  ASSERT_NE(context, nullptr);
  const CdbSchema schema(context.get());
  const CdbNode* node = schema.root();
  for (const char* name :
       {"config", "access-list", "acl-profile", "ingress", "access-list", "access-list-entry"}) {
    node = node->Child(name);
  }
  std::set<std::string> leaves;
  for (const char* part : {"match", "action"}) CollectLeaves(node->Child(part), part, &leaves);
  EXPECT_EQ(std::set<std::string>(EntryLeafPaths().begin(), EntryLeafPaths().end()), leaves);
}

TEST(FindingsReaderTest, ReadsWhatAnEditWillMakeOfRunning) {
  DatastoreErrors errors;
  DatastoreOptions options;
  options.yang_directory = ACL_YANG_DIR;
  const auto datastore = Datastore::Open(options, &errors);
  ASSERT_NE(datastore, nullptr);
  const auto pages = std::make_shared<PageMemory>(size_t{1} << 20);
  Pages observer(*datastore);
  RandomEdits edits(datastore->Context(), 4713, 24);
  int accepted = 0;
  for (int step = 0; step < RandomRounds(1500); ++step) {
    const Tree edit = edits.Next();
    const EditPreview preview = datastore->Preview(edit.get(), {});
    if (!preview.errors.empty()) continue;
    const auto reader = [&](const lyd_node* difference) {
      return FindingsReader(datastore->Context(), datastore->Running(), nullptr, difference, pages);
    };
    const std::string expected = Text(reader(preview.difference.get()));
    ASSERT_TRUE(datastore->Edit(edit.get(), {}, {}).empty());
    ASSERT_EQ(Text(reader(nullptr)), expected) << "step " << step;
    ++accepted;
  }
  EXPECT_GT(accepted, RandomRounds(500));
  pages->kept.clear();
}

}  // namespace
}  // namespace host
