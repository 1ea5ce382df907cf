// A transaction of the kernel's packet filter under construction: messages between a begin and an
// end, which the kernel takes whole or not at all.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_BATCH_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_BATCH_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/linux/netlink.h"
#include "host/filter_mgr/nftables/kernel/names.h"
#include "host/filter_mgr/nftables/plan/rule.h"

namespace host {

// What a message is about, to name it when the kernel refuses it.
struct MessageOrigin {
  const std::string* port = nullptr;
  GroupSlot slot = kL2;
  int64_t rule = -1;  // index among the port's rules for the group; -1: not about a rule
};

// What came of a transaction.
struct BatchResult {
  int error = 0;         // 0, or a negative errno: the kernel changed nothing
  bool refused = false;  // the kernel itself said so (as opposed to a failing socket)
  bool unknown = false;  // no answer could be read: the kernel may have done either
  // What the message refused first is about; the port is empty when it is about none.
  std::string port;
  GroupSlot slot = kL2;
  int64_t rule = -1;
  // What the counters of rules came to that were removed with `tell`, by table and handle.
  std::map<std::pair<std::string, uint64_t>, Hits> last_hits;
};

class NftBatch {
 public:
  NftBatch();

  // Messages from here on are about this.
  void SetOrigin(const MessageOrigin& origin) { origin_ = origin; }

  // Adds a table, or takes over one that has lost its owner.
  void AddTable(const std::string& table, uint32_t flags);
  void DeleteTable(const std::string& table);
  void AddSet(const std::string& table, const FixedSet& set);
  void AddBaseChain(const std::string& table, const std::string& device);
  void AddChain(const std::string& table, const std::string& chain);
  // With its rules. The result says what the counters of `tell` of them came to (all, or 0), until
  // it has become a lot: the kernel would drop what overflows its buffer, and its answer with it.
  void DeleteChain(const std::string& table, const std::string& chain, size_t tell = 0);
  // Removes all rules of a chain.
  void FlushChain(const std::string& table, const std::string& chain);
  void DeleteRule(const std::string& table, const std::string& chain, uint64_t handle,
                  bool tell = false);
  // Adds a rule before the rule with that handle; 0: at the chain's end.
  void AddRule(const std::string& table, const std::string& chain, const Rule& rule,
               const Guard& guard, GroupSlot slot, const Hits& hits, uint64_t before);

  // Adds a rule that jumps from `chain` to `target`, to the chain's end.
  void AddJump(const std::string& table, const std::string& chain, const std::string& target);

  // Number of messages, begin and end aside.
  size_t size() const { return origins_.size(); }
  // Ends the batch, sends it and reads what the kernel says: -ERESTART unless the packet filter's
  // generation is `generation`. It may then be committed again.
  BatchResult Commit(NetlinkSocket& socket, uint32_t generation);

 private:
  static constexpr size_t kPageSize = 1 << 20;
  static constexpr size_t kMaxMessage = 1 << 14;

  struct Page {
    std::unique_ptr<char[]> data;
    size_t used = 0;
  };

  // Room for a message at the batch's end.
  char* Room();
  nlmsghdr* Start(uint16_t type, uint16_t flags);
  // Takes over the message that was started.
  void Finish(nlmsghdr* message);
  void Append(nlmsghdr* message);
  void ReadAnswers(NetlinkSocket& socket, BatchResult* result) const;

  // Flag for a removal of so many rules that are to be told of.
  uint16_t Tell(size_t rules);

  std::vector<Page> pages_;
  std::vector<MessageOrigin> origins_;  // per message

  MessageOrigin origin_;
  size_t told_ = 0;  // rules whose removal the kernel tells of, at most
  uint32_t begin_sequence_ = 0;
  nlattr* generation_ = nullptr;  // in the begin
  nlmsghdr* last_ = nullptr;
  bool ended_ = false;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_BATCH_H_
