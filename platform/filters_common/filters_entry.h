// One entry of a filter group: an id, a priority, its matches and its actions.
//
// An entry is a value, but copies share what they hold until one of them is changed. The ingress
// ports stand apart from the other matches: they are what distinguishes the many copies of an entry
// that is applied to several ports, so that giving a copy its port neither allocates nor unshares.
//
// Groups hold entries by the ten thousand and are rebuilt from copies: the time for that is the
// time to move memory, so an entry is kept to four words. What copies share is counted without
// atomic operations: an entry and its copies belong to one thread.
#ifndef PLATFORM_FILTERS_COMMON_FILTERS_ENTRY_H_
#define PLATFORM_FILTERS_COMMON_FILTERS_ENTRY_H_

#include <list>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/filters_common/actions.h"
#include "platform/filters_common/counted_ptr.h"
#include "platform/filters_common/filters_types.h"
#include "platform/filters_common/matches.h"
#include "platform/filters_common/node_arena.h"

namespace FiltersCommon {

class FiltersEntry {
 public:
  // At most one element of each kind, in ascending order of kind.
  using Matches = std::vector<std::shared_ptr<const Match>>;
  using Actions = std::vector<std::shared_ptr<const Action>>;

  explicit FiltersEntry(const unsigned short& id) : id_(id) {}
  // Entries are mostly copied one after the other, as they lie in memory: who walks over the tree
  // that they are in would wait for each of them, as one says where the next one is.
  FiltersEntry(const FiltersEntry& other)
      : content_(other.content_), ports_(other.ports_), priority_(other.priority_), id_(other.id_) {
    FetchAhead(&other);
  }
  FiltersEntry(FiltersEntry&&) = default;
  FiltersEntry& operator=(const FiltersEntry&) = default;
  FiltersEntry& operator=(FiltersEntry&&) = default;
  ~FiltersEntry() = default;

  unsigned short getId() const { return id_; }
  void setId(unsigned short id) { id_ = id; }
  unsigned int getPriority() const { return priority_; }
  void setPriority(const unsigned int& priority) { priority_ = priority; }

  // Sets the match of T's kind, in place of any other of that kind. FILTERS_ERR_RANGE, and no
  // change, when the value does not fit the field.
  template <class T>
  filtersErr_t setMatch(const T& match) {
    if (!match.inRange()) return FILTERS_ERR_RANGE;
    if constexpr (std::is_same_v<T, MatchIngressPorts>) {
      ports_ = match.shared_;
    } else {
      StoreMatch(std::make_shared<const T>(match));
    }
    return FILTERS_OK;
  }
  // FILTERS_ERR_NOT_FOUND when the entry has no match of this kind.
  filtersErr_t deleteMatch(filtersMatch_t kind);
  // Null when the entry has no match of this kind. Valid until the entry is changed.
  const Match* findMatch(filtersMatch_t kind) const;
  // The match of class T, null when there is none (or another class of the same kind).
  template <class T>
  const T* getMatch() const {
    return dynamic_cast<const T*>(findMatch(T::kKind));
  }
  // The ingress ports; null where there are none. Entries that were given one match share its list.
  const std::list<limid_t>* ingressPorts() const {
    return ports_ && !ports_->empty() ? ports_.get() : nullptr;
  }
  // All matches but the ingress ports.
  const Matches& getMatches() const;

  // As for matches.
  template <class T>
  filtersErr_t setAction(const T& action) {
    if (!action.inRange()) return FILTERS_ERR_RANGE;
    StoreAction(std::make_shared<const T>(action));
    return FILTERS_OK;
  }
  filtersErr_t deleteAction(filtersAction_t kind);
  const Action* findAction(filtersAction_t kind) const;
  template <class T>
  const T* getAction() const {
    return dynamic_cast<const T*>(findAction(T::kKind));
  }
  const Actions& getActions() const;

  // The same for two entries that still share what they hold, ingress ports aside, as copies do
  // until one is changed. Means nothing once one of the two is gone.
  const void* contentIdentity() const { return content_.get(); }

 private:
  friend class EntryRows;
  using Ports = MatchIngressPorts::Shared;

  struct Content {
    Matches matches;
    Actions actions;
  };

  // For an entry that is not destroyed, or `count` of them.
  static void ReleaseContent(const void* identity) {
    CountedPtr<Content>::Release(static_cast<Content*>(const_cast<void*>(identity)), 1);
  }
  static void ReleasePorts(const std::list<limid_t>* ports, size_t count) {
    CountedPtr<const Ports>::Release(static_cast<const Ports*>(ports),
                                     static_cast<uint32_t>(count));
  }

  void StoreMatch(std::shared_ptr<const Match> match);
  void StoreAction(std::shared_ptr<const Action> action);
  // The content, made this entry's own.
  Content& OwnContent();

  // With the node of a map around it, an entry fills a line of the processor's caches.
  CountedPtr<Content> content_;    // null while empty; shared between copies, then not changed
  CountedPtr<const Ports> ports_;  // null while there is no such match
  unsigned int priority_ = 0;
  unsigned short id_;
};

}  // namespace FiltersCommon

// Maps of entries by id get their nodes as node_arena.h says, and keep the standard's name: the
// standard lets a program specialise its templates for types of its own (C++17; later ones no
// longer the traits). Both it takes, since the traits of the standard's allocator know of no other
// one.
template <>
class std::allocator<std::pair<const unsigned short, FiltersCommon::FiltersEntry>>
    : public FiltersCommon::NodeAllocator<
          std::pair<const unsigned short, FiltersCommon::FiltersEntry>> {
 public:
  // Implicit, as those of all allocators are.
  allocator() = default;
  template <class U>
  allocator(const FiltersCommon::NodeAllocator<U>&) {}  // NOLINT(google-explicit-constructor)
  template <class U>
  allocator(const std::allocator<U>&) {}  // NOLINT(google-explicit-constructor)
};

template <>
struct std::allocator_traits<
    std::allocator<std::pair<const unsigned short, FiltersCommon::FiltersEntry>>>
    : std::allocator_traits<FiltersCommon::NodeAllocator<
          std::pair<const unsigned short, FiltersCommon::FiltersEntry>>> {
  using allocator_type =
      std::allocator<std::pair<const unsigned short, FiltersCommon::FiltersEntry>>;
};

#endif  // PLATFORM_FILTERS_COMMON_FILTERS_ENTRY_H_
