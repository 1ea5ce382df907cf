// The daemon's data: see daemon_data.h.
#include "tools/aclctl/daemon_data.h"

#include <cstdio>

#include "tools/aclctl/schema.h"

namespace aclctl {

const lyd_node* FindChild(const lyd_node* parent, std::string_view name) {
  for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next) {
    if (host::XmlName(child) == name) return child;
  }
  return nullptr;
}

std::string ChildText(const lyd_node* parent, std::string_view name) {
  const lyd_node* child = FindChild(parent, name);
  return child == nullptr ? "" : std::string(host::XmlText(child));
}

std::string ShortTime(const std::string& time) {
  return time.size() < 19 ? time : time.substr(0, 10) + " " + time.substr(11, 8);
}

std::vector<const lyd_node*> Children(const lyd_node* parent, std::string_view name) {
  std::vector<const lyd_node*> found;
  for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next) {
    if (host::XmlName(child) == name) found.push_back(child);
  }
  return found;
}

Failure FetchState(Client* client, const std::string& filter, std::string* data, host::Tree* reply,
                   const lyd_node** top) {
  std::string text;
  if (Failure failure = client->Call("<get><filter type=\"subtree\">" + filter + "</filter></get>",
                                     reply, &text)) {
    return failure;
  }
  *data = InnerXml(text, "data");
  *top = lyd_child(FindChild(reply->get(), "data"));
  return {};
}

Failure PrintData(Form form, Client* client, const std::string& module, const std::string& data) {
  host::ContextPtr context;
  if (Failure failure = FetchSchema(client, {module}, &context)) return failure;
  std::string text;
  if (Failure failure =
          Convert(context.get(), data, form == Form::kXml ? Format::kXml : Format::kJson, &text)) {
    return failure;
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
  return {};
}

Failure OutputAsJson(Client* client, const std::string& module, const std::string& name,
                     const std::string& reply_text, std::string* json) {
  host::ContextPtr context;
  if (Failure failure = FetchSchema(client, {module}, &context)) return failure;
  std::string output = InnerXml(reply_text, "rpc-reply");
  if (output.find("<ok") == 0) output.clear();  // the operation has given nothing
  return ConvertOutput(context.get(), module + ":" + name, output, json);
}

Failure PrintOutput(Client* client, const std::string& module, const std::string& name,
                    const std::string& reply_text) {
  std::string text;
  if (Failure failure = OutputAsJson(client, module, name, reply_text, &text)) return failure;
  std::fwrite(text.data(), 1, text.size(), stdout);
  return {};
}

}  // namespace aclctl
