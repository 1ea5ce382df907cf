// The parts of the reader of openconfig-acl (read_openconfig.cpp): the sets that entries name, and
// the conditions of an entry.
#ifndef HOST_STANDARD_OPENCONFIG_PARTS_H_
#define HOST_STANDARD_OPENCONFIG_PARTS_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/standard/statements.h"

namespace host::standard {

// The name of a node of openconfig-acl.
std::string_view NameInOpenConfig(const Node& node);

// The container `config` of a node, where the values are; null where there is none.
const Node* ConfigIn(const Node& node);

// Whether it is state, or a container that is there without anything in it.
bool SaysNothing(const Node& node);

// "80", "1024..2047", or "ANY", which are all; nothing for other texts.
std::optional<Range> PortsOfOpenConfig(const std::string& text);

// Adds the sets in the container defined-sets of openconfig-defined-sets; what there is to tell of
// it goes into the lists.
void ReadOpenConfigSets(const Node& sets, DefinedSets* defined, AccessLists* lists);

// A container of an entry whose container `config` has conditions: l2, ipv4, transport.
void ReadOpenConfigFields(const Node& container, const std::string& path, Reading* reading);

// Refuses what is configured in a node that nothing here is like.
void RefuseConfigured(const Node& node, const std::string& path, Reading* reading);

// Adds what follows from the type of the list: which packets an entry is about.
void CompleteOpenConfig(const Acl& acl, const Ace& ace, Reading* reading);

}  // namespace host::standard

#endif  // HOST_STANDARD_OPENCONFIG_PARTS_H_
