// Reading of whole configurations from files.
#include "host/cdb/load.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "host/cdb/schema/schema.h"

namespace host {
namespace {

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

DatastoreErrors LoadFailure(const std::string& message) {
  DatastoreError error;
  error.tag = "operation-failed";
  error.message = message;
  return {error};
}

DatastoreErrors ReadFile(const std::string& path, std::string* text) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  if (!file || !(content << file.rdbuf())) {
    return LoadFailure("cannot read " + path + ": " +
                       (errno != 0 ? strerror(errno) : "it is empty"));
  }
  *text = content.str();
  if (text->find_first_not_of(" \t\r\n") == std::string::npos)
    return LoadFailure("cannot read " + path + ": it is empty");
  return {};
}

}  // namespace

DatastoreErrors InFile(const std::string& path, DatastoreErrors errors) {
  for (DatastoreError& error : errors) error.message = path + ": " + error.message;
  return errors;
}

DatastoreErrors LoadConfiguration(const ly_ctx* context, const std::string& path, Tree* tree) {
  const bool json = EndsWith(path, ".json");
  if (!json && !EndsWith(path, ".xml"))
    return LoadFailure("cannot read " + path + ": its name must end in .json or .xml");
  std::string text;
  errno = 0;
  DatastoreErrors errors = ReadFile(path, &text);
  if (!errors.empty()) return errors;
  // libyang takes some JSON that ends too early for complete.
  if (json && !nlohmann::json::accept(text))
    return LoadFailure("cannot read " + path + ": it is not well-formed JSON");
  lyd_node* first = nullptr;
  const LY_ERR result =
      lyd_parse_data_mem(context, text.c_str(), json ? LYD_JSON : LYD_XML,
                         LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, LYD_VALIDATE_NO_STATE, &first);
  tree->reset(first);
  TakeErrors(context, nullptr, &errors);
  if (result != LY_SUCCESS && errors.empty()) errors = LoadFailure("cannot be parsed");
  if (result != LY_SUCCESS) return InFile(path, std::move(errors));
  Normalize(context, tree);
  return {};
}

}  // namespace host
