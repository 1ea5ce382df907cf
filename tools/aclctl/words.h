// The words in which entries are written and shown (tools/client/match_words.h), for the command
// line, the files of lines and the tables. Every leaf of the schema's match has a word here; the
// tests hold the table against the schema.
#ifndef TOOLS_ACLCTL_WORDS_H_
#define TOOLS_ACLCTL_WORDS_H_

#include <string>

#include "host/cdb/schema/yang_tree.h"
#include "tools/client/match_words.h"

namespace aclctl {

using client::MaskOf;
using client::MatchWord;
using client::MatchWords;

// The word or its brief form; null when there is none.
const MatchWord* FindMatchWord(const std::string& word);
// All words of matches, for messages.
std::string ListMatchWords();

// Adds a match to the container `match`. What is wrong with the value, empty when nothing is.
std::string AddMatch(const MatchWord& word, const std::string& value, lyd_node* match);

// What an entry's containers hold, in these words, as the configuration has them: "src-ip
// 10.0.0.0/8 protocol tcp", "any"; "deny", "permit, set-pcp 5", "none". Null is an empty container.
std::string ConfiguredMatch(const lyd_node* match);
std::string ConfiguredAction(const lyd_node* action, const char* between);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_WORDS_H_
