// Documents in JSON: see document.h. Annotations are members whose names begin with '@' (RFC 7952,
// section 5.2).
#include <nlohmann/json.hpp>
#include <utility>

#include "host/standard/document_modules.h"

namespace host::standard {
namespace {

// Builds nodes while nlohmann's parser goes through the text (its SAX interface).
class JsonReader : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit JsonReader(Document* document) : document_(document) {}

  const std::string& error() const { return error_; }

  bool null() override {
    Place& place = places_.back();
    if (!place.in_array) return Fail("null has no meaning in YANG data");
    AddLeaf(Node::Form::kEmpty, "");
    return true;
  }
  bool boolean(bool value) override { return AddScalar(true, value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override {
    return AddScalar(true, std::to_string(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return AddScalar(true, std::to_string(value));
  }
  bool number_float(number_float_t /*value*/, const string_t& text) override {
    return AddScalar(true, text);
  }
  bool string(string_t& value) override { return AddScalar(false, value); }
  bool binary(binary_t& /*value*/) override { return Fail("binary data"); }
  bool start_object(size_t /*elements*/) override {
    if (places_.empty()) {
      places_.push_back({&document_->root});
      return true;
    }
    Place& place = places_.back();
    if (places_.size() > kDeepestNode) return Fail("it is too deep");
    Node& node = AddNode(place.in_array ? Node::Form::kEntry : Node::Form::kContainer);
    places_.push_back({&node});
    return true;
  }
  bool key(string_t& text) override {
    Place& place = places_.back();
    // The colon in an annotation's name belongs to what it is about.
    const size_t colon = text[0] == '@' ? std::string::npos : text.find(':');
    place.module = colon == std::string::npos
                       ? place.node->module
                       : document_->Keep(std::string_view(text).substr(0, colon));
    place.name =
        document_->Keep(std::string_view(text).substr(colon == std::string::npos ? 0 : colon + 1));
    if (place.name.empty()) return Fail("a member without a name");
    if (place.seen.Add(place.name, place.module)) return true;
    return Fail("the member " + PathOf(places_) + " stands twice in one object");
  }
  bool end_object() override {
    places_.pop_back();
    return true;
  }
  bool start_array(size_t /*elements*/) override {
    if (places_.empty() || places_.back().in_array) return Fail("an array where none may be");
    places_.back().in_array = true;
    places_.back().before_array = places_.back().node->children.size();
    return true;
  }
  bool end_array() override {
    Place& place = places_.back();
    place.in_array = false;
    if (place.node->children.size() == place.before_array) AddNode(Node::Form::kNothing);
    return true;
  }
  bool parse_error(size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& what) override {
    error_ = what.what();
    return false;
  }

 private:
  struct Place {
    Node* node;  // the last one of its parent, so it stays where it is while it is worked on
    std::string_view name = {}, module = {};
    SeenNames seen = {};  // members
    bool in_array = false;
    size_t before_array = 0;  // children that there were
  };

  bool Fail(std::string why) {
    error_ = std::move(why);
    return false;
  }
  // The path of the member at hand; what is in an entry of a list has its first value with it.
  static std::string PathOf(const std::vector<Place>& places) {
    std::string path;
    for (const Place& place : places) {
      const std::vector<Node>& children = place.node->children;
      if (place.node->form == Node::Form::kEntry && !children.empty()) {
        path += "['" + children.front().value + "']";
      }
      path.append("/").append(place.name);
    }
    return path;
  }
  Node& AddNode(Node::Form form) {
    Place& place = places_.back();
    Node& node = place.node->children.emplace_back();
    node.name = place.name;
    node.module = place.module;
    node.form = place.name[0] == '@' ? Node::Form::kAnnotation : form;
    return node;
  }
  void AddLeaf(Node::Form form, std::string value) { AddNode(form).value = std::move(value); }
  bool AddScalar(bool number, std::string value) {
    using Form = Node::Form;
    const bool item = places_.back().in_array;
    Node& node = AddNode(item     ? number ? Form::kNumberItem : Form::kItem
                         : number ? Form::kNumber
                                  : Form::kText);
    const size_t colon = value.find(':');
    const Module* module =
        colon == std::string::npos ? nullptr : FindModule(value.substr(0, colon));
    if (module != nullptr && MayBeIdentity(node.name) && !StartsWithDigit(value, colon + 1)) {
      node.module_of_value = module->name;
      value.erase(0, colon + 1);
    }
    node.value = std::move(value);
    return true;
  }

  Document* document_;
  std::vector<Place> places_;
  std::string error_;
};

}  // namespace

std::string ReadJson(const std::string& text, Document* document) {
  JsonReader reader(document);
  if (nlohmann::json::sax_parse(text, &reader)) return "";
  return reader.error().empty() ? "it is no JSON" : reader.error();
}

}  // namespace host::standard
