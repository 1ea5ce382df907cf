#include "host/filter_mgr/nftables/kernel/batch.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <cerrno>
#include <cstring>

#include "host/filter_mgr/nftables/kernel/codec.h"
#include "host/filter_mgr/nftables/kernel/objects.h"
#include "host/filter_mgr/nftables/plan/difference.h"

namespace host {
namespace {

constexpr uint16_t kAdd = NLM_F_CREATE;
constexpr uint16_t kAppend = NLM_F_CREATE | NLM_F_APPEND;

// Numbers messages apart from those of single requests.
uint32_t NextBatchSequence() {
  static uint32_t sequence = 1U << 31;
  return sequence++;
}

TablePtr MakeTable(const std::string& name) {
  TablePtr table(nftnl_table_alloc());
  nftnl_table_set_str(table.get(), NFTNL_TABLE_NAME, name.c_str());
  return table;
}

ChainPtr MakeChain(const std::string& table, const std::string& name) {
  ChainPtr chain(nftnl_chain_alloc());
  nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_TABLE, table.c_str());
  nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_NAME, name.c_str());
  return chain;
}

RuleObjectPtr MakeRule(const std::string& table, const std::string& chain) {
  RuleObjectPtr rule(nftnl_rule_alloc());
  nftnl_rule_set_str(rule.get(), NFTNL_RULE_TABLE, table.c_str());
  nftnl_rule_set_str(rule.get(), NFTNL_RULE_CHAIN, chain.c_str());
  return rule;
}

}  // namespace

NftBatch::NftBatch() : begin_sequence_(NextBatchSequence()) {
  nlmsghdr* begin = nftnl_batch_begin(Room(), begin_sequence_);
  generation_ = static_cast<nlattr*>(mnl_nlmsg_get_payload_tail(begin));
  mnl_attr_put_u32(begin, NFNL_BATCH_GENID, 0);
  Append(begin);
}

char* NftBatch::Room() {
  if (pages_.empty() || kPageSize - pages_.back().used < kMaxMessage) {
    // Not value-initialised: most of a page may never be touched.
    pages_.push_back({std::unique_ptr<char[]>(new char[kPageSize]), 0});
  }
  return pages_.back().data.get() + pages_.back().used;
}

nlmsghdr* NftBatch::Start(uint16_t type, uint16_t flags) {
  return nftnl_nlmsg_build_hdr(Room(), type, NFPROTO_NETDEV, flags, NextBatchSequence());
}

void NftBatch::Append(nlmsghdr* message) { pages_.back().used += MNL_ALIGN(message->nlmsg_len); }

void NftBatch::Finish(nlmsghdr* message) {
  Append(message);
  last_ = message;
  origins_.push_back(origin_);
}

void NftBatch::AddTable(const std::string& table, uint32_t flags) {
  const TablePtr object = MakeTable(table);
  nftnl_table_set_u32(object.get(), NFTNL_TABLE_FLAGS, flags);
  nlmsghdr* message = Start(NFT_MSG_NEWTABLE, kAdd);
  nftnl_table_nlmsg_build_payload(message, object.get());
  Finish(message);
}

void NftBatch::DeleteTable(const std::string& table) {
  nlmsghdr* message = Start(NFT_MSG_DELTABLE, 0);
  nftnl_table_nlmsg_build_payload(message, MakeTable(table).get());
  Finish(message);
}

