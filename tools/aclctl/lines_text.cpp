// Statements as text: see lines.h.
#include <string_view>

#include "tools/aclctl/lines.h"
#include "tools/aclctl/words.h"

namespace aclctl {
namespace {

std::string InQuotes(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

// A name. Of what names may have, only "#" in front means something else in a line.
std::string Named(const std::string& name) { return name[0] == '#' ? InQuotes(name) : name; }

std::string Described(const lyd_node* node) {
  const std::string text = host::ChildText(node, "description");
  return text.empty() ? "" : " description " + InQuotes(text);
}

std::string EntryInLine(const std::string& profile, const lyd_node* entry) {
  return "set acl " + Named(profile) + " " + host::ChildText(entry, "ace-priority") + " match " +
         ConfiguredMatch(ChildNamed(entry, "match")) + " action " +
         ConfiguredAction(ChildNamed(entry, "action"), " ") + Described(entry) + "\n";
}

}  // namespace

std::string SplitLine(std::string_view line, Statement* words) {
  std::string word;
  bool in_word = false, in_quotes = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    const bool blank = c == ' ' || c == '\t' || c == '\r';
    if (in_quotes && c == '\\' && i + 1 < line.size()) {
      word += line[++i];
    } else if (c == '"') {
      in_quotes = !in_quotes;
      in_word = true;
    } else if (!in_quotes && c == '#' && !in_word) {
      break;
    } else if (!in_quotes && blank) {
      if (in_word) words->push_back(std::move(word));
      word.clear();
      in_word = false;
    } else {
      word += c;
      in_word = true;
    }
  }
  if (in_quotes) return "the quote is not closed";
  if (in_word) words->push_back(std::move(word));
  return "";
}

std::string ProfileInLines(const lyd_node* profile) {
  const std::string name = host::ChildText(profile, "acl-name");
  std::string text = "set acl " + Named(name) + " type " + TypeOf(profile) + " priority " +
                     PriorityOf(profile) + Described(profile) + "\n";
  for (const lyd_node* entry : EntriesOf(profile)) text += EntryInLine(name, entry);
  return text;
}

std::string BindingsInLines(const ConfigTree& config, const std::string& profile) {
  std::string text;
  for (const lyd_node* interface : config.Interfaces()) {
    for (const lyd_node* binding : ChildrenNamed(interface, "ingress")) {
      if (profile != host::TextOf(binding)) continue;
      text += " " + Named(host::ChildText(interface, "interface-name"));
    }
  }
  return text.empty() ? "" : "bind " + Named(profile) + text + "\n";
}

std::string InLines(const ConfigTree& config) {
  std::string text;
  for (const lyd_node* profile : config.Profiles()) {
    const std::string name = host::ChildText(profile, "acl-name");
    text += (text.empty() ? "" : "\n") + ProfileInLines(profile) + BindingsInLines(config, name);
  }
  return text;
}

}  // namespace aclctl
