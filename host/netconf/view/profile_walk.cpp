// Profiles of a configuration: see profile_walk.h.
#include "host/netconf/view/profile_walk.h"

#include <cstdlib>
#include <string_view>
#include <utility>

#include "host/cdb/list_order.h"

namespace host {
namespace {

standard::Profile ProfileCalled(std::string name, std::string_view type) {
  standard::Profile profile;
  profile.name = std::move(name);
  profile.l3 = type == "l3";
  return profile;
}

}  // namespace

ProfileWalk::Progress ProfileWalk::Step() {
  ViewPart part;
  while (view_.Next(&part)) {
    if (part.kind == ViewPart::Kind::kNodes) {
      if (part.page->lost()) return Progress::kFailed;
      for (size_t i = part.first; i < part.first + part.count; ++i) Visit(part.page->InOrder(i));
      return Progress::kMore;
    }
    if (std::string_view(part.schema->name) != "access-list" || part.schema->nodetype != LYS_LIST) {
      continue;
    }
    if (part.kind == ViewPart::Kind::kEnd) {
      visitor_->OnProfileEnd();
    } else {
      visitor_->OnProfile(ProfileCalled(KeyIn(part, "acl-name"), KeyIn(part, "acl-type")));
    }
  }
  return Progress::kEnd;
}

void ProfileWalk::Visit(const lyd_node* node) {
  const std::string_view name = LYD_NAME(node);
  const lyd_node* child;
  if (name == "access-list-entry") {
    visitor_->OnEntry(entries_.Read(node));
  } else if (name == "access-list" && node->schema->nodetype == LYS_LIST) {
    VisitProfile(node);
  } else if (name == "description") {
    visitor_->OnDescription(TextOf(node));
  } else if (name == "priority") {
    visitor_->OnPriority(static_cast<uint16_t>(std::atoi(TextOf(node))));
  } else if (name == "interface") {
    std::vector<std::string> profiles;
    LY_LIST_FOR(lyd_child(node), child) {
      if (child->schema->nodetype == LYS_LEAFLIST) profiles.emplace_back(TextOf(child));
    }
    visitor_->OnInterface(ChildText(node, "interface-name"), std::move(profiles));
  } else if (node->schema->nodetype == LYS_CONTAINER) {
    LY_LIST_FOR(lyd_child(node), child) Visit(child);
  }
}

// One with few entries, which is seen as a whole.
void ProfileWalk::VisitProfile(const lyd_node* node) {
  visitor_->OnProfile(ProfileCalled(ChildText(node, "acl-name"), ChildText(node, "acl-type")));
  const Tree ordered = InKeyOrder(node);
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(ordered != nullptr ? ordered.get() : node), child) {
    if (!IsKey(child)) Visit(child);
  }
  visitor_->OnProfileEnd();
}

}  // namespace host
