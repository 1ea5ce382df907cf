// One <rpc> as it came from a peer: its outline, its operation read with the schema, and, for what
// needs it, the whole message read without.
#ifndef HOST_NETCONF_MESSAGE_RPC_MESSAGE_H_
#define HOST_NETCONF_MESSAGE_RPC_MESSAGE_H_

#include <string>

#include "host/cdb/schema/yang_tree.h"
#include "host/netconf/message/rpc_error.h"
#include "host/xml/generic_xml.h"
#include "host/xml/xml_text.h"

namespace host {

class RpcMessage {
 public:
  // Reads `text`, which has no more than its start when `cut` is true, unless it has more than
  // `max_elements`. Never fails: what is wrong with the message is in errors(). `context` and `xml`
  // must outlive the message.
  RpcMessage(std::string text, bool cut, int max_depth, size_t max_elements, const ly_ctx* context,
             const GenericXml& xml);

  // Whether Operation() may be used.
  bool valid() const { return !undiagnosed_ && errors_.empty(); }
  // Why the message is not valid. The first call looks for it in the operation's input, which
  // takes its time.
  const RpcErrors& errors() const;
  // The RPC that the message is for; null when that is not known. It is there for most messages
  // that are not valid, too.
  const lysc_node* OperationSchema() const { return schema_; }
  // The operation's node with its input. Data in it may be opaque where the schema does not know
  // them (contents of <config>).
  lyd_node* Operation() { return operation_.get(); }
  // Name of the operation as far as it is known, for the log.
  const char* name() const { return schema_ != nullptr ? schema_->name : "?"; }
  // The operation's element, read without the schema. Null only when the message is not
  // valid.
  const lyd_node* GenericOperation() const;

  // Start and end tag of the reply, with what the <rpc> had as prefix, attributes and namespace
  // declarations (RFC 6241 section 4.2).
  std::string ReplyStart() const;
  std::string ReplyEnd() const;
  // Attribute that puts a child element of the reply into NETCONF's namespace; may be empty.
  std::string ReplyChildNamespace() const;

 private:
  bool ParseApart();
  void ParseOperation();
  bool Parse(const std::string& text);
  bool AdoptFilter();
  void CheckShape();
  void CheckAttributes();
  RpcErrors FindSchema();
  RpcErrors Diagnose() const;
  const lyd_node* GenericRoot() const;
  std::string Prefix() const;

  const ly_ctx* const context_;
  std::string text_;
  const GenericXml& xml_;
  XmlOutline outline_;       // points into text_
  bool root_valid_ = false;  // the root's name and attributes are well-formed
  const lysc_node* schema_ = nullptr;
  std::string reason_;                // libyang's, where the schema refused the message
  mutable bool undiagnosed_ = false;  // refused, but errors_ does not yet tell why
  mutable RpcErrors errors_;
  Tree envelope_;
  Tree operation_;
  mutable Tree generic_;
};

}  // namespace host

#endif  // HOST_NETCONF_MESSAGE_RPC_MESSAGE_H_
