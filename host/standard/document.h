// A document of YANG data as a tree of names and values, read from JSON (RFC 7951) or XML (RFC
// 7950) and printed as either.
//
// It is read without the modules that it is about, on purpose: whatever the sender's revision and
// augmentations are, every statement is there with its path, so that what is not understood can be
// told of. What values must be is checked by those who take them. An annotation (RFC 7952; in XML
// an attribute) is a node among those that it is about, "@" in a container and "@leaf" beside a
// leaf, with its text as the value.
#ifndef HOST_STANDARD_DOCUMENT_H_
#define HOST_STANDARD_DOCUMENT_H_

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace host::standard {

// A module that a document may be about.
struct Module {
  const char* name;
  const char* space;   // its namespace
  const char* prefix;  // in XML that is printed
};
extern const Module kAccessControlList, kAclEnhancements, kOpenConfigAcl, kOpenConfigMatch,
    kOpenConfigMatchTypes, kOpenConfigSets, kOpenConfigInterfaces, kOwnStandard, kOwn;

struct Node {
  // How the node is printed. XML tells nothing but kContainer and kText.
  enum class Form : uint8_t {
    kContainer,
    kEntry,  // of a list
    kText,
    kNumber,  // a number or a boolean, which JSON has without quotes
    kEmpty,   // a leaf of type empty
    kItem,    // of a leaf-list of texts
    kNumberItem,
    kIdentity,    // a text that is the name of an identity of `module_of_value`
    kAnnotation,  // what is said about a node and not in it: an attribute; only read
    kNothing,     // an array of JSON without anything in it; only read
  };

  std::string_view name;
  std::string_view module;  // name; of an unknown one in XML, the namespace
  Form form = Form::kContainer;
  bool again = false;                // an earlier child of the parent has this name; only read
  std::string value;                 // without the prefix of an identity
  std::string_view module_of_value;  // of an identity; empty where the document does not say
  std::vector<Node> children;

  // The first child of that name, or null.
  const Node* Find(std::string_view child) const;
  // Its value, empty when there is none.
  const std::string& ValueOf(std::string_view child) const;
  // Adds a child, of this node's module, and returns it; valid until the next one is added.
  Node& Add(std::string_view child, Form form = Form::kContainer, std::string text = "");
};

enum class Format { kJson, kXml };

// Owns the names of its nodes.
class Document {
 public:
  // Top-level nodes are the children of the root.
  Node root;

  // JSON begins with a brace; an object that has a member twice is refused (RFC 7951 takes I-JSON,
  // RFC 7493). The envelopes of NETCONF and RESTCONF are taken off. Empty, or why the text is
  // neither.
  std::string Read(const std::string& text);
  std::string Print(Format format) const;
  // A view that lives as long as the document.
  std::string_view Keep(std::string_view text);

 private:
  std::deque<std::string> kept_;
  std::unordered_set<std::string_view> known_;  // of kept_
};

}  // namespace host::standard

#endif  // HOST_STANDARD_DOCUMENT_H_
