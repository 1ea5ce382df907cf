// Our configuration (module acl-app) to and from plain profiles.
#ifndef HOST_STANDARD_CONFIGURATION_H_
#define HOST_STANDARD_CONFIGURATION_H_

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/cdb/schema/cdb_schema.h"
#include "host/cdb/schema/entry_leaves.h"
#include "host/cdb/schema/yang_tree.h"
#include "host/standard/document.h"
#include "host/standard/profiles.h"

namespace host::standard {

// Reads single entries of a profile: data of acl-app in `context`, which must have been made with
// LY_CTX_SET_PRIV_PARSED (see host/cdb/schema/schema.h).
class EntryReader {
 public:
  explicit EntryReader(const ly_ctx* context);

  // The entry (a node of the list access-list-entry).
  ProfileEntry Read(const lyd_node* entry) const;

 private:
  void ReadLeaves(const lyd_node* siblings, ProfileEntry* entry) const;

  const CdbSchema schema_;
  const EntryLeaves known_;
};

// The configuration from the node `first` on (null: empty), data of acl-app in `context`, made
// as for EntryReader.
Profiles ReadConfiguration(const ly_ctx* context, const lyd_node* first);

// The numbers that values of matches have by name, such as the protocol tcp.
class MatchNames {
 public:
  MatchNames() = default;  // none
  // Those of acl-app in `context`, made as for EntryReader.
  explicit MatchNames(const ly_ctx* context);

  // The number that `name` is, as a value of the leaf `leaf` of match.
  std::optional<uint32_t> Find(std::string_view leaf, const std::string& name) const;

 private:
  std::map<std::string, std::unordered_map<std::string, uint32_t>, std::less<>> leaves_;
};

// The same from a document, which takes a third of the time, where all of it is plain: numbers or
// names that `names` knows, keys in front, as it is when it comes from here or from the daemon.
// Nothing where it is not, or where anything is not valid: a parser that knows the schema then
// reads it, or says what is wrong.
std::optional<Profiles> ReadPlainConfiguration(const Document& document, Format format,
                                               const MatchNames& names = {});

// The profiles as a document of acl-app. Values are numbers where they could be names.
void WriteConfiguration(const Profiles& profiles, Document* document);

// "a.b.c.d/length" or, under a whole mask, with `bare`, "a.b.c.d"; "aa:bb:cc:dd:ee:ff".
std::string PrefixText(const Value& value, bool bare);
std::string MacText(uint64_t address);

}  // namespace host::standard

#endif  // HOST_STANDARD_CONFIGURATION_H_
