// One <rpc>: see rpc_message.h.
#include "host/netconf/message/rpc_message.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "host/cdb/schema/schema.h"
#include "host/netconf/message/config_builder.h"
#include "host/netconf/message/config_diagnosis.h"

namespace host {
namespace {

RpcError OfRpcLayer(RpcError error) {
  error.type = "rpc";
  return error;
}

// RFC 6241 Appendix B calls the element that stands for all operations so.
RpcError NoOperation() {
  RpcError error = MissingElement("rpcOperation");
  error.message = "<rpc> holds no operation";
  return error;
}

std::string BadElementInfo(const std::string& element) { return BadElement(element, "").info; }

std::string TakeLibyangReason(const ly_ctx* context) {
  const char* reason = ly_errmsg(context);
  std::string text = reason != nullptr ? reason : "the message cannot be read";
  ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
  return text;
}

// Looks for what the schema refuses in an operation's input: `node` is an element of the message,
// its children are checked against those of `schema`.
void CheckInput(const lyd_node* node, const lysc_node* schema, const ly_ctx* context,
                RpcErrors* errors) {
  if (!XmlText(node).empty()) {
    const std::string name(XmlName(node));
    errors->push_back(BadElement(name, "<" + name + "> holds a text, not elements"));
  }
  for (const lyd_attr* attr = AsOpaque(node)->attr; attr != nullptr && errors->size() <= kMaxErrors;
       attr = attr->next) {
    errors->push_back(UnknownAttribute(attr->name.name, std::string(XmlName(node))));
  }
  for (const lyd_node* child = lyd_child(node); child != nullptr && errors->size() <= kMaxErrors;
       child = child->next) {
    const std::string name(XmlName(child)), name_space(XmlNamespace(child));
    const lys_module* module = ly_ctx_get_module_implemented_ns(context, name_space.c_str());
    if (module == nullptr) {
      errors->push_back(UnknownNamespace(name, name_space));
      continue;
    }
    const lysc_node* found = lys_find_child(schema, module, name.c_str(), 0, 0, 0);
    if (found == nullptr) {
      errors->push_back(UnknownElement(name));
    } else if ((found->nodetype & LYD_NODE_TERM) != 0) {
      const std::string value(XmlText(child));
      if (lyd_value_validate(context, found, value.data(), value.size(), nullptr, nullptr,
                             nullptr) != LY_SUCCESS) {
        TakeLibyangReason(context);
        errors->push_back(
            {"protocol", "invalid-value", WhyNotValue(found, value), "", "", BadElementInfo(name)});
      }
    } else if ((found->nodetype & LYS_CONTAINER) != 0) {
      CheckInput(child, found, context, errors);
    } else if (name == "config") {
      DiagnoseConfig(child, context, errors);
    }
  }
}

// Looks for a filter of a type that there is not. To be called when nothing else is wrong: whether
// an expression is one was for the parser to say.
void CheckFilter(const lyd_node* operation, RpcErrors* errors) {
  const lyd_node* filter = lyd_child(operation);
  while (filter != nullptr &&
         (XmlName(filter) != "filter" || XmlNamespace(filter) != XmlNamespace(operation))) {
    filter = filter->next;
  }
  const auto type = filter == nullptr ? std::nullopt : XmlAttribute(filter, "type");
  if (type.has_value() && *type != "subtree" && *type != "xpath") {
    errors->push_back(BadAttribute("type", "filter",
                                   "there are no filters of type \"" + std::string(*type) + "\""));
  } else if (type == "xpath") {
    const auto select = XmlAttribute(filter, "select");
    if (select.has_value()) {
      errors->push_back(BadAttribute("select", "filter",
                                     "\"" + std::string(*select) +
                                         "\" is no XPath expression, or has a prefix that is not "
                                         "declared in the message"));
    }
  }
}

std::string WithoutMark(std::string text) {
  DropByteOrderMark(&text);
  return text;
}

// What a message with a fault, which must not be kNone, is refused with.
RpcError OfFault(XmlOutline::Fault fault, int max_depth) {
  const auto too_big = [](const std::string& what, size_t limit) {
    return RpcError{"rpc", "too-big", what + std::to_string(limit), "", "", ""};
  };
  switch (fault) {
    case XmlOutline::Fault::kTooDeep:
      return too_big("elements are nested deeper than ", max_depth);
    case XmlOutline::Fault::kTooManyAttributes:
      return too_big("an element has more than " + std::to_string(kMaxAttributes) +
                         " attributes, or the namespaces declared around it are more than ",
                     kMaxDeclarationsInScope);
    case XmlOutline::Fault::kTooManyParameters:
      return too_big("parameters and elements of the filter are more than ", kMaxParameterElements);
    case XmlOutline::Fault::kSelectTooLong:
      return BadAttribute(
          "select", "filter",
          "the expression is longer than " + std::to_string(kMaxSelectBytes) + " bytes");
    default:
      return {"rpc", "malformed-message", "the message is not well-formed XML", "", "", ""};
  }
}

// The <config> among the siblings that holds a text.
const lyd_node* FindTextConfig(const lyd_node* first) {
  for (const lyd_node* node = first; node != nullptr; node = node->next) {
    if (node->schema == nullptr || (node->schema->nodetype & LYS_ANYDATA) == 0) continue;
    const auto* any = reinterpret_cast<const lyd_node_any*>(node);
    const bool is_text =
        any->value_type == LYD_ANYDATA_STRING || any->value_type == LYD_ANYDATA_XML;
    if (is_text && any->value.str != nullptr &&
        any->value.str[std::strspn(any->value.str, " \t\r\n")] != '\0') {
      return node;
    }
  }
  return nullptr;
}

// The first node given twice among those that can be there once, or the second of an alternative.
const lyd_node* FindSurplus(const lyd_node* first, bool one_only) {
  for (const lyd_node* node = first; node != nullptr; node = node->next) {
    if (node->schema == nullptr || (node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0) {
      continue;
    }
    for (const lyd_node* other = first; other != node; other = other->next) {
      if (one_only || other->schema == node->schema) return node;
    }
  }
  return nullptr;
}

// The one <config> among the parameters, or within one of them, when it is there and empty.
lyd_node_any* FindEmptyConfig(lyd_node* first) {
  for (lyd_node* node = first; node != nullptr; node = node->next) {
    if (node->schema == nullptr) continue;
    if (node->schema->nodetype == LYS_CONTAINER) {
      if (lyd_node_any* within = FindEmptyConfig(lyd_child(node))) return within;
    }
    auto* any = reinterpret_cast<lyd_node_any*>(node);
    if ((node->schema->nodetype & LYS_ANYDATA) != 0 && std::strcmp(LYD_NAME(node), "config") == 0 &&
        any->value_type == LYD_ANYDATA_DATATREE && any->value.tree == nullptr) {
      return any;
    }
  }
  return nullptr;
}

// The tree of a message's configuration, null when it is refused.
Tree ParseConfig(const ly_ctx* context, const XmlOutline& outline) {
  std::string_view name_space;
  for (const auto& [prefix, value] : outline.config_declarations) {
    if (prefix.empty()) name_space = value;
  }
  if (Tree built = BuildConfig(context, outline.config, name_space)) return built;
  lyd_node* parsed = nullptr;
  const LY_ERR result = lyd_parse_data_mem(context, ConfigDocument(outline).c_str(), LYD_XML,
                                           LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &parsed);
  Tree tree(parsed);
  return result == LY_SUCCESS ? std::move(tree) : nullptr;
}

// More than any message has around its configuration.
constexpr int kEnvelopeDepth = 16;

}  // namespace

RpcMessage::RpcMessage(std::string text, bool cut, int max_depth, size_t max_elements,
                       const ly_ctx* context, const GenericXml& xml)
    : context_(context),
      text_(NameEmptyNamespaces(WithoutMark(std::move(text)))),
      xml_(xml),
      outline_(ScanXml(text_, max_depth)) {
  if (outline_.namespaces_missing && outline_.fault == XmlOutline::Fault::kNone && !cut &&
      outline_.elements <= max_elements) {
    text_ = CompleteNamespaces(std::move(text_));
    outline_ = ScanXml(text_, max_depth);
  }
  std::string reason;
  if (!outline_.root.empty()) {
    const std::string root =
        "<" + std::string(outline_.root) + " " + std::string(outline_.root_attributes) + "/>";
    const Tree tree = xml_.Parse(root, &reason);
    root_valid_ = tree != nullptr && XmlName(tree.get()) == "rpc" &&
                  XmlNamespace(tree.get()) == kNetconfNamespace;
    if (root_valid_ && !XmlAttribute(tree.get(), "message-id").has_value()) {
      errors_.push_back(MissingAttribute("message-id", "rpc"));
      return;
    }
  }
  if (cut) {
    errors_.push_back({"rpc", "too-big", "the message is longer than allowed", "", "", ""});
  } else if (outline_.fault != XmlOutline::Fault::kNone) {
    errors_.push_back(OfFault(outline_.fault, max_depth));
  } else if (outline_.elements > max_elements) {
    errors_.push_back({"rpc", "too-big",
                       "a message of those who may only read has at most " +
                           std::to_string(max_elements) + " elements",
                       "", "", ""});
  } else if (!ParseApart()) {
    ParseOperation();
  }
}

// Parses the configuration in the message apart from what is around it: strictly, which takes half
// the time, since the parser of whole messages reads every value and key twice to find out what it
// cannot place. What that refuses is for ParseOperation() to diagnose: false, and nothing is
// changed. When it succeeds the text of the configuration is given up.
bool RpcMessage::ParseApart() {
  if (!root_valid_ || outline_.foreign_attributes || outline_.config.empty()) return false;
  const size_t begin = outline_.config.data() - text_.data();
  std::string around = text_.substr(0, begin);
  around.append(text_, begin + outline_.config.size());
  ly_in* in = nullptr;
  if (ly_in_new_memory(around.c_str(), &in) != LY_SUCCESS) return false;
  lyd_node *envelope = nullptr, *operation = nullptr;
  const LY_ERR result =
      lyd_parse_op(context_, nullptr, in, LYD_XML, LYD_TYPE_RPC_NETCONF, &envelope, &operation);
  ly_in_free(in, 0);
  Tree parsed_envelope(envelope), parsed_operation(operation);
  lyd_node_any* config = result == LY_SUCCESS ? FindEmptyConfig(lyd_child(operation)) : nullptr;
  Tree content = config != nullptr ? ParseConfig(context_, outline_) : nullptr;
  if (content == nullptr) {
    TakeLibyangReason(context_);
    return false;
  }
  config->value.tree = content.release();
  envelope_ = std::move(parsed_envelope);
  operation_ = std::move(parsed_operation);
  text_ = std::move(around);
  outline_ = ScanXml(text_, kEnvelopeDepth);
  schema_ = operation_->schema;
  CheckShape();
  return true;
}

void RpcMessage::ParseOperation() {
  if (Parse(text_)) return;
  reason_ = TakeLibyangReason(context_);
  errors_ = FindSchema();
  undiagnosed_ = errors_.empty();
  if (!undiagnosed_ || !AdoptFilter()) return;
  char* text = nullptr;
  if (lyd_print_mem(&text, generic_.get(), LYD_XML, LYD_PRINT_SHRINK) != LY_SUCCESS) return;
  undiagnosed_ = !Parse(text);
  std::free(text);
  if (undiagnosed_) reason_ = TakeLibyangReason(context_);
}

// Some clients send the <filter> of a <create-subscription> in NETCONF's namespace, as that of a
// <get>. There is no doubt about what it means: whether that was so, and is put right in the
// message as it is read without the schema.
bool RpcMessage::AdoptFilter() {
  lyd_node* operation = lyd_child(generic_.get());
  if (XmlName(operation) != "create-subscription") return false;
  const lyd_node* found = FindNetconfChild(operation, "filter");
  if (found == nullptr) return false;
  const ly_ctx* dictionary = LYD_CTX(found);
  ly_opaq_name& name = reinterpret_cast<lyd_node_opaq*>(const_cast<lyd_node*>(found))->name;
  const ly_opaq_name& of_operation = AsOpaque(operation)->name;
  for (const auto& [own, others] : {std::pair{&name.prefix, of_operation.prefix},
                                    std::pair{&name.module_ns, of_operation.module_ns}}) {
    lydict_remove(dictionary, *own);
    *own = nullptr;
    if (others != nullptr) lydict_insert(dictionary, others, 0, own);
  }
  return true;
}

// Whether the schema takes the message `text`.
bool RpcMessage::Parse(const std::string& text) {
  ly_in* in = nullptr;
  if (ly_in_new_memory(text.c_str(), &in) != LY_SUCCESS) {
    errors_.push_back({"rpc", "resource-denied", "out of memory", "", "", ""});
    return true;
  }
  lyd_node *envelope = nullptr, *operation = nullptr;
  const LY_ERR result =
      lyd_parse_op(context_, nullptr, in, LYD_XML, LYD_TYPE_RPC_NETCONF, &envelope, &operation);
  ly_in_free(in, 0);
  envelope_.reset(envelope);
  operation_.reset(operation);
  if (result == LY_SUCCESS && operation != nullptr && root_valid_) {
    schema_ = operation->schema;
    CheckShape();
    if (errors_.empty() && outline_.foreign_attributes) CheckAttributes();
    return true;
  }
  return false;
}

// libyang does not look for what is given too often, and takes a text for a configuration.
void RpcMessage::CheckShape() {
  const lyd_node* parameters = lyd_child(operation_.get());
  const lyd_node* surplus = FindSurplus(parameters, false);
  const lyd_node* text = FindTextConfig(parameters);
  for (const lyd_node* child = parameters; child != nullptr; child = child->next) {
    if (child->schema == nullptr || child->schema->nodetype != LYS_CONTAINER) continue;
    // A container names a datastore, or holds a configuration.
    if (surplus == nullptr) surplus = FindSurplus(lyd_child(child), true);
    if (text == nullptr) text = FindTextConfig(lyd_child(child));
  }
  if (surplus != nullptr) {
    const std::string name = LYD_NAME(surplus);
    errors_.push_back(BadElement(name, "<" + name + "> is too much, only one can be given"));
  } else if (text != nullptr) {
    errors_.push_back(BadElement("config", kTextConfig));
  }
}

// libyang drops attributes of namespaces that it does not know, and those of none: an
// operation="..." that is not NETCONF's would be a merge.
void RpcMessage::CheckAttributes() {
  const lyd_node* input = GenericOperation();
  const lyd_node* source = FindNetconfChild(input, "source");
  for (const lyd_node* parent : {input, source}) {
    const lyd_node* config = FindNetconfChild(parent, "config");
    if (config != nullptr) DiagnoseConfig(config, context_, &errors_);
  }
  if (errors_.size() > kMaxErrors) return;  // not all was looked at
  // What else there may be is for the datastore to say.
  errors_.erase(
      std::remove_if(errors_.begin(), errors_.end(),
                     [](const RpcError& error) { return error.tag != "unknown-attribute"; }),
      errors_.end());
}

// Finds the operation of a message that the schema refused, or why there is none.
RpcErrors RpcMessage::FindSchema() {
  std::string malformed;
  generic_ = xml_.Parse(text_, &malformed);
  if (generic_ == nullptr) return {{"rpc", "malformed-message", malformed, "", "", ""}};
  if (XmlName(generic_.get()) != "rpc") {
    return {OfRpcLayer(UnknownElement(std::string(XmlName(generic_.get()))))};
  }
  if (XmlNamespace(generic_.get()) != kNetconfNamespace) {
    return {OfRpcLayer(UnknownNamespace("rpc", std::string(XmlNamespace(generic_.get()))))};
  }
  const lyd_node* operation = lyd_child(generic_.get());
  if (operation == nullptr) return {OfRpcLayer(NoOperation())};
  if (operation->next != nullptr) {
    return {OfRpcLayer(UnknownElement(std::string(XmlName(operation->next))))};
  }
  const std::string name(XmlName(operation));
  const lys_module* module =
      ly_ctx_get_module_implemented_ns(context_, std::string(XmlNamespace(operation)).c_str());
  const lysc_node* found =
      module == nullptr ? nullptr : lys_find_child(nullptr, module, name.c_str(), 0, LYS_RPC, 0);
  if (name == "delete-config") {
    return {OperationNotSupported("there is no configuration that can be deleted")};
  }
  if (found == nullptr) {
    return {OperationNotSupported("there is no operation \"" + name + "\" here")};
  }
  schema_ = found;
  return {};
}

// Finds the errors that describe best why the schema refused the operation's input.
RpcErrors RpcMessage::Diagnose() const {
  RpcErrors errors;
  const lyd_node* operation = GenericOperation();
  CheckInput(operation, schema_, context_, &errors);
  if (errors.empty()) CheckFilter(operation, &errors);
  if (errors.empty()) errors.push_back({"protocol", "operation-failed", reason_, "", "", ""});
  return errors;
}

const RpcErrors& RpcMessage::errors() const {
  if (undiagnosed_) errors_ = Diagnose();
  undiagnosed_ = false;
  return errors_;
}

const lyd_node* RpcMessage::GenericRoot() const {
  std::string reason;
  if (generic_ == nullptr) generic_ = xml_.Parse(text_, &reason);
  return generic_.get();
}

const lyd_node* RpcMessage::GenericOperation() const {
  const lyd_node* root = GenericRoot();
  return root == nullptr ? nullptr : lyd_child(root);
}

std::string RpcMessage::Prefix() const {
  const size_t colon = outline_.root.find(':');
  return root_valid_ && colon != std::string_view::npos
             ? std::string(outline_.root.substr(0, colon + 1))
             : "";
}

std::string RpcMessage::ReplyStart() const {
  if (!root_valid_) return std::string("<rpc-reply xmlns=\"") + kNetconfNamespace + "\">";
  std::string attributes(outline_.root_attributes);
  const size_t named = attributes.find(kNoNamespace);
  if (named != std::string::npos) attributes.erase(named, std::strlen(kNoNamespace));
  return "<" + Prefix() + "rpc-reply " + attributes + ">";
}

std::string RpcMessage::ReplyEnd() const { return "</" + Prefix() + "rpc-reply>"; }

std::string RpcMessage::ReplyChildNamespace() const {
  return Prefix().empty() ? "" : std::string(" xmlns=\"") + kNetconfNamespace + "\"";
}

}  // namespace host
