// The daemon's data: see data.h.
#include "tools/client/data.h"

namespace client {

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

}  // namespace client
