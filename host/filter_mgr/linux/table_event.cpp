#include "host/filter_mgr/linux/table_event.h"

#include <libmnl/libmnl.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include "host/filter_mgr/linux/netlink.h"

namespace host {

TableEvent ReadTableEvent(const nlmsghdr* message) {
  constexpr uint16_t kTableName = 1;  // the same attribute in tables, chains, rules and sets
  static_assert(NFTA_TABLE_NAME == kTableName && NFTA_CHAIN_TABLE == kTableName &&
                NFTA_RULE_TABLE == kTableName && NFTA_SET_TABLE == kTableName &&
                NFTA_SET_ELEM_LIST_TABLE == kTableName);
  if (NFNL_SUBSYS_ID(message->nlmsg_type) != NFNL_SUBSYS_NFTABLES ||
      NFNL_MSG_TYPE(message->nlmsg_type) == NFT_MSG_NEWGEN) {
    return {};
  }
  TableEvent event;
  event.family = static_cast<const nfgenmsg*>(mnl_nlmsg_get_payload(message))->nfgen_family;
  ForEachAttribute(message, sizeof(nfgenmsg), [&event](const nlattr* attribute) {
    if (mnl_attr_get_type(attribute) == kTableName) event.table = mnl_attr_get_str(attribute);
  });
  return event;
}

}  // namespace host
