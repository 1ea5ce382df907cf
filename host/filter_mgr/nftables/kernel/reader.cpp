#include "host/filter_mgr/nftables/kernel/reader.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/expr.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <vector>

#include "host/filter_mgr/nftables/kernel/codec.h"
#include "host/filter_mgr/nftables/kernel/objects.h"

namespace host {
namespace {

std::string Text(const char* text) { return text == nullptr ? "" : text; }

bool IsOurBaseChain(const nftnl_chain* chain, const std::string& port) {
  return nftnl_chain_get_u32(chain, NFTNL_CHAIN_HOOKNUM) == NF_NETDEV_INGRESS &&
         nftnl_chain_get_s32(chain, NFTNL_CHAIN_PRIO) == kHookPriority &&
         nftnl_chain_get_u32(chain, NFTNL_CHAIN_POLICY) == NF_ACCEPT &&
         Text(nftnl_chain_get_str(chain, NFTNL_CHAIN_DEV)) == port;
}

// Whether the rule leads from one linked chunk to the next.
bool IsLink(const Rule& rule) {
  return !rule.foreign && rule.outcome.verdict == Verdict::kGoto && !rule.outcome.counted &&
         rule.tests.empty();
}

HeldRule ToHeldRule(const nftnl_rule* object, const Guard& guard, GroupSlot slot) {
  HeldRule held;
  held.rule = std::make_shared<const Rule>(DecodeRule(object, guard, slot, &held.hits));
  held.handle = nftnl_rule_get_u64(object, NFTNL_RULE_HANDLE);
  return held;
}

}  // namespace

// A table as it comes together from the dumps of its parts.
class KernelReader::Assembly {
 public:
  Assembly(std::string port, uint32_t flags, bool of_another) : port_(std::move(port)) {
    table_.flags = flags;
    table_.of_another = of_another;
  }

  const std::string& port() const { return port_; }

  void AddChain(const nftnl_chain* chain) {
    const std::string name = Text(nftnl_chain_get_str(chain, NFTNL_CHAIN_NAME));
    const bool is_base = nftnl_chain_is_set(chain, NFTNL_CHAIN_HOOKNUM);
    if (is_base && name == kIngressChain) {
      has_ingress_ = true;
      intact_ = intact_ && IsOurBaseChain(chain, port_);
      return;
    }
    for (const GroupSlot slot : kSlots) {
      if (name != GroupChainName(slot)) continue;
      has_chain_[slot] = true;
      table_.on_hooks = table_.on_hooks || is_base;
      return;
    }
    const auto chunk = ParseChunkName(name);
    if (is_base || !chunk) {
      intact_ = false;
      return;
    }
    table_.groups[chunk->first].chunks[chunk->second];
  }

  void AddSet(const std::string& name, bool as_ours) {
    if (as_ours) {
      sets_.insert(name);
    } else {
      intact_ = false;
    }
  }

  bool has_ingress() const { return has_ingress_; }
  // What the base chain jumps to.
  void AddJumps(const std::vector<std::string>& chains) {
    intact_ =
        intact_ && chains == std::vector<std::string>{GroupChainName(kL2), GroupChainName(kL3)};
  }

  // Every chain that rules are read from, with the place that they go to. The chunks come behind
  // the group's own chain, which tells their guards.
  template <class F>
  void ForEachChain(const F& f) {
    for (const GroupSlot slot : kSlots) {
      HeldGroup& group = table_.groups[slot];
      if (has_chain_[slot]) f(slot, std::string(GroupChainName(slot)), &group.base);
      for (const HeldRule& held : group.base.rules) {
        const auto chunk = group.chunks.find(held.rule->outcome.chunk);
        if (IsJump(*held.rule) && chunk != group.chunks.end()) {
          chunk->second.guard = held.rule->tests;
        }
      }
      for (auto& [number, chunk] : group.chunks) {
        f(table_.VerdictsOf(slot), ChunkName(slot, number), &chunk);
      }
    }
  }

  HeldTable Finish() {
    // A dormant table, for one, is left out by the kernel however it is built.
    const bool plain = (table_.flags & ~(kTableOwner | kTablePersist)) == 0;
    table_.sound = intact_ && plain && has_ingress_ && has_chain_[kL2] && has_chain_[kL3] &&
                   !table_.on_hooks && sets_.size() == FixedSets().size();
    for (const GroupSlot slot : kSlots) {
      const bool linked = ChunkOrderOf(slot) == ChunkOrder::kLinks && !table_.on_hooks;
      HeldGroup* const group = &table_.groups[slot];
      if (linked ? !FollowLinks(group) : !OrderChunks(group)) table_.sound = false;
    }
    return std::move(table_);
  }

