// Statements on the configuration: see lines.h.
#include "tools/aclctl/lines.h"

#include <algorithm>
#include <cstdlib>

#include "host/cdb/schema/schema.h"
#include "tools/aclctl/words.h"

namespace aclctl {
namespace {

constexpr long kHighestPriority = 65535;

bool IsPriority(const std::string& text) {
  return !text.empty() && text.size() <= 5 &&
         text.find_first_not_of("0123456789") == std::string::npos;
}

// Without leading zeros, as keys are compared.
std::string Canonical(const std::string& number) {
  return std::to_string(std::strtol(number.c_str(), nullptr, 10));
}

std::string Quoted(const std::string& word) { return "\"" + word + "\""; }

// Reads a statement's words one by one.
class Words {
 public:
  explicit Words(const Statement& statement) : statement_(statement) {}

  bool done() const { return next_ >= statement_.size(); }
  // The next word, empty at the end.
  const std::string& Peek() const { return done() ? kNone : statement_[next_]; }
  std::string Take() { return done() ? "" : statement_[next_++]; }
  bool TakeIf(const char* word) {
    if (Peek() != word || done()) return false;
    ++next_;
    return true;
  }
  // What is wrong where the next word should have been `what`.
  std::string Expected(const std::string& what) const {
    const std::string before = next_ == 0 ? "" : " after " + Quoted(statement_[next_ - 1]);
    return done() ? "expected " + what + before : Quoted(Peek()) + ": expected " + what + before;
  }

