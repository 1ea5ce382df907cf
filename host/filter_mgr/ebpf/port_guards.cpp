#include "host/filter_mgr/ebpf/port_guards.h"

#include <libmnl/libmnl.h>
#include <libnftnl/chain.h>
#include <libnftnl/common.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <libnftnl/table.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "host/filter_mgr/linux/table_event.h"

namespace host {
namespace {

constexpr char kTable[] = "acl-app-guard";
constexpr char kTrialTable[] = "acl-app-trial";
constexpr char kPreroutingChain[] = "guards";
constexpr int32_t kFirst = -500;  // ahead of connection tracking and of what others usually have
constexpr uint16_t kFind = 0;     // removes what is there, fails when nothing is

template <class T, void (*Free)(const T*)>
struct Deleter {
  void operator()(T* object) const { Free(object); }
};
using Table = std::unique_ptr<nftnl_table, Deleter<nftnl_table, nftnl_table_free>>;
using Chain = std::unique_ptr<nftnl_chain, Deleter<nftnl_chain, nftnl_chain_free>>;
using RuleObject = std::unique_ptr<nftnl_rule, Deleter<nftnl_rule, nftnl_rule_free>>;

Table MakeTable(const std::string& name) {
  Table table(nftnl_table_alloc());
  nftnl_table_set_str(table.get(), NFTNL_TABLE_NAME, name.c_str());
  return table;
}

Chain MakeChain(const std::string& table, const std::string& name) {
  Chain chain(nftnl_chain_alloc());
  nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_TABLE, table.c_str());
  nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_NAME, name.c_str());
  return chain;
}

RuleObject MakeRule(const std::string& chain) {
  RuleObject rule(nftnl_rule_alloc());
  nftnl_rule_set_str(rule.get(), NFTNL_RULE_TABLE, kTable);
  if (!chain.empty()) nftnl_rule_set_str(rule.get(), NFTNL_RULE_CHAIN, chain.c_str());
  return rule;
}

// Adds: the frame's `key` compares with the value as `op` says.
void AddTest(nftnl_rule* rule, uint32_t key, uint32_t op, const void* value, uint32_t size) {
  nftnl_expr* const meta = nftnl_expr_alloc("meta");
  nftnl_expr_set_u32(meta, NFTNL_EXPR_META_KEY, key);
  nftnl_expr_set_u32(meta, NFTNL_EXPR_META_DREG, NFT_REG_1);
  nftnl_rule_add_expr(rule, meta);
  nftnl_expr* const compare = nftnl_expr_alloc("cmp");
  nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_SREG, NFT_REG_1);
  nftnl_expr_set_u32(compare, NFTNL_EXPR_CMP_OP, op);
  nftnl_expr_set(compare, NFTNL_EXPR_CMP_DATA, value, size);
  nftnl_rule_add_expr(rule, compare);
}

void AddDrop(nftnl_rule* rule) {
  nftnl_rule_add_expr(rule, nftnl_expr_alloc("counter"));
  nftnl_expr* const verdict = nftnl_expr_alloc("immediate");
  nftnl_expr_set_u32(verdict, NFTNL_EXPR_IMM_DREG, NFT_REG_VERDICT);
  nftnl_expr_set_u32(verdict, NFTNL_EXPR_IMM_VERDICT, NF_DROP);
  nftnl_rule_add_expr(rule, verdict);
}

// What a guard's rule says, told by its comparisons.
struct GuardRule {
  std::string port;
  int interface = -1;
};

GuardRule ReadRule(nftnl_rule* rule) {
  GuardRule read;
  const auto take = [](nftnl_expr* expression, void* data) {
    auto* out = static_cast<GuardRule*>(data);
    if (strcmp(nftnl_expr_get_str(expression, NFTNL_EXPR_NAME), "cmp") != 0) return 0;
    uint32_t size = 0;
    const void* value = nftnl_expr_get(expression, NFTNL_EXPR_CMP_DATA, &size);
    if (size == sizeof(int)) {
      memcpy(&out->interface, value, size);
    } else {
      const auto* name = static_cast<const char*>(value);
      out->port.assign(name, strnlen(name, size));
    }
    return 0;
  };
  nftnl_expr_foreach(rule, take, &read);
  return read;
}

}  // namespace

// A transaction.
class PortGuards::Batch {
 public:
  explicit Batch(const char* table) : table_(table) {
    Append([](char* at) { return nftnl_batch_begin(at, 0); });
  }

