// The words in which entries are written and shown: one table for the command line, the files of
// lines and the tables. Every leaf of the schema's match has a word here; the tests hold the table
// against the schema.
#ifndef TOOLS_ACLCTL_WORDS_H_
#define TOOLS_ACLCTL_WORDS_H_

#include <string>
#include <vector>

#include "host/cdb/yang_tree.h"

namespace aclctl {

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
// The word or its brief form; null when there is none.
const MatchWord* FindMatchWord(const std::string& word);
// All words of matches, for messages.
std::string ListMatchWords();

// Name of the leaf that holds the mask of a MAC address.
std::string MaskOf(const MatchWord& word);

// Adds a match to the container `match`. What is wrong with the value, empty when nothing is.
std::string AddMatch(const MatchWord& word, const std::string& value, lyd_node* match);

// What an entry's containers hold, in these words, as the configuration has them: "src-ip
// 10.0.0.0/8 protocol tcp", "any"; "deny", "permit, set-pcp 5", "none". Null is an empty container.
std::string ConfiguredMatch(const lyd_node* match);
std::string ConfiguredAction(const lyd_node* action, const char* between);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_WORDS_H_
