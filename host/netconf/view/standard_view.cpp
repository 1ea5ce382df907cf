// Running as access lists: see standard_view.h.
#include "host/netconf/view/standard_view.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/netconf/view/profile_walk.h"
#include "host/netconf/view/survey.h"
#include "host/runtime/middleware.h"
#include "host/standard/statistics.h"
#include "host/standard/writers.h"

namespace host {
namespace {

using ListNode = standard::Node;

constexpr size_t kChunk = 64;  // entries or counters of a piece, more or less

// Adds the node to `parent`, with all below it. Null when libyang refuses one.
lyd_node* AddNode(const ly_ctx* context, const ListNode& node, lyd_node* parent) {
  const lys_module* module =
      ly_ctx_get_module_implemented(context, std::string(node.module).c_str());
  if (module == nullptr) return nullptr;
  const std::string name(node.name);
  lyd_node* made = nullptr;
  LY_ERR result = LY_SUCCESS;
  switch (node.form) {
    case ListNode::Form::kContainer:
      result = lyd_new_inner(parent, module, name.c_str(), 0, &made);
      break;
    case ListNode::Form::kEntry:  // all of these lists have one key, which comes first
      result =
          lyd_new_list(parent, module, name.c_str(), 0, &made, node.children.front().value.c_str());
      break;
    default: {
      const std::string prefix =
          node.form == ListNode::Form::kIdentity ? std::string(node.module_of_value) + ":" : "";
      result = lyd_new_term(parent, module, name.c_str(), (prefix + node.value).c_str(), 0, &made);
    }
  }
  if (result != LY_SUCCESS) return nullptr;
  const size_t keys = node.form == ListNode::Form::kEntry ? 1 : 0;
  for (size_t i = keys; i < node.children.size(); ++i) {
    if (AddNode(context, node.children[i], made) == nullptr) {
      if (parent == nullptr) lyd_free_all(made);
      return nullptr;
    }
  }
  return made;
}

// Makes lists of profiles, page by page.
class ListMaker : public ProfileVisitor {
 public:
  explicit ListMaker(Survey* survey) : survey_(survey) {}

  void OnProfile(const standard::Profile& /*profile*/) override {
    ListedProfile& listed = Listed();
    listed.name = survey_->names().Next(listed.profile.name);
    Begin();
  }
  // What follows an entry decides what it is.
  void OnEntry(standard::ProfileEntry entry) override {
    if (held_) Add(*held_, false);
    held_ = std::move(entry);
  }
  void OnProfileEnd() override {
    if (held_) Add(*held_, true);
    held_.reset();
    list_->aces.push_back(Listed().outline.End(list_->kind));
    made_.acls.push_back(std::move(*list_));
    list_.reset();
    // The names that are given away are many.
    Listed().outline = standard::ListOutline({});
    ++next_;
  }

  // What was made since the last call; of a list that goes on, where it is much.
  standard::AccessLists Take() {
    if (list_ && list_->aces.size() >= kChunk) {
      made_.acls.push_back(std::move(*list_));
      Begin();
    }
    return std::exchange(made_, {});
  }

 private:
  ListedProfile& Listed() { return survey_->listed()[next_]; }

  void Begin() {
    const ListedProfile& listed = Listed();
    list_ = AclOf(listed.profile, listed.name, listed.outline.KindFor(listed.profile.l3));
  }

  void Add(const standard::ProfileEntry& entry, bool last) {
    standard::Ace ace = Listed().outline.Convert(entry, last);
    if (ace.name != std::to_string(entry.ace_priority)) {
      Listed().ace_names.emplace(entry.ace_priority, ace.name);
    }
    list_->aces.push_back(std::move(ace));
  }

  Survey* const survey_;
  size_t next_ = 0;                             // the profile at hand
  std::optional<standard::ProfileEntry> held_;  // of it, until the next one comes
  std::optional<standard::Acl> list_;           // of it, what was made and not taken yet
  standard::AccessLists made_;
};

class StandardView : public StateProviders::Pieces {
 public:
  StandardView(const StateProviders& providers, Datastore& datastore,
               std::shared_ptr<PageMemory> memory)
      : datastore_(datastore),
        memory_(std::move(memory)),
        entries_(datastore.Context()),
        reading_(providers.OpenHits()) {}

