// A difference of configurations for clients: the grouping "difference" of acl-app-history.
#ifndef HOST_NETCONF_OPERATIONS_DIFFERENCE_XML_H_
#define HOST_NETCONF_OPERATIONS_DIFFERENCE_XML_H_

#include "host/cdb/schema/yang_tree.h"
#include "host/xml/xml_writer.h"

namespace host {

// Writes the <change> elements for `diff` in libyang's form (null: none).
void WriteDifference(const lyd_node* diff, XmlWriter* xml);

}  // namespace host

#endif  // HOST_NETCONF_OPERATIONS_DIFFERENCE_XML_H_