  void AddTable(uint8_t family) {
    Add(NFT_MSG_NEWTABLE, family, NLM_F_CREATE,
        [this](nlmsghdr* m) { nftnl_table_nlmsg_build_payload(m, MakeTable(table_).get()); });
  }
  // Also when there is none.
  void RemoveTable(uint8_t family) {
    AddTable(family);
    Add(NFT_MSG_DELTABLE, family, kFind,
        [this](nlmsghdr* m) { nftnl_table_nlmsg_build_payload(m, MakeTable(table_).get()); });
  }
  // A base chain; with a device, on that device's ingress.
  void AddChain(uint8_t family, const std::string& name, const char* device) {
    const Chain chain = MakeChain(table_, name);
    const uint32_t hook =
        device != nullptr ? uint32_t{NF_NETDEV_INGRESS} : uint32_t{NF_INET_PRE_ROUTING};
    nftnl_chain_set_u32(chain.get(), NFTNL_CHAIN_HOOKNUM, hook);
    nftnl_chain_set_s32(chain.get(), NFTNL_CHAIN_PRIO, kFirst);
    nftnl_chain_set_u32(chain.get(), NFTNL_CHAIN_POLICY, NF_ACCEPT);
    nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_TYPE, "filter");
    if (device != nullptr) nftnl_chain_set_str(chain.get(), NFTNL_CHAIN_DEV, device);
    Add(NFT_MSG_NEWCHAIN, family, NLM_F_CREATE,
        [&](nlmsghdr* m) { nftnl_chain_nlmsg_build_payload(m, chain.get()); });
  }
  void RemoveChain(uint8_t family, const std::string& name) {
    Add(NFT_MSG_DELCHAIN, family, kFind,
        [&](nlmsghdr* m) { nftnl_chain_nlmsg_build_payload(m, MakeChain(table_, name).get()); });
  }
  void EmptyChain(uint8_t family, const std::string& name) {
    Add(NFT_MSG_DELRULE, family, kFind,
        [&](nlmsghdr* m) { nftnl_rule_nlmsg_build_payload(m, MakeRule(name).get()); });
  }
  void AddRule(uint8_t family, const nftnl_rule* rule) {
    Add(NFT_MSG_NEWRULE, family, NLM_F_CREATE | NLM_F_APPEND,
        [&](nlmsghdr* m) { nftnl_rule_nlmsg_build_payload(m, const_cast<nftnl_rule*>(rule)); });
  }

  // 0 or a negative errno: nothing was changed.
  int Commit(NetlinkSocket& socket) {
    Message(last_)->nlmsg_flags |= NLM_F_ACK;
    const uint32_t last = sequence_;
    Append([](char* at) { return nftnl_batch_end(at, 0); });
    int error = socket.Send({{bytes_.data(), bytes_.size()}});
    std::vector<char> answer(1 << 16);
    for (bool done = false; !done && error == 0;) {
      const ssize_t size = socket.Receive(answer.data(), answer.size(), /*wait=*/true);
      if (size < 0) return static_cast<int>(size);
      auto remaining = static_cast<int>(size);
      const auto* header = reinterpret_cast<const nlmsghdr*>(answer.data());
      for (; mnl_nlmsg_ok(header, remaining); header = mnl_nlmsg_next(header, &remaining)) {
        if (header->nlmsg_type != NLMSG_ERROR) continue;
        const int result = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header))->error;
        if (error == 0) error = result;
        done = done || header->nlmsg_seq == last || result != 0;
      }
    }
    // More than one message may have been refused.
    while (error != 0 && socket.Receive(answer.data(), answer.size(), /*wait=*/false) > 0) {
    }
    return error;
  }

 private:
  static constexpr size_t kLongest = 4096;

  nlmsghdr* Message(size_t at) { return reinterpret_cast<nlmsghdr*>(bytes_.data() + at); }

  template <class F>
  void Append(const F& build) {
    const size_t at = bytes_.size();
    bytes_.resize(at + kLongest);
    build(bytes_.data() + at);
    bytes_.resize(at + MNL_ALIGN(Message(at)->nlmsg_len));
  }
  template <class F>
  void Add(uint16_t type, uint8_t family, uint16_t flags, const F& fill) {
    last_ = bytes_.size();
    Append([&](char* at) {
      nlmsghdr* const message = nftnl_nlmsg_build_hdr(at, type, family, flags, ++sequence_);
      fill(message);
      return message;
    });
  }

  std::string table_;
  std::vector<char> bytes_;
  size_t last_ = 0;  // place of the last message
  uint32_t sequence_ = 0;
};

std::unique_ptr<PortGuards> PortGuards::Open(const NetlinkOpener& open, int* error) {
  auto socket = open({NETLINK_NETFILTER, 0, 0}, error);
  if (socket == nullptr) return nullptr;
  std::unique_ptr<PortGuards> guards(new PortGuards(std::move(socket)));
  // Listens before it reads, so that nothing is missed.
  guards->events_ = open({NETLINK_NETFILTER, NFNLGRP_NFTABLES, guards->socket_->port_id()}, error);
  if (guards->events_ == nullptr) return nullptr;
  *error = guards->ProbeKind();
  if (*error == 0) *error = guards->Read();
  return *error == 0 ? std::move(guards) : nullptr;
}

