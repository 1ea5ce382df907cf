// aclctl complete: what may come next on a command line, for the shell's completion.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>

#include "tools/aclctl/command_line.h"
#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/lines.h"
#include "tools/aclctl/words.h"

namespace aclctl {
namespace {

using Texts = std::set<std::string>;

// Asks the daemon for the leaves `leaf` of the list `list`, below what `open` and `close` are
// around; none where it does not answer.
void AddNames(Client* client, const std::string& open, const std::string& close, const char* leaf,
              Texts* texts) {
  host::Tree reply;
  if (client->Call("<get-config><source><running/></source><filter type=\"subtree\"><config "
                   "xmlns=\"urn:acl-app:acl\"><access-list>" +
                       open + "<" + leaf + "/>" + close +
                       "</access-list></config></filter></get-config>",
                   &reply)) {
    return;
  }
  const lyd_node* node;
  LYD_TREE_DFS_BEGIN(reply.get(), node) {
    if (host::XmlName(node) == leaf && !host::XmlText(node).empty()) {
      texts->insert(std::string(host::XmlText(node)));
    }
    LYD_TREE_DFS_END(reply.get(), node)
  }
}

void AddProfiles(Client* client, Texts* texts) {
  AddNames(client, "<acl-profile><ingress><access-list>", "</access-list></ingress></acl-profile>",
           "acl-name", texts);
}

void AddEntries(Client* client, const std::string& profile, Texts* texts) {
  const std::string key = profile.find_first_of("<&") == std::string::npos ? profile : "";
  AddNames(client,
           "<acl-profile><ingress><access-list><acl-name>" + key + "</acl-name><access-list-entry>",
           "</access-list-entry></access-list></ingress></acl-profile>", "ace-priority", texts);
}

void AddInterfaces(Client* client, Texts* texts) {
  AddNames(client, "<interface>", "</interface>", "interface-name", texts);
}

void AddCommits(Client* client, Texts* texts) {
  host::Tree reply;
  if (client->Call("<get-history xmlns=\"urn:acl-app:history\"/>", &reply)) return;
  for (const lyd_node* commit : Children(reply.get(), "commit")) {
    texts->insert(ChildText(commit, "id"));
  }
}

// What may follow in a statement; `words` begins with its verb.
void AddEditWords(const std::vector<std::string>& words, Client* client, Texts* texts) {
  const bool binds = words[0] == "bind" || words[0] == "unbind";
  const size_t name = binds ? 1 : 2;  // place of the profile's name
  if (words.size() < name) {
    texts->insert("acl");
  } else if (words.size() == name) {
    AddProfiles(client, texts);
  } else if (binds) {
    AddInterfaces(client, texts);
  } else if (words.size() == name + 1) {
    if (words[0] == "set") texts->insert({"type", "priority", "description"});
    if (words[0] != "rename" && words[0] != "renumber") AddEntries(client, words[name], texts);
  } else if (words[0] == "set" || words[0] == "delete") {
    texts->insert({"match", "action", "description"});
    const auto after = [&](const char* word) {
      return std::find(words.rbegin(), words.rend(), word);
    };
    if (words.back() == "type") *texts = {"l2", "l3"};
    if (after("action") < after("match")) texts->insert({"deny", "permit", "set-pcp", "none"});
    if (after("match") < after("action")) {
      texts->insert("any");
      for (const MatchWord& word : MatchWords()) texts->insert(word.word);
    }
  }
}

void AddOf(Names names, const std::vector<std::string>& words, Client* client, Texts* texts) {
  if (names == Names::kProfiles) AddProfiles(client, texts);
  if (names == Names::kInterfaces) AddInterfaces(client, texts);
  if (names == Names::kCommits) AddCommits(client, texts);
  if (names == Names::kEditWords) AddEditWords(words, client, texts);
}

// The words that may follow the first words of a command's name.
void AddCommandWords(const std::vector<std::string>& words, Texts* texts) {
  for (const Command* command : AllCommands()) {
    const std::vector<std::string> name = WordsOf(*command);
    if ((command->traits & kHidden) != 0 || name.size() <= words.size()) continue;
    if (std::equal(words.begin(), words.end(), name.begin())) texts->insert(name[words.size()]);
  }
}

Texts Candidates(const Common& common, std::vector<std::string> words, const std::string& begun) {
  Texts texts;
  size_t taken = 0;
  const Command* const command = FindCommand(words, &taken);
  if (command == nullptr) {
    AddCommandWords(words, &texts);
    return texts;
  }
  const Completable completable = DescribeCommand(*command);
  if (begun.rfind('-', 0) == 0) {
    return Texts(completable.options.begin(), completable.options.end());
  }
  Client client;
  if (client.Open(common.socket)) return texts;
  const auto of_option = completable.values.find(words.back());
  if (of_option != completable.values.end()) {
    AddOf(of_option->second, words, &client, &texts);
    return texts;
  }
  if (completable.operands.empty()) return texts;
  size_t operand = 0;
  for (size_t i = taken; i < words.size(); ++i) operand += words[i].rfind('-', 0) == 0 ? 0 : 1;
  if (operand >= completable.operands.size()) operand = completable.operands.size() - 1;
  AddOf(completable.operands[operand], words, &client, &texts);
  return texts;
}

// The last word is the one that is being typed; it may be empty.
Failure Complete(const Common& common, const std::vector<std::string>& line) {
  std::vector<std::string> words = line;
  const std::string begun = words.empty() ? "" : words.back();
  if (!words.empty()) words.pop_back();
  for (const std::string& text : Candidates(common, words, begun)) {
    if (text.compare(0, begun.size(), begun) == 0) std::puts(text.c_str());
  }
  return {};
}

Run SetUpComplete(Syntax* syntax) {
  const auto words = std::make_shared<std::vector<std::string>>();
  syntax->Operands("WORDS", words.get(), 0, "the command line so far");
  return [words](const Common& common) { return Complete(common, *words); };
}

}  // namespace

const Command kComplete = {"complete",
                           Group::kOther,
                           "what may come next on a command line",
                           "aclctl complete -- show ''",
                           SetUpComplete,
                           kHidden};

}  // namespace aclctl
