#include "host/filter_mgr/trace_operation.h"

#include <arpa/inet.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <list>

#include "host/filter_mgr/entry_text.h"
#include "host/filter_mgr/interface_state.h"
#include "host/filter_mgr/match/trace.h"
#include "host/runtime/tree_writer.h"

namespace host {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::MatchIngressPorts;

// Entries told as missed, in each group; the rest are counted.
constexpr size_t kMostMissed = 1000;

const char* TextOf(const lyd_node* input, const char* name) {
  for (const lyd_node* child = lyd_child(input); child != nullptr; child = child->next) {
    if (child->schema != nullptr && strcmp(child->schema->name, name) == 0) {
      return lyd_get_value(child);
    }
  }
  return nullptr;
}

// The bytes that hexadecimal digits stand for; empty when they are not such.
Frame FromHex(const std::string& digits) {
  constexpr char kDigits[] = "0123456789abcdefABCDEF";
  Frame frame;
  if (digits.size() % 2 != 0 || digits.find_first_not_of(kDigits) != std::string::npos) {
    return frame;
  }
  for (size_t i = 0; i < digits.size(); i += 2) {
    frame.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return frame;
}

std::string Text(const ether_addr& mac) {
  char text[18];
  const auto& b = mac.ether_addr_octet;
  snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
  return text;
}

std::string Ipv4Text(uint32_t address) {
  const in_addr network = {htonl(address)};
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &network, text, sizeof(text));
}

std::string Hex16(uint16_t value) {
  char text[8];
  snprintf(text, sizeof(text), "0x%04x", value);
  return text;
}

// The id of the interface among the ports that the groups name; 0 where they do not name it.
limid_t FindPort(const std::vector<const SentGroup*>& groups, const std::string& interface,
                 const PortNames& names) {
  for (const SentGroup* group : groups) {
    const std::list<limid_t>* last = nullptr;  // runs of entries share their list
    for (const auto& [id, entry] : (*group)->getEntriesRef()) {
      const auto* match = static_cast<const MatchIngressPorts*>(
          entry.findMatch(FiltersCommon::FILTERS_MATCH_INGRESS_PORTS));
      if (match == nullptr || &match->ports() == last) continue;
      last = &match->ports();
      for (const limid_t port : *last) {
        if (names(port) == interface) return port;
      }
    }
  }
  return 0;
}

class TraceWriter {
 public:
  TraceWriter(const lys_module* module, bool with_missed)
      : writer_(module, /*output=*/true), with_missed_(with_missed) {}

  lyd_node* Write(const FrameTrace& trace, const FrameFields& fields, const char* enforcement) {
    lyd_node* top = writer_.Inner(nullptr, "trace");
    WriteFields(writer_.Inner(top, "frame"), fields);
    for (const GroupTrace& group : trace.groups) WriteGroup(top, group);
    writer_.Leaf(top, "verdict", trace.dropped ? "dropped" : "passed");
    const auto pcp = ParseFrame(trace.frame).pcp();
    if (!trace.dropped && pcp != fields.pcp()) writer_.Leaf(top, "pcp", *pcp);
    if (!trace.dropped && trace.queue) writer_.Leaf(top, "queue", *trace.queue);
    writer_.Leaf(top, "filters", enforcement);
    if (writer_.ok()) return top;
    lyd_free_all(top);
    return nullptr;
  }

 private:
  void WriteFields(lyd_node* node, const FrameFields& f) {
    writer_.Leaf(node, "destination-mac-address", Text(f.destination));
    writer_.Leaf(node, "source-mac-address", Text(f.source));
    writer_.Leaf(node, "ethertype", Hex16(f.after_source));
    Number(node, "vlan", f.vlan());
    Number(node, "pcp", f.pcp());
    if (f.tags != 0 && f.ethertype) writer_.Leaf(node, "inner-ethertype", Hex16(*f.ethertype));
    Number(node, "tos", f.tos);
    if (f.source_ip) writer_.Leaf(node, "source-ipv4-address", Ipv4Text(*f.source_ip));
    if (f.destination_ip) {
      writer_.Leaf(node, "destination-ipv4-address", Ipv4Text(*f.destination_ip));
    }
    Number(node, "ip-protocol", f.protocol);
    Number(node, "destination-port", f.destination_port);
    if (f.tags > 1) writer_.Leaf(node, "note", "two tags: nothing behind them is compared");
    if (*f.why_no_port != '\0') {
      writer_.Leaf(node, "note", std::string("no destination port: ") + f.why_no_port);
    }
  }

  template <class Value>
  void Number(lyd_node* node, const char* name, const std::optional<Value>& value) {
    if (value) writer_.Leaf(node, name, *value);
  }

  void WriteGroup(lyd_node* top, const GroupTrace& step) {
    lyd_node* node = writer_.List(top, "group", std::string(step.slot == kL2 ? "l2" : "l3"));
    if (step.decider != nullptr) {
      lyd_node* decider = writer_.Inner(node, "decided-by");
      writer_.Leaf(decider, "id", step.decider->getId());
      WriteOrigin(decider, step, *step.decider);
      writer_.Leaf(decider, "text", EntryText(*step.decider));
    }
    writer_.Leaf(node, "missed-entries", step.missed_count);
    if (!with_missed_) return;
    for (const FiltersEntry* entry : step.missed) {
      lyd_node* missed = writer_.List(node, "missed", std::to_string(entry->getId()));
      WriteOrigin(missed, step, *entry);
      for (const auto& match : entry->getMatches()) {
        if (!MatchHolds(*match, step.fields)) writer_.Leaf(missed, "match", MatchText(*match));
      }
    }
  }

  void WriteOrigin(lyd_node* node, const GroupTrace& step, const FiltersEntry& entry) {
    const EntryOrigin origin = step.group->OriginOf(entry.getId());
    if (!origin.known()) return;
    writer_.Leaf(node, "interface", *origin.interface);
    writer_.Leaf(node, "profile", *origin.profile);
    writer_.Leaf(node, "ace-priority", origin.ace_priority);
  }

  TreeWriter writer_;
  const bool with_missed_;
};

}  // namespace

lyd_node* AnswerTrace(const lyd_node* input, const GroupTable& table, const PortNames& names,
                      std::string* error) {
  const char* const interface = TextOf(input, "interface");
  const char* const digits = TextOf(input, "frame");
  const Frame frame = digits == nullptr ? Frame() : FromHex(digits);
  if (interface == nullptr || frame.size() < kShortestFrame) {
    *error = "an interface is needed, and a frame of " + std::to_string(kShortestFrame) +
             " bytes or more, two digits each";
    return nullptr;
  }
  std::vector<const SentGroup*> groups;
  for (const auto& [key, group] : table.groups()) groups.push_back(&group);
  const limid_t port = FindPort(groups, interface, names);
  const bool why = TextOf(input, "why") != nullptr;
  const FrameTrace trace = TraceFrame(groups, port, frame, why ? kMostMissed : 0);
  const char* const enforcement = port == 0 ? "none" : EnforcementOn(interface, table.backend());
  lyd_node* output =
      TraceWriter(input->schema->module, why).Write(trace, ParseFrame(frame), enforcement);
  if (output == nullptr) *error = ly_errmsg(input->schema->module->ctx);
  return output;
}

}  // namespace host
