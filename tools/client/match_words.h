// The words in which entries are shown, whoever shows them: one table, and what is made of it.
#ifndef TOOLS_CLIENT_MATCH_WORDS_H_
#define TOOLS_CLIENT_MATCH_WORDS_H_

#include <string>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace client {

struct MatchWord {
  enum class Kind {
    kLeaf,  // a leaf of match
    kMac,   // a leaf, with its mask in another: aa:bb:cc:dd:ee:ff/ff:ff:ff:00:00:00
    kIpv4,  // a container with the address in one of two forms: 10.0.0.0/8, 10.0.0.1
  };
  const char* word;   // as it is shown
  const char* brief;  // taken as well
  const char* node;   // child of match
  Kind kind = Kind::kLeaf;
};

// In the order of a frame's fields.
const std::vector<MatchWord>& MatchWords();
// Name of the leaf that holds the mask of a MAC address.
std::string MaskOf(const MatchWord& word);

// What the containers of a configured entry hold, read without a schema (GenericXml): "src-ip
// 10.0.0.0/8 protocol tcp", "any"; "deny", "permit, set-pcp 5", "none". Null is an empty container.
std::string MatchText(const lyd_node* match);
std::string ActionText(const lyd_node* action);

}  // namespace client

#endif  // TOOLS_CLIENT_MATCH_WORDS_H_