 private:
  static bool IsJump(const Rule& rule) {
    return !rule.foreign && rule.outcome.verdict == Verdict::kJump && !rule.outcome.counted &&
           std::all_of(rule.tests.begin(), rule.tests.end(), CanGuard);
  }

  // Derives the order from the links; false unless they lead through every chunk once.
  static bool FollowLinks(HeldGroup* group) {
    const auto& rules = group->base.rules;
    const auto first = std::find_if(rules.begin(), rules.end(),
                                    [](const HeldRule& held) { return IsLink(*held.rule); });
    const HeldRule* link = first == rules.end() ? nullptr : &*first;
    bool sound = rules.size() == (link == nullptr ? 0 : 1);
    std::set<uint32_t> seen;
    while (link != nullptr) {
      const auto chunk = group->chunks.find(link->rule->outcome.chunk);
      if (chunk == group->chunks.end() || !seen.insert(chunk->first).second) {
        sound = false;
        break;
      }
      group->order.push_back(chunk->first);
      link = chunk->second.link ? &*chunk->second.link : nullptr;
    }
    if (!group->chunks.empty()) group->next_chunk = group->chunks.rbegin()->first + 1;
    return sound && seen.size() == group->chunks.size();
  }

  // Derives the order from the jumps; false unless they are the chain's only rules and name every
  // chunk once.
  static bool OrderChunks(HeldGroup* group) {
    bool sound = true;
    std::set<uint32_t> seen;
    for (const HeldRule& held : group->base.rules) {
      const Rule& rule = *held.rule;
      if (!IsJump(rule) || group->chunks.count(rule.outcome.chunk) == 0 ||
          !seen.insert(rule.outcome.chunk).second) {
        sound = false;
        continue;
      }
      group->order.push_back(rule.outcome.chunk);
    }
    if (!group->chunks.empty()) group->next_chunk = group->chunks.rbegin()->first + 1;
    return sound && seen.size() == group->chunks.size();
  }