 private:
  inline static const std::string kNone;
  const Statement& statement_;
  size_t next_ = 0;
};

const lysc_node* LeafSchema(const lyd_node* parent, const char* name) {
  return lys_find_child(parent->schema, parent->schema->module, name, 0, 0, 0);
}

// Sets a leaf, in place of what it was. What is wrong with the value, empty when nothing is.
std::string SetLeaf(lyd_node* parent, const char* name, const std::string& value) {
  std::string wrong = host::WhyNotValue(LeafSchema(parent, name), value);
  if (!wrong.empty()) return wrong;
  RemoveChildren(parent, name);
  lyd_new_term(parent, nullptr, name, value.c_str(), 0, nullptr);
  return "";
}

// What is wrong with the name of a new profile or interface. `module` is acl-app's.
std::string CheckKey(const ConfigTree& config, const char* list, const char* key,
                     const std::string& value) {
  const lys_module* module = ly_ctx_get_module_implemented(config.context(), "acl-app");
  const lysc_node* schema = lys_find_path(config.context(), nullptr, list, 0);
  return host::WhyNotValue(lys_find_child(schema, module, key, 0, 0, 0), value);
}

constexpr char kProfileList[] = "/acl-app:config/access-list/acl-profile/ingress/access-list";
constexpr char kInterfaceList[] = "/acl-app:config/access-list/interface";

std::string CheckProfileName(const ConfigTree& config, const std::string& name) {
  return CheckKey(config, kProfileList, "acl-name", name);
}

std::string CheckInterfaceName(const ConfigTree& config, const std::string& name) {
  return CheckKey(config, kInterfaceList, "interface-name", name);
}

constexpr char kHowToMake[] = "; to make one: set acl NAME type l2|l3 priority N";

std::string NoProfile(const std::string& name) { return "there is no profile " + Quoted(name); }

std::string NoEntry(const std::string& profile, const std::string& entry) {
  return profile + " has no entry " + entry;
}

// The profile that the next word names.
std::string TakeProfile(Words* words, const ConfigTree& config, lyd_node** profile) {
  if (words->done()) return words->Expected("the name of a profile");
  const std::string name = words->Take();
  *profile = config.FindProfile(name);
  return *profile == nullptr ? NoProfile(name) : "";
}

std::string TakePriority(Words* words, const char* what, std::string* priority) {
  const std::string word = words->Peek();
  if (!IsPriority(word) || std::strtol(word.c_str(), nullptr, 10) > kHighestPriority) {
    return words->Expected(std::string(what) + ", a number from 0 to 65535");
  }
  *priority = Canonical(words->Take());
  return "";
}

std::string TakeDescription(Words* words, lyd_node* node) {
  if (words->done()) return words->Expected("a text in quotes");
  return SetLeaf(node, "description", words->Take());
}

bool EndsClause(const Words& words) {
  const std::string& word = words.Peek();
  return words.done() || word == "match" || word == "action" || word == "description";
}

std::string SetMatches(Words* words, lyd_node* entry) {
  if (EndsClause(*words)) return words->Expected(ListMatchWords());
  RemoveChildren(entry, "match");
  if (words->TakeIf("any")) return "";
  lyd_node* match = nullptr;
  lyd_new_inner(entry, nullptr, "match", 0, &match);
  std::set<const MatchWord*> given;
  while (!EndsClause(*words)) {
    const MatchWord* const word = FindMatchWord(words->Peek());
    if (word == nullptr) return words->Expected(ListMatchWords());
    if (!given.insert(word).second) return Quoted(words->Peek()) + " is given twice";
    if (given.size() > 1 &&
        ((std::string(word->word) == "tos" && given.count(FindMatchWord("dscp")) != 0) ||
         (std::string(word->word) == "dscp" && given.count(FindMatchWord("tos")) != 0))) {
      return "dscp and tos exclude each other";
    }
    words->Take();
    if (EndsClause(*words)) return words->Expected("the value of " + std::string(word->word));
    const std::string value = words->Take();
    std::string wrong = AddMatch(*word, value, match);
    if (!wrong.empty()) return std::string(word->word) + ": " + wrong;
  }
  return "";
}

std::string SetActions(Words* words, lyd_node* entry) {
  constexpr char kActions[] = "deny, permit, set-pcp N or none";
  if (EndsClause(*words)) return words->Expected(kActions);
  RemoveChildren(entry, "action");
  if (words->TakeIf("none")) return "";
  lyd_node *action = nullptr, *inner = nullptr;
  lyd_new_inner(entry, nullptr, "action", 0, &action);
  bool handled = false, marked = false;
  while (!EndsClause(*words)) {
    const std::string word = words->Peek();
    if ((word == "deny" || word == "permit") && !handled) {
      lyd_new_inner(action, nullptr, "packet-handling", 0, &inner);
      lyd_new_term(inner, nullptr, word.c_str(), "", 0, nullptr);
      handled = true;
      words->Take();
    } else if (word == "set-pcp" && !marked) {
      words->Take();
      if (EndsClause(*words)) return words->Expected("a number from 0 to 7");
      lyd_new_inner(action, nullptr, "set", 0, &inner);
      std::string wrong = SetLeaf(inner, "pcp", words->Take());
      if (!wrong.empty()) return "set-pcp: " + wrong;
      marked = true;
    } else {
      return words->Expected(kActions) + (handled || marked ? ", each once" : "");
    }
  }
  return "";
}

std::string SetEntry(Words* words, lyd_node* profile) {
  std::string priority;
  std::string wrong = TakePriority(words, "an entry", &priority);
  if (!wrong.empty()) return wrong;
  lyd_node* entry = FindEntry(profile, priority);
  if (entry == nullptr) {
    lyd_new_list(profile, nullptr, "access-list-entry", 0, &entry, priority.c_str());
  }
  while (wrong.empty() && !words->done()) {
    if (words->TakeIf("match")) {
      wrong = SetMatches(words, entry);
    } else if (words->TakeIf("action")) {
      wrong = SetActions(words, entry);
    } else if (words->TakeIf("description")) {
      wrong = TakeDescription(words, entry);
    } else {
      wrong = words->Expected("match, action or description");
    }
  }
  return wrong;
}

// The profile's own properties, as they are given.
struct ProfileWords {
  std::string type, priority, description;
  bool described = false;
};

std::string TakeProfileWords(Words* words, ProfileWords* given) {
  while (!words->done()) {
    if (words->TakeIf("type")) {
      if (words->Peek() != "l2" && words->Peek() != "l3") return words->Expected("l2 or l3");
      given->type = words->Take();
    } else if (words->TakeIf("priority")) {
      std::string wrong = TakePriority(words, "a priority", &given->priority);
      if (!wrong.empty()) return wrong;
    } else if (words->TakeIf("description")) {
      if (words->done()) return words->Expected("a text in quotes");
      given->description = words->Take();
      given->described = true;
    } else {
      return words->Expected("an entry's number, type, priority or description");
    }
  }
  return "";
}

std::string SetProfile(Words* words, const std::string& name, lyd_node* profile,
                       ConfigTree* config) {
  ProfileWords given;
  std::string wrong = TakeProfileWords(words, &given);
  if (!wrong.empty()) return wrong;
  if (profile == nullptr) {
    wrong = CheckProfileName(*config, name);
    if (!wrong.empty()) return wrong;
    if (given.type.empty() || given.priority.empty()) {
      return NoProfile(name) + kHowToMake;
    }
    profile = config->AddProfile(given.type, name);
  } else if (!given.type.empty() && given.type != TypeOf(profile)) {
    return Quoted(given.type) + ": " + name + " is of type " + TypeOf(profile) +
           ", which cannot change";
  }
  if (!given.priority.empty()) {
    const std::string container = "acl-priority-" + TypeOf(profile);
    lyd_node* priority = ChildNamed(profile, container.c_str());
    if (priority == nullptr) lyd_new_inner(profile, nullptr, container.c_str(), 0, &priority);
    wrong = SetLeaf(priority, "priority", given.priority);
  }
  if (wrong.empty() && given.described) wrong = SetLeaf(profile, "description", given.description);
  return wrong;
}

std::string Set(Words* words, ConfigTree* config) {
  if (!words->TakeIf("acl")) return words->Expected("acl");
  if (words->done()) return words->Expected("the name of a profile");
  const std::string name = words->Take();
  lyd_node* profile = config->FindProfile(name);
  if (!IsPriority(words->Peek())) return SetProfile(words, name, profile, config);
  return profile == nullptr ? NoProfile(name) + kHowToMake : SetEntry(words, profile);
}

// Removes what the words name of an entry.
std::string DeleteOfEntry(Words* words, lyd_node* entry) {
  if (words->TakeIf("match")) {
    lyd_node* match = ChildNamed(entry, "match");
    if (words->done()) RemoveChildren(entry, "match");
    while (!words->done()) {
      const MatchWord* const word = FindMatchWord(words->Peek());
      if (word == nullptr) return words->Expected(ListMatchWords());
      if (match == nullptr || ChildNamed(match, word->node) == nullptr) {
        return Quoted(words->Peek()) + ": the entry does not match on it";
      }
      words->Take();
      RemoveChildren(match, word->node);
      RemoveChildren(match, MaskOf(*word).c_str());
    }
    return "";
  }
  for (const char* name : {"action", "description"}) {
    if (!words->TakeIf(name)) continue;
    RemoveChildren(entry, name);
    return words->done() ? "" : words->Expected("nothing");
  }
  return words->Expected("match, action, description, or nothing");
}

std::string Delete(Words* words, ConfigTree* config) {
  if (!words->TakeIf("acl")) return words->Expected("acl");
  lyd_node* profile = nullptr;
  std::string wrong = TakeProfile(words, *config, &profile);
  if (!wrong.empty()) return wrong;
  if (words->done()) {
    lyd_free_tree(profile);
    return "";
  }
  if (words->TakeIf("description")) {
    RemoveChildren(profile, "description");
    return words->done() ? "" : words->Expected("nothing");
  }
  std::string priority;
  wrong = TakePriority(words, "an entry", &priority);
  if (!wrong.empty()) return wrong;
  lyd_node* entry = FindEntry(profile, priority);
  if (entry == nullptr) return NoEntry(host::ChildText(profile, "acl-name"), priority);
  if (!words->done()) return DeleteOfEntry(words, entry);
  lyd_free_tree(entry);
  return "";
}

// The binding of `profile` to `interface`, or null.
lyd_node* FindBinding(const lyd_node* interface, const std::string& profile) {
  for (lyd_node* binding : ChildrenNamed(interface, "ingress")) {
    if (profile == host::TextOf(binding)) return binding;
  }
  return nullptr;
}

std::string Bind(Words* words, ConfigTree* config) {
  lyd_node* profile = nullptr;
  std::string wrong = TakeProfile(words, *config, &profile);
  if (!wrong.empty()) return wrong;
  const std::string name = host::ChildText(profile, "acl-name");
  if (words->done()) return words->Expected("the name of an interface");
  while (!words->done()) {
    const std::string port = words->Take();
    wrong = CheckInterfaceName(*config, port);
    if (!wrong.empty()) return wrong;
    lyd_node* interface = config->FindInterface(port);
    if (interface == nullptr) interface = config->AddInterface(port);
    if (FindBinding(interface, name) != nullptr) continue;
    lyd_new_term(interface, nullptr, "ingress", name.c_str(), 0, nullptr);
  }
  return "";
}

// An interface without bindings has no meaning, and goes with its last one.
void RemoveBinding(lyd_node* interface, lyd_node* binding) {
  lyd_free_tree(binding);
  if (ChildNamed(interface, "ingress") == nullptr) lyd_free_tree(interface);
}

std::string Unbind(Words* words, ConfigTree* config) {
  lyd_node* profile = nullptr;
  std::string wrong = TakeProfile(words, *config, &profile);
  if (!wrong.empty()) return wrong;
  const std::string name = host::ChildText(profile, "acl-name");
  const bool all = words->done();
  while (!words->done()) {
    const std::string port = words->Take();
    lyd_node* interface = config->FindInterface(port);
    lyd_node* binding = interface == nullptr ? nullptr : FindBinding(interface, name);
    if (binding == nullptr) return Quoted(port) + ": " + name + " is not bound to it";
    RemoveBinding(interface, binding);
  }
  if (!all) return "";
  for (lyd_node* interface : config->Interfaces()) {
    lyd_node* binding = FindBinding(interface, name);
    if (binding != nullptr) RemoveBinding(interface, binding);
  }
  return "";
}

// Moves what is in a list entry, its keys aside, to another entry of the list, and frees the old.
void MoveContent(lyd_node* from, lyd_node* to) {
  lyd_node *child, *next;
  LY_LIST_FOR_SAFE(lyd_child_no_keys(from), next, child) {
    lyd_unlink_tree(child);
    lyd_insert_child(to, child);
  }
  lyd_free_tree(from);
}

std::string Rename(Words* words, ConfigTree* config) {
  if (!words->TakeIf("acl")) return words->Expected("acl");
  lyd_node* profile = nullptr;
  std::string wrong = TakeProfile(words, *config, &profile);
  if (!wrong.empty()) return wrong;
  if (words->done()) return words->Expected("the new name");
  const std::string name = words->Take();
  wrong = CheckProfileName(*config, name);
  if (!wrong.empty()) return wrong;
  if (!words->done()) return words->Expected("nothing");
  if (config->FindProfile(name) != nullptr)
    return "there is a profile " + Quoted(name) + " already";
  const std::string old_name = host::ChildText(profile, "acl-name");
  MoveContent(profile, config->AddProfile(TypeOf(profile), name));
  for (lyd_node* interface : config->Interfaces()) {
    lyd_node* binding = FindBinding(interface, old_name);
    if (binding == nullptr) continue;
    lyd_free_tree(binding);
    lyd_new_term(interface, nullptr, "ingress", name.c_str(), 0, nullptr);
  }
  return "";
}

lyd_node* AddEntry(lyd_node* profile, const std::string& priority) {
  lyd_node* entry = nullptr;
  lyd_new_list(profile, nullptr, "access-list-entry", 0, &entry, priority.c_str());
  return entry;
}

std::string Move(Words* words, ConfigTree* config) {
  if (!words->TakeIf("acl")) return words->Expected("acl");
  lyd_node* profile = nullptr;
  std::string from, to;
  std::string wrong = TakeProfile(words, *config, &profile);
  if (wrong.empty()) wrong = TakePriority(words, "an entry", &from);
  if (wrong.empty()) wrong = TakePriority(words, "its new place", &to);
  if (wrong.empty() && !words->done()) wrong = words->Expected("nothing");
  if (!wrong.empty()) return wrong;
  const std::string name = host::ChildText(profile, "acl-name");
  lyd_node* entry = FindEntry(profile, from);
  if (entry == nullptr) return NoEntry(name, from);
  if (FindEntry(profile, to) != nullptr) return name + " has an entry " + to + " already";
  MoveContent(entry, AddEntry(profile, to));
  return "";
}

std::string Renumber(Words* words, ConfigTree* config) {
  if (!words->TakeIf("acl")) return words->Expected("acl");
  lyd_node* profile = nullptr;
  std::string start = "10", step = "10";
  std::string wrong = TakeProfile(words, *config, &profile);
  if (wrong.empty() && !words->done()) wrong = TakePriority(words, "the first number", &start);
  if (wrong.empty() && !words->done()) wrong = TakePriority(words, "the step", &step);
  if (wrong.empty() && !words->done()) wrong = words->Expected("nothing");
  if (!wrong.empty()) return wrong;
  const std::vector<lyd_node*> entries = EntriesOf(profile);
  const long by = std::strtol(step.c_str(), nullptr, 10);
  long number = std::strtol(start.c_str(), nullptr, 10);
  if (by == 0) return "\"0\": the step must be 1 or more";
  if (!entries.empty() &&
      number + by * (static_cast<long>(entries.size()) - 1) > kHighestPriority) {
    return std::to_string(entries.size()) + " entries from " + start + " in steps of " + step +
           " end beyond 65535";
  }
  for (lyd_node* entry : entries) lyd_unlink_tree(entry);
  for (lyd_node* entry : entries) {
    MoveContent(entry, AddEntry(profile, std::to_string(number)));
    number += by;
  }
  return "";
}

constexpr struct {
  const char* verb;
  std::string (*run)(Words* words, ConfigTree* config);
} kRuns[] = {{"set", Set},       {"delete", Delete}, {"bind", Bind},        {"unbind", Unbind},
             {"rename", Rename}, {"move", Move},     {"renumber", Renumber}};

}  // namespace

const std::vector<Verb>& Verbs() {
  static const std::vector<Verb> kVerbs = {
      {"set",
       "acl PROFILE [type l2|l3] [priority N] [description TEXT], or acl PROFILE ENTRY "
       "[match any | match WORD VALUE...] [action deny|permit|set-pcp N|none...] "
       "[description TEXT]"},
      {"delete",
       "acl PROFILE [description], or acl PROFILE ENTRY [match [WORD...] | action | description]"},
      {"bind", "PROFILE INTERFACE..."},
      {"unbind", "PROFILE [INTERFACE...]"},
      {"rename", "acl PROFILE NAME"},
      {"move", "acl PROFILE ENTRY ENTRY"},
      {"renumber", "acl PROFILE [FIRST [STEP]]"},
  };
  return kVerbs;
}

std::string ApplyStatement(const Statement& statement, ConfigTree* config) {
  Words words(statement);
  std::string verbs;
  for (const auto& entry : kRuns) {
    if (words.TakeIf(entry.verb)) return entry.run(&words, config);
    verbs += (verbs.empty() ? "" : ", ") + std::string(entry.verb);
  }
  return words.Expected("one of " + verbs);
}

void AddScope(const Statement& statement, Scope* scope) {
  const std::string verb = statement.empty() ? "" : statement[0];
  const bool of_binding = verb == "bind" || verb == "unbind";
  const size_t name = of_binding ? 1 : 2;
  if (statement.size() <= name) return;
  Scope::Entries& entries = scope->profiles[statement[name]];
  if (of_binding) {
    if (statement.size() == name + 1) scope->all_interfaces = true;
    scope->interfaces.insert(statement.begin() + static_cast<long>(name) + 1, statement.end());
    return;
  }
  if (verb == "rename" || verb == "renumber") entries.all = true;
  if (verb == "rename") {
    scope->all_interfaces = true;
    if (statement.size() > name + 1) scope->profiles[statement[name + 1]];
  }
  const size_t numbers = verb == "move" ? 2 : 1;
  for (size_t i = name + 1; i < statement.size() && i <= name + numbers; ++i) {
    if (IsPriority(statement[i])) entries.priorities.insert(Canonical(statement[i]));
  }
}

}  // namespace aclctl
