// The entries of the filter groups: see entries_in_force.h.
#include "tools/aclctl/entries_in_force.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/words.h"

namespace aclctl {
namespace {

// In host byte order.
bool ReadIpv4(const std::string& text, uint32_t* address) {
  in_addr parsed{};
  if (inet_pton(AF_INET, text.c_str(), &parsed) != 1) return false;
  *address = ntohl(parsed.s_addr);
  return true;
}

bool ReadMac(const std::string& text, uint64_t* address) {
  unsigned octets[6];
  char rest = 0;
  if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &octets[0], &octets[1], &octets[2],
                  &octets[3], &octets[4], &octets[5], &rest) != 6) {
    return false;
  }
  *address = 0;
  for (const unsigned octet : octets) *address = *address << 8 | octet;
  return true;
}

// Whether an address that the entry matches has `address` in it.
bool Covers(const lyd_node* match, const std::string& address) {
  for (const MatchWord& word : MatchWords()) {
    const std::string value = ChildText(match, word.node);
    if (value.empty()) continue;
    if (word.kind == MatchWord::Kind::kIpv4 && CoversIpv4(value, address)) return true;
    if (word.kind == MatchWord::Kind::kMac &&
        CoversMac(value, ChildText(match, MaskOf(word)), address)) {
      return true;
    }
  }
  return false;
}

bool HasPort(const lyd_node* entry, const std::string& name) {
  const auto ports = Children(entry, "port");
  for (const lyd_node* port : ports) {
    if (host::XmlText(port) == name) return true;
  }
  return ports.empty();  // it holds for all
}

}  // namespace

bool CoversIpv4(const std::string& pattern, const std::string& address) {
  const size_t slash = pattern.find('/');
  uint32_t wanted = 0, value = 0, mask = 0xffffffff;
  if (!ReadIpv4(address, &wanted) || !ReadIpv4(pattern.substr(0, slash), &value)) return false;
  if (slash != std::string::npos && !ReadIpv4(pattern.substr(slash + 1), &mask)) {
    const unsigned long length = std::strtoul(pattern.c_str() + slash + 1, nullptr, 10);
    mask = length == 0 ? 0 : 0xffffffff << (32 - length);
  }
  return ((wanted ^ value) & mask) == 0;
}

bool CoversMac(const std::string& pattern, const std::string& mask, const std::string& address) {
  uint64_t wanted = 0, value = 0, compared = 0xffffffffffff;
  if (!ReadMac(address, &wanted) || !ReadMac(pattern, &value)) return false;
  if (!mask.empty() && !ReadMac(mask, &compared)) return false;
  return ((wanted ^ value) & compared) == 0;
}

void AddEntryFilter(Syntax* syntax, EntryFilter* filter) {
  syntax->Option("--port", "INTERFACE", &filter->port, "entries of this interface",
                 Names::kInterfaces);
  syntax->Option("--acl", "PROFILE", &filter->profile, "entries of this profile", Names::kProfiles);
  syntax->Option("--covers", "ADDRESS", &filter->covers,
                 "entries that match an IPv4 or MAC address or range with this address in it");
  syntax->Flag("--hit", &filter->hit, "entries that have decided a frame");
}

Failure CheckEntryFilter(const EntryFilter& filter) {
  uint32_t ipv4 = 0;
  uint64_t mac = 0;
  if (filter.covers.empty() || ReadIpv4(filter.covers, &ipv4) || ReadMac(filter.covers, &mac)) {
    return {};
  }
  return {
      kUsage,
      "--covers takes an address like 10.1.2.3 or 00:11:22:33:44:55, not \"" + filter.covers + "\"",
      {}};
}

bool Shows(const EntryFilter& filter, const lyd_node* entry) {
  if (!filter.port.empty() && !HasPort(entry, filter.port)) return false;
  if (!filter.profile.empty() && ChildText(entry, "profile") != filter.profile) return false;
  if (!filter.covers.empty() && !Covers(FindChild(entry, "match"), filter.covers)) return false;
  const std::string packets = ChildText(FindChild(entry, "hits"), "packets");
  return !filter.hit || (!packets.empty() && packets != "0");
}

std::string MatchOf(const lyd_node* entry) {
  const lyd_node* const match = FindChild(entry, "match");
  std::string text;
  for (const MatchWord& word : MatchWords()) {
    const std::string value = ChildText(match, word.node);
    if (value.empty()) continue;
    const std::string mask = ChildText(match, MaskOf(word));
    text += std::string(text.empty() ? "" : " ") + word.word + " " + value +
            (mask.empty() ? "" : "/" + mask);
  }
  return text.empty() ? "any" : text;
}

std::string ActionOf(const lyd_node* entry) {
  std::string text;
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(FindChild(entry, "action")), child) {
    if (!text.empty()) text += ", ";
    text += host::XmlName(child);
    if (!host::XmlText(child).empty()) text += " " + std::string(host::XmlText(child));
  }
  return text.empty() ? "none" : text;
}

std::string PortsOf(const lyd_node* entry) {
  std::string text;
  for (const lyd_node* port : Children(entry, "port")) {
    text += (text.empty() ? "" : ",") + std::string(host::XmlText(port));
  }
  return text.empty() ? "any" : text;
}

}  // namespace aclctl