  std::string port_;
  HeldTable table_;
  bool intact_ = true;  // nothing but what belongs here
  bool has_ingress_ = false;
  std::array<bool, kGroupSlots> has_chain_{};
  std::set<std::string> sets_;
};

int KernelReader::Dump(uint16_t type, const std::function<void(nlmsghdr*)>& fill,
                       const std::function<void()>& restart, const MessageSink& sink) {
  constexpr int kAttempts = 10;
  int error = 0;
  for (int i = 0; i < kAttempts; ++i) {
    restart();
    std::vector<char> buffer(1024);
    nlmsghdr* request = nftnl_nlmsg_build_hdr(buffer.data(), type, NFPROTO_NETDEV, NLM_F_DUMP, 0);
    fill(request);
    error = NetlinkRequest(*socket_, request, sink);
    if (error != -EINTR) break;
  }
  return error;
}

int KernelReader::ReadGeneration(uint32_t* generation) {
  char buffer[256];
  nlmsghdr* request = nftnl_nlmsg_build_hdr(buffer, NFT_MSG_GETGEN, AF_UNSPEC, 0, 0);
  return NetlinkRequest(*socket_, request, [generation](const nlmsghdr* message) {
    bool found = false;
    ForEachAttribute(message, sizeof(nfgenmsg), [&](const nlattr* attribute) {
      if (mnl_attr_get_type(attribute) != NFTA_GEN_ID) return;
      *generation = ntohl(mnl_attr_get_u32(attribute));
      found = true;
    });
    return found;
  });
}

int KernelReader::DumpChains(std::map<std::string, Assembly>* assemblies) {
  std::vector<ChainPtr> chains;
  const int error = Dump(
      NFT_MSG_GETCHAIN, [](nlmsghdr*) {}, [&chains] { chains.clear(); },
      [&](const nlmsghdr* message) {
        ChainPtr chain(nftnl_chain_alloc());
        if (nftnl_chain_nlmsg_parse(message, chain.get()) < 0) return false;
        const std::string table = Text(nftnl_chain_get_str(chain.get(), NFTNL_CHAIN_TABLE));
        if (assemblies->count(table) != 0) chains.push_back(std::move(chain));
        return true;
      });
  for (const ChainPtr& chain : chains) {
    assemblies->at(nftnl_chain_get_str(chain.get(), NFTNL_CHAIN_TABLE)).AddChain(chain.get());
  }
  return error;
}

int KernelReader::DumpSets(std::map<std::string, Assembly>* assemblies) {
  std::vector<SetPtr> sets;
  int error = Dump(
      NFT_MSG_GETSET, [](nlmsghdr*) {}, [&sets] { sets.clear(); },
      [&](const nlmsghdr* message) {
        SetPtr set(nftnl_set_alloc());
        if (nftnl_set_nlmsg_parse(message, set.get()) < 0) return false;
        const std::string table = Text(nftnl_set_get_str(set.get(), NFTNL_SET_TABLE));
        if (assemblies->count(table) != 0) sets.push_back(std::move(set));
        return true;
      });
  for (const SetPtr& set : sets) {
    const std::string name = Text(nftnl_set_get_str(set.get(), NFTNL_SET_NAME));
    const std::string table = nftnl_set_get_str(set.get(), NFTNL_SET_TABLE);
    bool as_ours = false;
    for (const FixedSet& fixed : FixedSets()) {
      if (error != 0 || name != fixed.name ||
          nftnl_set_get_u32(set.get(), NFTNL_SET_KEY_LEN) != fixed.key_length ||
          nftnl_set_get_u32(set.get(), NFTNL_SET_FLAGS) != NFT_SET_CONSTANT) {
        continue;
      }
      error = DumpElements(table, fixed, &as_ours);
    }
    assemblies->at(table).AddSet(name, as_ours);
  }
  return error;
}

int KernelReader::DumpElements(const std::string& table, const FixedSet& set, bool* equal) {
  std::set<std::vector<uint8_t>> keys;
  const int error = Dump(
      NFT_MSG_GETSETELEM,
      [&](nlmsghdr* request) {
        mnl_attr_put_strz(request, NFTA_SET_ELEM_LIST_TABLE, table.c_str());
        mnl_attr_put_strz(request, NFTA_SET_ELEM_LIST_SET, set.name);
      },
      [&keys] { keys.clear(); },
      [&](const nlmsghdr* message) {
        const SetPtr object(nftnl_set_alloc());
        if (nftnl_set_elems_nlmsg_parse(message, object.get()) < 0) return false;
        nftnl_set_elems_iter* iterator = nftnl_set_elems_iter_create(object.get());
        while (nftnl_set_elem* element = nftnl_set_elems_iter_next(iterator)) {
          uint32_t size = 0;
          const auto* key =
              static_cast<const uint8_t*>(nftnl_set_elem_get(element, NFTNL_SET_ELEM_KEY, &size));
          keys.insert({key, key + std::min(size, set.key_length)});
        }
        nftnl_set_elems_iter_destroy(iterator);
        return true;
      });
  *equal = keys == std::set<std::vector<uint8_t>>(set.keys.begin(), set.keys.end());
  return error;
}

int KernelReader::DumpRules(const std::string& table, const std::string& chain,
                            const std::function<void(const nftnl_rule*)>& sink) {
  return Dump(
      NFT_MSG_GETRULE,
      [&](nlmsghdr* request) {
        mnl_attr_put_strz(request, NFTA_RULE_TABLE, table.c_str());
        mnl_attr_put_strz(request, NFTA_RULE_CHAIN, chain.c_str());
      },
      [&] { sink(nullptr); },
      [&](const nlmsghdr* message) {
        const RuleObjectPtr rule(nftnl_rule_alloc());
        if (nftnl_rule_nlmsg_parse(message, rule.get()) < 0) return false;
        sink(rule.get());
        return true;
      });
}

int KernelReader::DumpIngress(const std::string& port, std::vector<std::string>* chains) {
  return DumpRules(TableName(port), kIngressChain, [chains](const nftnl_rule* rule) {
    if (rule == nullptr) {
      chains->clear();
    } else {
      chains->push_back(DecodeJump(rule));
    }
  });
}

int KernelReader::ReadFiltered(const std::string* only_port, HeldTables* tables) {
  std::map<std::string, Assembly> assemblies;
  int error = Dump(
      NFT_MSG_GETTABLE, [](nlmsghdr*) {}, [&assemblies] { assemblies.clear(); },
      [&](const nlmsghdr* message) {
        const TablePtr table(nftnl_table_alloc());
        if (nftnl_table_nlmsg_parse(message, table.get()) < 0) return false;
        const std::string name = Text(nftnl_table_get_str(table.get(), NFTNL_TABLE_NAME));
        const auto port = PortOfTable(name);
        if (!port || (only_port != nullptr && *port != *only_port)) return true;
        const uint32_t owner = nftnl_table_get_u32(table.get(), NFTNL_TABLE_OWNER);  // 0: nobody
        assemblies.emplace(name,
                           Assembly(*port, nftnl_table_get_u32(table.get(), NFTNL_TABLE_FLAGS),
                                    owner != 0 && owner != socket_->port_id()));
        return true;
      });
  if (error == 0 && !assemblies.empty()) error = DumpChains(&assemblies);
  if (error == 0 && !assemblies.empty()) error = DumpSets(&assemblies);
  if (error != 0) return error;
  HeldTables result;
  for (auto& [name, assembly] : assemblies) {
    const std::string& port = assembly.port();
    if (assembly.has_ingress()) {
      std::vector<std::string> chains;
      error = DumpIngress(port, &chains);
      assembly.AddJumps(chains);
    }
    assembly.ForEachChain([&](GroupSlot slot, const std::string& chain, HeldChain* rules) {
      if (error == 0) error = ReadChain(port, slot, chain, rules);
    });
    if (error != 0) return error;
    result.emplace(assembly.port(), assembly.Finish());
  }
  *tables = std::move(result);
  return 0;
}

int KernelReader::ReadPorts(std::vector<std::string>* ports, std::vector<std::string>* unowned) {
  std::vector<std::string> result, free;
  const auto start_over = [&] {
    result.clear();
    free.clear();
  };
  const int error = Dump(
      NFT_MSG_GETTABLE, [](nlmsghdr*) {}, start_over,
      [&](const nlmsghdr* message) {
        const TablePtr table(nftnl_table_alloc());
        if (nftnl_table_nlmsg_parse(message, table.get()) < 0) return false;
        const auto port = PortOfTable(Text(nftnl_table_get_str(table.get(), NFTNL_TABLE_NAME)));
        if (!port) return true;
        result.push_back(*port);
        if (nftnl_table_get_u32(table.get(), NFTNL_TABLE_OWNER) == 0) free.push_back(*port);
        return true;
      });
  if (error != 0) return error;
  *ports = std::move(result);
  if (unowned != nullptr) *unowned = std::move(free);
  return 0;
}

int KernelReader::ReadTables(HeldTables* tables) { return ReadFiltered(nullptr, tables); }

int KernelReader::ReadTable(const std::string& port, std::optional<HeldTable>* table) {
  HeldTables tables;
  const int error = ReadFiltered(&port, &tables);
  if (error != 0) return error;
  const auto it = tables.find(port);
  *table = it == tables.end() ? std::nullopt : std::make_optional(std::move(it->second));
  return 0;
}

int KernelReader::ReadChain(const std::string& port, GroupSlot slot, const std::string& chain,
                            HeldChain* rules) {
  HeldChain result{rules->guard, {}};
  const int error = DumpRules(TableName(port), chain, [&](const nftnl_rule* rule) {
    if (rule == nullptr) {
      result.rules.clear();
    } else {
      result.rules.push_back(ToHeldRule(rule, result.guard, slot));
    }
  });
  if (error != 0 && error != -ENOENT) return error;
  if (ParseChunkName(chain) && !result.rules.empty() && IsLink(*result.rules.back().rule)) {
    result.link = std::move(result.rules.back());
    result.rules.pop_back();
  }
  *rules = std::move(result);
  return 0;
}

int KernelReader::ReadHits(const std::string& port, GroupSlot slot, uint32_t chunk,
                           std::vector<Hits>* hits) {
  std::vector<Hits> result;
  const int error =
      DumpRules(TableName(port), ChunkName(slot, chunk), [&result](const nftnl_rule* rule) {
        if (rule == nullptr) {
          result.clear();
        } else {
          result.push_back(CounterOf(rule));
        }
      });
  if (error == 0) *hits = std::move(result);
  return error;
}

}  // namespace host
