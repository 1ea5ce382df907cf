// Reads a configuration, from libyang's tree, into the plain data that findings are looked for in
// (host/findings/configuration.h): as it is at one moment, part by part, while commits go on
// (tree_view.h).
#ifndef HOST_NETCONF_OPERATIONS_FINDINGS_READER_H_
#define HOST_NETCONF_OPERATIONS_FINDINGS_READER_H_

#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/cdb/diff.h"
#include "host/cdb/schema/cdb_schema.h"
#include "host/cdb/schema/entry_leaves.h"
#include "host/findings/configuration.h"
#include "host/netconf/reply/tree_view.h"

namespace host {

// Reads single entries.
class EntryReader {
 public:
  explicit EntryReader(const ly_ctx* context);

  // The entry of that node; with `change`, as it is after the change, a node of a difference in
  // libyang's form.
  findings::Entry Read(const lyd_node* entry, const lyd_node* change = nullptr) const;

 private:
  // The nodes of an entry's leaves; null where it has none.
  struct Leaves {
    const lyd_node*& Of(EntryLeaf leaf) { return nodes[static_cast<size_t>(leaf)]; }
    std::array<const lyd_node*, kEntryLeafCount> nodes{};
  };

  void Collect(const lyd_node* siblings, Leaves* leaves) const;
  void Change(const lyd_node* siblings, DiffOperation inherited, Leaves* leaves) const;

  const CdbSchema schema_;
  const EntryLeaves known_;
};

class FindingsReader {
 public:
  enum class Progress { kMore, kEnd, kFailed };

  // Reads the configuration from the node `first` on (may be null) as it is now; `holder` keeps it
  // alive, where that is needed. With a difference (may be null) it is that after the difference,
  // which is not needed any more when the constructor returns.
  FindingsReader(const ly_ctx* context, const lyd_node* first, std::shared_ptr<const void> holder,
                 const lyd_node* difference, std::shared_ptr<PageMemory> memory);

  // Reads the next part. kFailed where there was no memory to keep it as it was.
  Progress Step();
  // What was read; to be called once, after kEnd.
  std::shared_ptr<findings::Configuration> Take();

 private:
  void TakeDifference(const lyd_node* node, const lyd_node* siblings, DiffOperation inherited);
  void TakeProfileDifference(const lyd_node* node, const lyd_node* base, DiffOperation operation);
  void Visit(const lyd_node* node);
  void VisitProfile(const lyd_node* node);
  findings::Profile* ProfileNamed(const std::string& type, const std::string& name);

  const EntryReader entries_;
  std::shared_ptr<findings::Configuration> configuration_ =
      std::make_shared<findings::Configuration>();
  // What the difference makes of nodes; these are not read from the tree.
  std::set<std::string> gone_profiles_;  // type and name
  std::set<std::string> changed_interfaces_;
  std::map<std::string, std::set<uint16_t>> changed_entries_;  // by profile's name
  findings::Profile* profile_ = nullptr;         // that is being read; null: none that stays
  const std::set<uint16_t>* changed_ = nullptr;  // of its entries
  TreeView view_;
};

}  // namespace host

#endif  // HOST_NETCONF_OPERATIONS_FINDINGS_READER_H_
