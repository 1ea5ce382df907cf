// Configurations of any size, for the benchmarks.
#ifndef BENCH_CONFIGURATION_H_
#define BENCH_CONFIGURATION_H_

#include <string>

#include "model/acl_cache.h"

// Entries of profile number `profile`, all with a source address, a protocol, a destination port
// and a deny; no two are alike.
struct EntryValues {
  in_addr source;  // network byte order
  uint8_t protocol;
  uint16_t port;
};
EntryValues ValuesOf(int profile, int entry);

std::string ProfileName(int profile);
std::string InterfaceName(int interface);

// Fills the model with `entries` entries, spread evenly over `profiles` L3 profiles.
void FillProfiles(acl_app::AclCache* cache, int profiles, int entries);
// Binds every profile to an interface of its own.
void BindProfiles(acl_app::AclCache* cache, int profiles);

// The same configuration as a JSON document of the configuration's schema.
std::string ConfigurationJson(int profiles, int entries);
// And as the content of an edit's <config>.
std::string ConfigurationXml(int profiles, int entries);
// An edit of it, in JSON: gives one entry another destination port.
std::string OneEntryJson(int profile, int entry, int port);

#endif  // BENCH_CONFIGURATION_H_