// Whether a chain can be bound to a name that no interface has, and whether frames can be caught
// before they are bridged; in transactions that undo what they do.
int PortGuards::ProbeKind() {
  Batch ingress(kTrialTable);
  ingress.AddTable(NFPROTO_NETDEV);
  ingress.AddChain(NFPROTO_NETDEV, "trial", "no-such-port");
  ingress.RemoveTable(NFPROTO_NETDEV);
  const int error = ingress.Commit(*socket_);
  kind_ = error == 0 ? Kind::kIngress : Kind::kPrerouting;
  families_ = {NFPROTO_NETDEV};
  if (error != -ENOENT) return error;
  families_ = {NFPROTO_INET};
  Batch bridge(kTrialTable);
  bridge.AddTable(NFPROTO_BRIDGE);
  bridge.AddChain(NFPROTO_BRIDGE, "trial", nullptr);
  bridge.RemoveTable(NFPROTO_BRIDGE);
  if (bridge.Commit(*socket_) == 0) families_.push_back(NFPROTO_BRIDGE);
  return 0;
}

int PortGuards::Read() {
  in_force_.clear();
  std::array<char, 512> buffer{};
  nlmsghdr* const request =
      nftnl_nlmsg_build_hdr(buffer.data(), NFT_MSG_GETRULE, families_.front(), NLM_F_DUMP, 0);
  nftnl_rule_nlmsg_build_payload(request, MakeRule("").get());
  constexpr int kAttempts = 10;
  int error = -EINTR;
  for (int i = 0; i < kAttempts && error == -EINTR; ++i) {
    error = NetlinkRequest(*socket_, request, [this](const nlmsghdr* message) {
      const RuleObject rule(nftnl_rule_alloc());
      if (nftnl_rule_nlmsg_parse(message, rule.get()) < 0) return false;
      // Kernels differ in whether they leave out other tables' rules.
      if (strcmp(nftnl_rule_get_str(rule.get(), NFTNL_RULE_TABLE), kTable) != 0) return true;
      GuardRule read = ReadRule(rule.get());
      if (kind_ == Kind::kIngress) read.port = nftnl_rule_get_str(rule.get(), NFTNL_RULE_CHAIN);
      in_force_[read.port] = read.interface;
      return true;
    });
  }
  return error == -ENOENT ? 0 : error;
}

bool PortGuards::Damaged() {
  std::vector<char> buffer(1 << 16);
  for (;;) {
    const ssize_t size = events_->Receive(buffer.data(), buffer.size(), /*wait=*/false);
    if (size == -ENOBUFS) damaged_ = true;  // nobody knows what was dropped
    if (size == -ENOBUFS || size == -EINTR) continue;
    if (size < 0) break;
    auto remaining = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
    for (; mnl_nlmsg_ok(message, remaining); message = mnl_nlmsg_next(message, &remaining)) {
      const TableEvent event = ReadTableEvent(message);
      damaged_ = damaged_ || (event.table == kTable &&
                              std::count(families_.begin(), families_.end(), event.family) != 0);
    }
  }
  return damaged_;
}

int PortGuards::Set(const Guards& guards) {
  if (guards == in_force_ && !damaged_) return 0;
  if (guards.empty()) return Remove();
  Batch batch(kTable);
  if (damaged_) {
    // Nothing that is there is relied on.
    for (uint8_t family : families_) batch.RemoveTable(family);
    Write({}, guards, &batch);
  } else {
    Write(in_force_, guards, &batch);
  }
  const int error = Send(&batch);
  if (error != 0) return error;
  in_force_ = guards;
  damaged_ = false;
  return 0;
}

// What makes `guards` of the ones `before`.
void PortGuards::Write(const Guards& before, const Guards& guards, Batch* batch) const {
  const auto add_rule = [batch](uint8_t family, const std::string& chain, const char* port,
                                int interface) {
    const RuleObject rule = MakeRule(chain);
    if (port != nullptr) {
      std::array<char, IFNAMSIZ> name{};
      strncpy(name.data(), port, name.size() - 1);
      AddTest(rule.get(), NFT_META_IIFNAME, NFT_CMP_EQ, name.data(), name.size());
    }
    AddTest(rule.get(), NFT_META_IIF, NFT_CMP_NEQ, &interface, sizeof(interface));
    AddDrop(rule.get());
    batch->AddRule(family, rule.get());
  };
  for (uint8_t family : families_) {
    batch->AddTable(family);
    if (kind_ == Kind::kPrerouting) {
      batch->AddChain(family, kPreroutingChain, nullptr);
      batch->EmptyChain(family, kPreroutingChain);
      for (const auto& [port, interface] : guards) {
        add_rule(family, kPreroutingChain, port.c_str(), interface);
      }
      continue;
    }
    for (const auto& [port, interface] : guards) {
      const auto now = before.find(port);
      if (now != before.end() && now->second == interface) continue;
      batch->AddChain(family, port, port.c_str());
      batch->EmptyChain(family, port);
      add_rule(family, port, nullptr, interface);
    }
    for (const auto& [port, interface] : before) {
      if (guards.count(port) == 0) batch->RemoveChain(family, port);
    }
  }
}

int PortGuards::Remove() {
  Batch batch(kTable);
  for (uint8_t family : families_) batch.RemoveTable(family);
  const int error = Send(&batch);
  if (error != 0) return error;
  in_force_.clear();
  damaged_ = false;
  return 0;
}

int PortGuards::Send(Batch* batch) {
  ++writes_;
  return batch->Commit(*socket_);
}

}  // namespace host