void NftBatch::AddSet(const std::string& table, const FixedSet& set) {
  const SetPtr object(nftnl_set_alloc());
  nftnl_set_set_str(object.get(), NFTNL_SET_TABLE, table.c_str());
  nftnl_set_set_str(object.get(), NFTNL_SET_NAME, set.name);
  nftnl_set_set_u32(object.get(), NFTNL_SET_FAMILY, NFPROTO_NETDEV);
  nftnl_set_set_u32(object.get(), NFTNL_SET_KEY_LEN, set.key_length);
  nftnl_set_set_u32(object.get(), NFTNL_SET_KEY_TYPE, set.key_type);
  nftnl_set_set_u32(object.get(), NFTNL_SET_FLAGS, NFT_SET_CONSTANT);
  nftnl_set_set_u32(object.get(), NFTNL_SET_DESC_SIZE, static_cast<uint32_t>(set.keys.size()));
  nftnl_set_set_u32(object.get(), NFTNL_SET_ID, static_cast<uint32_t>(set.id));
  nlmsghdr* message = Start(NFT_MSG_NEWSET, kAdd);
  nftnl_set_nlmsg_build_payload(message, object.get());
  Finish(message);

  for (const auto& key : set.keys) {
    nftnl_set_elem* element = nftnl_set_elem_alloc();
    nftnl_set_elem_set(element, NFTNL_SET_ELEM_KEY, key.data(), static_cast<uint32_t>(key.size()));
    nftnl_set_elem_add(object.get(), element);
  }
  message = Start(NFT_MSG_NEWSETELEM, kAdd);
  nftnl_set_elems_nlmsg_build_payload(message, object.get());
  Finish(message);
}

void NftBatch::AddBaseChain(const std::string& table, const std::string& device) {
  const ChainPtr object = MakeChain(table, kIngressChain);
  nftnl_chain_set_u32(object.get(), NFTNL_CHAIN_HOOKNUM, NF_NETDEV_INGRESS);
  nftnl_chain_set_s32(object.get(), NFTNL_CHAIN_PRIO, kHookPriority);
  nftnl_chain_set_u32(object.get(), NFTNL_CHAIN_POLICY, NF_ACCEPT);
  nftnl_chain_set_str(object.get(), NFTNL_CHAIN_TYPE, "filter");
  nftnl_chain_set_str(object.get(), NFTNL_CHAIN_DEV, device.c_str());
  nlmsghdr* message = Start(NFT_MSG_NEWCHAIN, kAdd);
  nftnl_chain_nlmsg_build_payload(message, object.get());
  Finish(message);
}

void NftBatch::AddChain(const std::string& table, const std::string& chain) {
  nlmsghdr* message = Start(NFT_MSG_NEWCHAIN, kAdd);
  nftnl_chain_nlmsg_build_payload(message, MakeChain(table, chain).get());
  Finish(message);
}

uint16_t NftBatch::Tell(size_t rules) {
  constexpr size_t kMost = 8192;  // about 4 MiB
  if (rules == 0 || told_ + rules > kMost) return 0;
  told_ += rules;
  return NLM_F_ECHO;
}

void NftBatch::DeleteChain(const std::string& table, const std::string& chain, size_t tell) {
  nlmsghdr* message = Start(NFT_MSG_DELCHAIN, Tell(tell));
  nftnl_chain_nlmsg_build_payload(message, MakeChain(table, chain).get());
  Finish(message);
}

void NftBatch::FlushChain(const std::string& table, const std::string& chain) {
  nlmsghdr* message = Start(NFT_MSG_DELRULE, 0);
  nftnl_rule_nlmsg_build_payload(message, MakeRule(table, chain).get());
  Finish(message);
}

void NftBatch::DeleteRule(const std::string& table, const std::string& chain, uint64_t handle,
                          bool tell) {
  const RuleObjectPtr object = MakeRule(table, chain);
  nftnl_rule_set_u64(object.get(), NFTNL_RULE_HANDLE, handle);
  nlmsghdr* message = Start(NFT_MSG_DELRULE, Tell(tell ? 1 : 0));
  nftnl_rule_nlmsg_build_payload(message, object.get());
  Finish(message);
}

