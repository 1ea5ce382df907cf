// What is told of events: see notification_text.h.
#include "host/netconf/notifications/notification_text.h"

#include <algorithm>
#include <cstdint>

#include "host/netconf/message/qualified_path.h"
#include "host/netconf/notifications/config_edits.h"
#include "host/xml/xml_writer.h"

namespace host {
namespace {

constexpr char kBase[] = "urn:ietf:params:xml:ns:yang:ietf-netconf-notifications";
constexpr char kOwn[] = "urn:acl-app:notifications";
constexpr char kOwnDeclared[] = " xmlns=\"urn:acl-app:notifications\"";

// By SessionEnded::Reason and ConfirmedCommitStep::What.
constexpr const char* kReasons[] = {"closed", "killed", "dropped", "timeout", "bad-hello", "other"};
constexpr const char* kSteps[] = {"start", "extend", "complete", "cancel", "timeout"};

void WriteUser(const std::string& user, uint32_t session, XmlWriter* xml) {
  xml->Leaf("username", user);
  xml->Leaf("session-id", uint64_t{session});
}

void WriteText(const char* name, const std::string& text, XmlWriter* xml) {
  if (!text.empty()) xml->Leaf(name, text);
}

std::string Text(const SessionBegan& event) {
  XmlWriter xml(kBase);
  xml.Open("netconf-session-start");
  WriteUser(event.user, event.id, &xml);
  xml.Close("netconf-session-start");
  return xml.Take();
}

std::string Text(const SessionEnded& event) {
  XmlWriter xml(kBase);
  xml.Open("netconf-session-end");
  WriteUser(event.user, event.id, &xml);
  if (event.killed_by != 0) xml.Leaf("killed-by", uint64_t{event.killed_by});
  xml.Leaf("termination-reason", kReasons[event.reason]);
  xml.Close("netconf-session-end");
  return xml.Take();
}

std::string Text(const ConfirmedCommitStep& event) {
  using Step = ConfirmedCommitStep;
  XmlWriter xml(kBase);
  xml.Open("netconf-confirmed-commit");
  if (event.what != Step::kTimeout) WriteUser(event.user, event.session, &xml);
  xml.Leaf("confirm-event", kSteps[event.what]);
  if (event.what == Step::kStart || event.what == Step::kExtend) {
    xml.Leaf("timeout", uint64_t{event.timeout});
  }
  xml.Close("netconf-confirmed-commit");
  return xml.Take();
}

std::string Text(const CommitJudged& event) {
  XmlWriter xml(kOwn);
  xml.Open("commit-outcome");
  xml.Leaf("commit", event.commit);
  WriteText("user", event.user, &xml);
  if (event.session != 0) xml.Leaf("session-id", uint64_t{event.session});
  WriteText("comment", event.comment, &xml);
  if (event.at_start) xml.Leaf("at-start", "");
  xml.Leaf("result", event.result);
  if (event.corrected) xml.Leaf("corrected", "");
  WriteText("reason", event.reason, &xml);
  const auto took = std::min<int64_t>(event.took.count(), UINT32_MAX);
  xml.Leaf("duration", static_cast<uint64_t>(took));
  if (event.interfaces != 0) {
    xml.Leaf("interfaces", uint64_t{event.interfaces});
    xml.Leaf("interfaces-in-force", uint64_t{event.in_force});
  }
  for (const auto& [group, entries] : event.entries) {
    xml.Open("group");
    xml.Leaf("type", group);
    xml.Leaf("entries", uint64_t{entries});
    xml.Close("group");
  }
  xml.Close("commit-outcome");
  return xml.Take();
}

std::string Text(const GroupFilled& event) {
  XmlWriter xml(kOwn);
  xml.Open("group-threshold");
  xml.Leaf("group", event.group);
  xml.Leaf("state", event.nearly_full ? "raised" : "cleared");
  xml.Leaf("entries", uint64_t{event.entries});
  xml.Leaf("capacity", uint64_t{event.capacity});
  xml.Leaf("threshold", uint64_t{event.threshold});
  xml.Close("group-threshold");
  return xml.Take();
}

std::string Text(const InterfaceChanged& event) {
  XmlWriter xml(kOwn);
  xml.Open("interface-state");
  xml.Leaf("interface", event.name);
  xml.Leaf("link", event.link);
  xml.Leaf("filters", event.filters);
  if (event.others != 0) xml.Leaf("others", uint64_t{event.others});
  xml.Close("interface-state");
  return xml.Take();
}

std::string Text(const FiltersTouched& event) {
  XmlWriter xml(kOwn);
  xml.Open("filters-changed");
  WriteText("interface", event.interface, &xml);
  xml.Leaf("put-right", event.put_right ? "true" : "false");
  WriteText("reason", event.what, &xml);
  xml.Close("filters-changed");
  return xml.Take();
}

}  // namespace

std::string NotificationText(const Event& event) {
  return std::visit([](const auto& what) { return Text(what); }, event);
}

std::string ConfigChangeText(const lyd_node* diff, const CommitInfo& commit,
                             const ly_ctx* context) {
  XmlWriter xml(kBase);
  xml.Open("netconf-config-change");
  xml.Open("changed-by");
  if (commit.origin.session_id == 0) {
    xml.Leaf("server", "");
  } else {
    WriteUser(commit.origin.user, commit.origin.session_id, &xml);
  }
  xml.Close("changed-by");
  xml.Leaf("datastore", "running");
  const ConfigEdits edits = EditsOf(diff, kMaxEdits);
  for (const ConfigEdit& edit : edits.edits) {
    xml.Open("edit");
    std::string declarations;
    const std::string target = QualifiedPath(edit.target, context, &declarations);
    xml.Leaf("target", target, declarations);
    xml.Leaf("operation", edit.operation);
    xml.Close("edit");
  }
  xml.Leaf("commit", std::to_string(commit.id), kOwnDeclared);
  xml.Leaf("changes", std::to_string(commit.changes), kOwnDeclared);
  if (edits.combined) xml.Leaf("edits-combined", "", kOwnDeclared);
  xml.Close("netconf-config-change");
  return xml.Take();
}

}  // namespace host
