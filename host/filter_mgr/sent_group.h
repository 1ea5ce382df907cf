// A filter group as it was sent, together with where its entries come from.
//
// An entry's id is only its place in one submission; the next one numbers all anew. People know an
// entry by its origin: the interface, the profile bound there, and its ace-priority. So that is
// what entries are called wherever they are shown, logged or complained about.
//
// Invariant: an origin is right or unknown. Before the first one is told, the origins are compared
// with the content: the number of entries, how they are numbered, and the port of each. Where any
// of that parts, all are unknown. The comparison takes some milliseconds for the largest group, and
// is left until somebody asks, so that it does not hold up a commit.
#ifndef HOST_FILTER_MGR_SENT_GROUP_H_
#define HOST_FILTER_MGR_SENT_GROUP_H_

#include <memory>
#include <string>

#include "host/filter_mgr/port_names.h"
#include "host/runtime/entry_origins.h"
#include "platform/filters_common/filters_group.h"

namespace host {

class SentGroup {
 public:
  // Of unknown origins; implicit, for to most of the Filter Manager a group is its content.
  SentGroup(const FiltersCommon::FiltersGroup& content)  // NOLINT(google-explicit-constructor)
      : content_(content) {}
  // `origins` may be null.
  SentGroup(const FiltersCommon::FiltersGroup& content, std::shared_ptr<const GroupOrigins> origins,
            PortNames names);

  const FiltersCommon::FiltersGroup& content() const { return content_; }
  const FiltersCommon::FiltersGroup* operator->() const { return &content_; }

  // Where the entry `id` comes from. The texts belong to this group and its copies.
  EntryOrigin OriginOf(unsigned short id) const;
  // What the entry is called in messages: "entry 15 of profile guests on access-1", or "entry 7" by
  // its id where its origin is unknown.
  std::string NameOf(unsigned short id) const;

 private:
  bool OriginsFit() const;

  FiltersCommon::FiltersGroup content_;
  PortNames names_;
  // Null where there are none, or once they were found not to fit.
  mutable std::shared_ptr<const GroupOrigins> origins_;
  mutable bool compared_ = false;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_SENT_GROUP_H_