void NftBatch::AddRule(const std::string& table, const std::string& chain, const Rule& rule,
                       const Guard& guard, GroupSlot slot, const Hits& hits, uint64_t before) {
  const RuleObjectPtr object = MakeRule(table, chain);
  if (before != 0) nftnl_rule_set_u64(object.get(), NFTNL_RULE_POSITION, before);
  EncodeRule(rule, guard, slot, hits, object.get());
  nlmsghdr* message = Start(NFT_MSG_NEWRULE, before != 0 ? kAdd : kAppend);
  nftnl_rule_nlmsg_build_payload(message, object.get());
  Finish(message);
}

void NftBatch::AddJump(const std::string& table, const std::string& chain,
                       const std::string& target) {
  const RuleObjectPtr object = MakeRule(table, chain);
  EncodeJump(target, object.get());
  nlmsghdr* message = Start(NFT_MSG_NEWRULE, kAppend);
  nftnl_rule_nlmsg_build_payload(message, object.get());
  Finish(message);
}

BatchResult NftBatch::Commit(NetlinkSocket& socket, uint32_t generation) {
  const uint32_t in_network_order = htonl(generation);
  memcpy(mnl_attr_get_payload(generation_), &in_network_order, sizeof(in_network_order));
  // One acknowledgement, of the last message, tells of the whole: the kernel sends it after the
  // commit. (The end of a batch is acknowledged by newer kernels only.)
  last_->nlmsg_flags |= NLM_F_ACK;
  if (!ended_) Append(nftnl_batch_end(Room(), NextBatchSequence()));
  ended_ = true;
  std::vector<iovec> parts;
  for (const Page& page : pages_) parts.push_back({page.data.get(), page.used});
  BatchResult result;
  result.error = socket.Send(parts);
  if (result.error == 0) ReadAnswers(socket, &result);
  return result;
}

namespace {

// Notes what the counter of a removed rule came to.
void NoteRemoval(const nlmsghdr* message, BatchResult* result) {
  const RuleObjectPtr rule(nftnl_rule_alloc());
  if (nftnl_rule_nlmsg_parse(message, rule.get()) < 0) return;
  result->last_hits[{nftnl_rule_get_str(rule.get(), NFTNL_RULE_TABLE),
                     nftnl_rule_get_u64(rule.get(), NFTNL_RULE_HANDLE)}] = CounterOf(rule.get());
}

}  // namespace

// The kernel has answered by the time that send() returned. It reports every message that it
// refuses; the first is the one to name, and what the others lead to if they overflow the buffer
// (ENOBUFS) is behind it.
void NftBatch::ReadAnswers(NetlinkSocket& socket, BatchResult* result) const {
  std::vector<char> buffer(1 << 16);
  bool done = false;
  int failure = 0;
  while (!done) {
    const ssize_t size = socket.Receive(buffer.data(), buffer.size(), /*wait=*/false);
    if (size < 0) {
      if (size == -ENOBUFS && failure == 0) {
        failure = -ENOBUFS;
        continue;
      }
      if (size != -EAGAIN || failure == 0) failure = static_cast<int>(size);
      break;
    }
    auto remaining = static_cast<int>(size);
    const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
    for (; mnl_nlmsg_ok(header, remaining); header = mnl_nlmsg_next(header, &remaining)) {
      const uint32_t index = header->nlmsg_seq - begin_sequence_;
      if (header->nlmsg_type == (NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_DELRULE)) {
        NoteRemoval(header, result);
      }
      if (header->nlmsg_type != NLMSG_ERROR || index > origins_.size()) continue;
      const int error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header))->error;
      done = done || (index == origins_.size() && error == 0);
      if (error == 0 || result->refused) continue;
      result->error = error;
      result->refused = true;
      if (index == 0 || origins_[index - 1].port == nullptr) continue;
      const MessageOrigin& origin = origins_[index - 1];
      result->port = *origin.port;
      result->slot = origin.slot;
      result->rule = origin.rule;
    }
  }
  if (result->refused || done) return;
  result->error = failure;
  result->unknown = true;
}

}  // namespace host
