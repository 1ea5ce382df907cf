// The reading of documents: see document.h.
#include <algorithm>
#include <iterator>
#include <utility>

#include "host/standard/document_modules.h"

namespace host::standard {
namespace {

// What a protocol puts around data: NETCONF's messages and RESTCONF's resource.
bool IsEnvelope(const Node& node) {
  return node.module != kOwn.name && node.value.empty() &&
         (node.name == "data" || node.name == "config" || node.name == "rpc-reply");
}

bool IsAnnotation(const Node& node) { return node.form == Node::Form::kAnnotation; }

// Takes what is in envelopes out of them. What is said about a reply is not about its data.
void OpenEnvelopes(Node* root) {
  while (!root->children.empty() && IsEnvelope(root->children.front()) &&
         std::all_of(root->children.begin() + 1, root->children.end(), IsAnnotation)) {
    std::vector<Node> inner = std::move(root->children.front().children);
    const bool reply = root->children.front().name == "rpc-reply";
    root->children.erase(root->children.begin());
    std::vector<Node>& left = root->children;  // annotations of the envelope
    if (reply) inner.erase(std::remove_if(inner.begin(), inner.end(), IsAnnotation), inner.end());
    left.insert(left.begin(), std::make_move_iterator(inner.begin()),
                std::make_move_iterator(inner.end()));
  }
}

// Marks the nodes whose name an earlier child of their parent has. Below the root one name may be
// that of several models; elsewhere a second one, whosever it is, makes the first doubtful.
void MarkRepeated(Node* parent, bool is_root) {
  SeenNames seen;
  const Node* before = nullptr;
  for (Node& node : parent->children) {
    if (IsAnnotation(node)) continue;
    // Entries of a list follow one another.
    const std::string_view module = is_root ? node.module : std::string_view();
    node.again = (before != nullptr && before->name.data() == node.name.data() && !is_root) ||
                 !seen.Add(node.name, module);
    before = &node;
    if (!node.children.empty()) MarkRepeated(&node, false);
  }
}

}  // namespace

std::string Document::Read(const std::string& text) {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  const size_t start = text.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0;
  const size_t first = text.find_first_not_of(" \t\r\n", start);
  if (first == std::string::npos) return "it is empty";
  if (text[first] != '<' && text[first] != '{') return "it is neither JSON nor XML";
  std::string wrong = text[first] == '<' ? ReadXml(text, this) : ReadJson(text, this);
  if (wrong.empty()) {
    OpenEnvelopes(&root);
    MarkRepeated(&root, true);
  }
  return wrong;
}

}  // namespace host::standard
