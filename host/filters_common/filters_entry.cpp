#include "platform/filters_common/filters_entry.h"

#include <algorithm>

namespace FiltersCommon {
namespace {

// Lists of matches and of actions are alike: a sorted vector of shared elements with a kind.

template <class List, class Kind>
auto LowerBound(List& list, Kind kind) {
  return std::lower_bound(list.begin(), list.end(), kind,
                          [](const auto& element, Kind k) { return element->kind() < k; });
}

template <class List, class Kind>
auto Find(const List& list, Kind kind) -> decltype(list.begin()->get()) {
  auto it = LowerBound(list, kind);
  return it != list.end() && (*it)->kind() == kind ? it->get() : nullptr;
}

template <class List>
void Store(List& list, typename List::value_type element) {
  auto it = LowerBound(list, element->kind());
  if (it != list.end() && (*it)->kind() == element->kind()) {
    *it = std::move(element);
  } else {
    list.insert(it, std::move(element));
  }
}

}  // namespace

FiltersEntry::Content& FiltersEntry::OwnContent() {
  if (!content_) {
    content_ = CountedPtr<Content>::Make();
  } else if (!content_.unique()) {
    content_ = CountedPtr<Content>::Make(*content_);
  }
  return *content_;
}

void FiltersEntry::StoreMatch(std::shared_ptr<const Match> match) {
  Store(OwnContent().matches, std::move(match));
}

void FiltersEntry::StoreAction(std::shared_ptr<const Action> action) {
  Store(OwnContent().actions, std::move(action));
}

filtersErr_t FiltersEntry::deleteMatch(filtersMatch_t kind) {
  if (findMatch(kind) == nullptr) return FILTERS_ERR_NOT_FOUND;
  if (kind == FILTERS_MATCH_INGRESS_PORTS) {
    ports_ = {};
  } else {
    Matches& matches = OwnContent().matches;
    matches.erase(LowerBound(matches, kind));
  }
  return FILTERS_OK;
}

filtersErr_t FiltersEntry::deleteAction(filtersAction_t kind) {
  if (findAction(kind) == nullptr) return FILTERS_ERR_NOT_FOUND;
  Actions& actions = OwnContent().actions;
  actions.erase(LowerBound(actions, kind));
  return FILTERS_OK;
}

const Match* FiltersEntry::findMatch(filtersMatch_t kind) const {
  if (kind == FILTERS_MATCH_INGRESS_PORTS) return ports_ ? &ports_->match : nullptr;
  return Find(getMatches(), kind);
}

const Action* FiltersEntry::findAction(filtersAction_t kind) const {
  return Find(getActions(), kind);
}

const FiltersEntry::Matches& FiltersEntry::getMatches() const {
  static const Matches kNone;
  return content_ ? content_->matches : kNone;
}

const FiltersEntry::Actions& FiltersEntry::getActions() const {
  static const Actions kNone;
  return content_ ? content_->actions : kNone;
}

}  // namespace FiltersCommon
