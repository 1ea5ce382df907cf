// The daemon's data: see daemon_data.h.
#include "tools/aclctl/daemon_data.h"

#include <cstdio>

#include "tools/aclctl/schema.h"

namespace aclctl {

std::string ShortTime(const std::string& time) {
  return time.size() < 19 ? time : time.substr(0, 10) + " " + time.substr(11, 8);
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

std::string GroupName(const lyd_node* group) {
  return ChildText(group, "type") == "l2" ? "L2" : "L3";
}

Failure PrintOutput(Client* client, const std::string& module, const std::string& name,
                    const std::string& reply_text) {
  std::string text;
  if (Failure failure = OutputAsJson(client, module, name, reply_text, &text)) return failure;
  std::fwrite(text.data(), 1, text.size(), stdout);
  return {};
}

}  // namespace aclctl
