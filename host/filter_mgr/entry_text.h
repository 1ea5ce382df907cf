// Matches and actions of an entry as text, for people: one row per leaf of the operational module.
#ifndef HOST_FILTER_MGR_ENTRY_TEXT_H_
#define HOST_FILTER_MGR_ENTRY_TEXT_H_

#include <functional>
#include <string>

#include "platform/filters_common/filters_entry.h"

namespace host {

// Takes the name of a leaf and its value; the value is empty for a leaf that has none.
using LeafSink = std::function<void(const char* leaf, const char* value)>;

// The leaves of the container "match" (ingress ports are not among them), in order of match kind.
// Masks are given as the bits that are compared.
void ForEachMatchLeaf(const FiltersCommon::FiltersEntry& entry, const LeafSink& sink);
// The leaves of the container "action".
void ForEachActionLeaf(const FiltersCommon::FiltersEntry& entry, const LeafSink& sink);

// A match of an entry, ports aside, such as "destination-port 22".
std::string MatchText(const FiltersCommon::Match& match);

// One line such as "destination-port 22, ip-protocol 6: deny".
std::string EntryText(const FiltersCommon::FiltersEntry& entry);

}  // namespace host

#endif  // HOST_FILTER_MGR_ENTRY_TEXT_H_