  // As long as there is nothing to show, a piece is an element without content, which nobody sees.
  lyd_node* Next(const ly_ctx* context) override {
    standard::AccessLists lists;
    switch (phase_) {
      case Phase::kHits:
        Begin();
        break;
      case Phase::kSurvey:
        Step(&survey_walk_, Phase::kLists);
        break;
      case Phase::kLists:
        Step(&list_walk_, Phase::kInterfaces);
        lists = maker_.Take();
        break;
      default:
        break;
    }
    standard::Document document;
    WriteRfc8519(lists, false, &document);
    ListNode* const acls = &document.root.children.front();
    if (phase_ == Phase::kInterfaces && !AddInterfaces(acls)) phase_ = Phase::kEnd;
    const bool ended = phase_ == Phase::kEnd && acls->children.empty();
    if (ended || phase_ == Phase::kFailed) return nullptr;
    lyd_node* piece = AddNode(context, *acls, nullptr);
    if (piece != nullptr) return piece;
    Log(LogLevel::kError, "the configuration cannot be shown as access lists: %s",
        ly_errmsg(context));
    ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
    phase_ = Phase::kFailed;
    return nullptr;
  }

  bool failed() const override { return phase_ == Phase::kFailed; }

 private:
  enum class Phase { kHits, kSurvey, kLists, kInterfaces, kEnd, kFailed };
  using Walk = std::unique_ptr<ProfileWalk>;

  // Reads the hits, and takes the configuration at the moment that they are of.
  void Begin() {
    if (reading_ != nullptr && !reading_->Next(&hits_)) return;
    reading_.reset();
    const lyd_node* running = datastore_.Running();
    survey_walk_ = std::make_unique<ProfileWalk>(entries_, running, memory_, &survey_);
    list_walk_ = std::make_unique<ProfileWalk>(entries_, running, memory_, &maker_);
    phase_ = Phase::kSurvey;
  }

  // At the walk's end comes the phase `next`.
  void Step(Walk* walk, Phase next) {
    const ProfileWalk::Progress progress = (*walk)->Step();
    if (progress == ProfileWalk::Progress::kFailed) phase_ = Phase::kFailed;
    if (progress != ProfileWalk::Progress::kEnd) return;
    walk->reset();
    phase_ = next;
  }

  // Adds the interfaces from the one at hand on, as many as make up a piece; false when there were
  // no more.
  bool AddInterfaces(ListNode* acls) {
    const std::vector<BoundProfiles>& bindings = survey_.bindings();
    if (next_interface_ == bindings.size()) return false;
    ListNode points;
    points.module = acls->module;
    for (size_t left = kChunk; next_interface_ < bindings.size() && left > 0;) {
      AddInterface(bindings[next_interface_], &points, &left);
    }
    acls->Add("attachment-points").children = std::move(points.children);
    return true;
  }

  void AddInterface(const BoundProfiles& bound, ListNode* points, size_t* left) {
    ListNode& interface = points->Add("interface", ListNode::Form::kEntry);
    interface.Add("interface-id", ListNode::Form::kText, bound.interface);
    ListNode& sets = interface.Add("ingress").Add("acl-sets");
    while (next_set_ < bound.profiles.size() && *left > 0) {
      const ListedProfile& listed = survey_.listed()[bound.profiles[next_set_]];
      ListNode& set = sets.Add("acl-set", ListNode::Form::kEntry);
      set.Add("name", ListNode::Form::kText, listed.name);
      if (!AddCounters({bound.interface, listed.profile.name}, listed, &set, left)) return;
      ++next_set_;
      next_counter_ = 0;
      if (*left > 0) --*left;
    }
    if (next_set_ < bound.profiles.size()) return;
    if (*left > 0) --*left;
    next_set_ = 0;
    ++next_interface_;
  }

  // False when there are more of them than have a place in the piece.
  bool AddCounters(const HitsByOrigin::key_type& binding, const ListedProfile& listed,
                   ListNode* set, size_t* left) {
    const auto counted = hits_.find(binding);
    if (counted == hits_.end()) return true;
    for (; next_counter_ < counted->second.size(); ++next_counter_, --*left) {
      if (*left == 0) return false;
      const EntryHits& entry = counted->second[next_counter_];
      const auto named = listed.ace_names.find(entry.ace_priority);
      AddAceStatistics(
          named != listed.ace_names.end() ? named->second : std::to_string(entry.ace_priority),
          {entry.hits.packets, entry.hits.bytes}, set);
    }
    return true;
  }

  Datastore& datastore_;
  const std::shared_ptr<PageMemory> memory_;
  const standard::EntryReader entries_;
  std::unique_ptr<OriginHitsReading> reading_;  // until it is done; null: nobody counts
  HitsByOrigin hits_;
  Survey survey_;
  ListMaker maker_{&survey_};
  Walk survey_walk_, list_walk_;  // after what they tell
  Phase phase_ = Phase::kHits;
  size_t next_interface_ = 0, next_set_ = 0, next_counter_ = 0;
};

}  // namespace

StateProviders::Registration ShowAsAccessLists(StateProviders* providers, Datastore& datastore,
                                               std::shared_ptr<PageMemory> memory) {
  const auto open = [providers, &datastore, memory] {
    return std::make_unique<StandardView>(*providers, datastore, memory);
  };
  return providers->Add({"ietf-access-control-list", "acls", nullptr, open});
}

}  // namespace host
