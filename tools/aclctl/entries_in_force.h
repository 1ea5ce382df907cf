// The entries of the filter groups, as the daemon shows them: which ones an operator asks for, and
// what they say.
#ifndef TOOLS_ACLCTL_ENTRIES_IN_FORCE_H_
#define TOOLS_ACLCTL_ENTRIES_IN_FORCE_H_

#include <string>

#include "tools/aclctl/command.h"

namespace aclctl {

// Which entries are shown: those that all given conditions hold for.
struct EntryFilter {
  std::string port;
  std::string profile;
  std::string covers;  // an IPv4 or a MAC address
  bool hit = false;    // only those that have decided a frame

  bool empty() const { return port.empty() && profile.empty() && covers.empty() && !hit; }
};

// Declares the options.
void AddEntryFilter(Syntax* syntax, EntryFilter* filter);
// What is wrong with it (kUsage).
Failure CheckEntryFilter(const EntryFilter& filter);
// Whether `entry`, of acl-app-filters, is to be shown.
bool Shows(const EntryFilter& filter, const lyd_node* entry);

// In the words of words.h.
std::string MatchOf(const lyd_node* entry);
std::string ActionOf(const lyd_node* entry);
std::string PortsOf(const lyd_node* entry);

// Whether `pattern`, an address in the form of the groups ("10.0.0.0/8", "aa:bb:cc:dd:ee:ff") with
// its mask (a length, or an address whose ones are compared; empty: all), has `address` in it.
bool CoversIpv4(const std::string& pattern, const std::string& address);
bool CoversMac(const std::string& pattern, const std::string& mask, const std::string& address);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_ENTRIES_IN_FORCE_H_
