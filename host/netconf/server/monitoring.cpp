// The server's own state: see monitoring.h.
#include "host/netconf/server/monitoring.h"

#include <libyang/libyang.h>

#include <cstring>

#include "host/netconf/wire/hello.h"
#include "host/runtime/date_and_time.h"
#include "host/runtime/middleware.h"
#include "host/xml/xml_text.h"

namespace host {
namespace {

std::string Element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">";
}

std::string Number(const std::string& name, uint32_t value) {
  return Element(name, std::to_string(value));
}

std::string Capabilities(const std::vector<std::string>& capabilities) {
  std::string xml;
  for (const std::string& capability : capabilities) {
    xml += Element("capability", XmlEscape(capability));
  }
  return Element("capabilities", xml);
}

std::string Datastores(const Locks& locks) {
  std::string xml;
  for (const char* name : {"running", "candidate"}) {
    std::string content = Element("name", name);
    if (const uint32_t holder = locks.HolderOf(name)) {
      content += Element(
          "locks", Element("global-lock",
                           Number("locked-by-session", holder) +
                               Element("locked-time",
                                       DateAndTime(int64_t{1000000} * locks.TakenAt(name), 0))));
    }
    xml += Element("datastore", content);
  }
  return Element("datastores", xml);
}

std::string Schemas(const ly_ctx* context) {
  std::string xml;
  uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
    xml += Element("schema",
                   Element("identifier", module->name) +
                       Element("version", module->revision != nullptr ? module->revision : "") +
                       Element("format", "yang") + Element("namespace", XmlEscape(module->ns)) +
                       Element("location", "NETCONF"));
  }
  return Element("schemas", xml);
}

std::string Counters(const RpcCounters& counters) {
  return Number("in-rpcs", counters.in_rpcs) + Number("in-bad-rpcs", counters.in_bad_rpcs) +
         Number("out-rpc-errors", counters.out_rpc_errors) +
         Number("out-notifications", counters.out_notifications);
}

std::string Sessions(const std::vector<SessionState>& sessions) {
  std::string xml;
  for (const SessionState& session : sessions) {
    xml += Element("session",
                   Number("session-id", session.id) +
                       "<transport xmlns:acl-n=\"urn:acl-app:netconf\">"
                       "acl-n:netconf-unix-socket</transport>" +
                       Element("username", XmlEscape(session.user)) +
                       Element("login-time", DateAndTime(int64_t{1000000} * session.login, 0)) +
                       Counters(session.rpcs));
  }
  return Element("sessions", xml);
}

std::string Statistics(const ServerCounters& counters) {
  return Element(
      "statistics",
      Element("netconf-start-time", DateAndTime(int64_t{1000000} * counters.started, 0)) +
          Number("in-bad-hellos", counters.in_bad_hellos) +
          Number("in-sessions", counters.in_sessions) +
          Number("dropped-sessions", counters.dropped_sessions) + Counters(counters.rpcs));
}

}  // namespace

Tree BuildNetconfState(const ly_ctx* context, const ServerState& state) {
  const std::string xml =
      "<netconf-state xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\">" +
      Capabilities(state.capabilities) + Datastores(state.locks) + Schemas(context) +
      Sessions(state.sessions) + Statistics(state.counters) + "</netconf-state>";
  lyd_node* tree = nullptr;
  if (lyd_parse_data_mem(context, xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0,
                         &tree) != LY_SUCCESS) {
    const char* reason = ly_errmsg(context);
    Log(LogLevel::kError, "netconf: the server's state cannot be shown: %s",
        reason != nullptr ? reason : "?");
    ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
  }
  return Tree(tree);
}

Tree BuildYangLibrary(const ly_ctx* context, const char* name) {
  lyd_node* raw = nullptr;
  if (ly_ctx_get_yanglib_data(context, &raw, "%s", YangLibraryContentId(context).c_str()) !=
      LY_SUCCESS) {
    ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
    return nullptr;
  }
  const Tree all(raw);
  for (const lyd_node* node = raw; node != nullptr; node = node->next) {
    lyd_node* copy = nullptr;
    if (std::strcmp(node->schema->name, name) == 0 &&
        lyd_dup_single(node, nullptr, LYD_DUP_RECURSIVE, &copy) == LY_SUCCESS) {
      return Tree(copy);
    }
  }
  return nullptr;
}

}  // namespace host
