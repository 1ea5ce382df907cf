// aclctl events: what the daemon has told and tells of itself (NETCONF notifications), a line each.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <deque>
#include <memory>
#include <nlohmann/json.hpp>

#include "host/runtime/date_and_time.h"
#include "host/xml/xml_text.h"
#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"

namespace aclctl {
namespace {

using Json = nlohmann::ordered_json;

// So many entries of a list are shown in a line; --json has all.
constexpr int kMostEdits = 3;

struct EventsWanted {
  std::string most = "20";
  bool follow = false;
  bool sessions = false;
};

std::string QuotedValue(const std::string& text) {
  return text.find(' ') == std::string::npos ? text : "\"" + text + "\"";
}

// The leaves below `parent`, in their order: " name=value".
std::string LeavesOf(const lyd_node* parent) {
  std::string text;
  int edits = 0;
  for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next) {
    const std::string name(host::XmlName(child));
    const std::string value(host::XmlText(child));
    if (name == "edit") {
      if (++edits > kMostEdits) continue;
      text += " " + ChildText(child, "operation") + "=" +
              QuotedValue(ShortPath(ChildText(child, "target")));
    } else if (lyd_child(child) != nullptr) {
      text += LeavesOf(child);
    } else {
      text += " " + name + (value.empty() ? "" : "=" + QuotedValue(value));
    }
  }
  if (edits > kMostEdits) text += " (and " + std::to_string(edits - kMostEdits) + " edits)";
  return text;
}

// The content of an element: a text, or its children by name, those that come again in an array.
Json ContentOf(const lyd_node* element) {
  if (lyd_child(element) == nullptr) return std::string(host::XmlText(element));
  Json content = Json::object();
  for (const lyd_node* child = lyd_child(element); child != nullptr; child = child->next) {
    const std::string name(host::XmlName(child));
    if (name == "edit" || name == "group") {
      // A group of other notifications than commit-outcome is a name.
      if (lyd_child(child) != nullptr) {
        content[name].push_back(ContentOf(child));
        continue;
      }
    }
    content[name] = ContentOf(child);
  }
  return content;
}

// The line of a notification; empty when it is not wanted. `*name` is the event's.
std::string EventLine(const lyd_node* notification, const Common& common,
                      const EventsWanted& wanted, std::string* name) {
  const lyd_node* time = lyd_child(notification);
  const lyd_node* event = time != nullptr ? time->next : nullptr;
  if (event == nullptr) return "";
  *name = host::XmlName(event);
  const bool of_session = name->rfind("netconf-session-", 0) == 0;
  if (of_session && !wanted.sessions) return "";
  const std::string moment(host::XmlText(time));
  if (common.form == Form::kJson) {
    return Json{{"time", moment}, {"event", *name}, {"content", ContentOf(event)}}.dump() + "\n";
  }
  char column[64];
  std::snprintf(column, sizeof(column), "%s %-24s", ShortTime(moment).c_str(), name->c_str());
  return column + LeavesOf(event) + "\n";
}

Failure ShowEvents(const Common& common, const EventsWanted& wanted) {
  size_t most = 0;
  const char* const end = wanted.most.data() + wanted.most.size();
  const auto [read_to, error] = std::from_chars(wanted.most.data(), end, most);
  if (error != std::errc() || read_to != end) {
    return {kUsage, "-n takes a number of events, not \"" + wanted.most + "\"", {}};
  }
  Client client(Client::Patience{std::chrono::milliseconds(-1), -1});
  if (Failure failure = client.Open(common.socket)) return failure;
  const std::string stop =
      wanted.follow ? ""
                    : "<stopTime>" + host::DateAndTime(host::NowMicroseconds(), 6) + "</stopTime>";
  host::Tree reply;
  if (Failure failure = client.Call(
          "<create-subscription xmlns=\"urn:ietf:params:xml:ns:netconf:notification:1.0\">"
          "<startTime>1970-01-01T00:00:00Z</startTime>" +
              stop + "</create-subscription>",
          &reply)) {
    return failure;
  }
  std::deque<std::string> last;  // of the past
  bool past = true;
  while (true) {
    host::Tree notification;
    if (Failure failure = client.Next(&notification)) return failure;
    std::string name;
    const std::string line = EventLine(notification.get(), common, wanted, &name);
    if (name == "notificationComplete") return {};
    if (name == "replayComplete") {
      for (const std::string& one : last) std::fputs(one.c_str(), stdout);
      past = false;
    } else if (past && !line.empty()) {
      last.push_back(line);
      if (last.size() > most) last.pop_front();
    } else {
      std::fputs(line.c_str(), stdout);
    }
    std::fflush(stdout);
  }
}

Run SetUpEvents(Syntax* syntax) {
  const auto wanted = std::make_shared<EventsWanted>();
  syntax->Option("-n", "N", &wanted->most, "the last so many (default 20)");
  syntax->Flag("-f,--follow", &wanted->follow, "then go on with what happens, until Ctrl-C");
  syntax->Flag("--sessions", &wanted->sessions, "with beginnings and ends of sessions");
  return [wanted](const Common& common) { return ShowEvents(common, *wanted); };
}

}  // namespace

const Command kEvents = {"events", Group::kLook,
                         "what happened, and happens: commits, filters, ports",
                         "aclctl events -n 5 --follow", SetUpEvents};

}  // namespace aclctl
