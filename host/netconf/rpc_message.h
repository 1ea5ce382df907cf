// One <rpc> as it came from a peer: its outline, its operation read with the schema, and, for what
// needs it, the whole message read without.
#ifndef HOST_NETCONF_RPC_MESSAGE_H_
#define HOST_NETCONF_RPC_MESSAGE_H_

#include <string>

#include "host/cdb/yang_tree.h"
#include "host/netconf/generic_xml.h"
#include "host/netconf/rpc_error.h"
#include "host/netconf/xml_text.h"

namespace host {

class RpcMessage {
 public:
  // Reads `text`, which has no more than its start when `cut` is true. Never fails: what is wrong
  // with the message is in errors(). `context` and `xml` must outlive the message.
  RpcMessage(std::string text, bool cut, int max_depth, const ly_ctx* context,
             const GenericXml& xml);

  // Why the message was refused; empty when Operation() may be used.
  const RpcErrors& errors() const { return errors_; }
  // The operation's node with its input. Data in it may be opaque where the schema does not know
  // them (contents of <config>).
  const lyd_node* Operation() const { return operation_.get(); }
  // Name of the operation as far as it is known, for the log.
  const std::string& name() const { return name_; }
  // The operation's element, read without the schema. Null only when errors() is not empty.
  const lyd_node* GenericOperation() const;

  // Start and end tag of the reply, with what the <rpc> had as prefix, attributes and namespace
  // declarations (RFC 6241 section 4.2).
  std::string ReplyStart() const;
  std::string ReplyEnd() const;
  // Attribute that puts a child element of the reply into NETCONF's namespace; may be empty.
  std::string ReplyChildNamespace() const;

 private:
  void ParseOperation(const ly_ctx* context);
  void CheckShape();
  RpcErrors Diagnose(const ly_ctx* context, const std::string& reason) const;
  const lyd_node* GenericRoot() const;
  std::string Prefix() const;

  const std::string text_;
  const GenericXml& xml_;
  XmlOutline outline_;       // points into text_
  bool root_valid_ = false;  // the root's name and attributes are well-formed
  RpcErrors errors_;
  std::string name_ = "?";
  Tree envelope_;
  Tree operation_;
  mutable Tree generic_;
};

}  // namespace host

#endif  // HOST_NETCONF_RPC_MESSAGE_H_
