// Ownership of libnftnl's objects.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_OBJECTS_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_OBJECTS_H_

#include <libnftnl/chain.h>
#include <libnftnl/rule.h>
#include <libnftnl/set.h>
#include <libnftnl/table.h>

#include <memory>

namespace host {

template <class T, void (*Free)(const T*)>
struct NftnlDeleter {
  void operator()(T* object) const { Free(object); }
};
using TablePtr = std::unique_ptr<nftnl_table, NftnlDeleter<nftnl_table, nftnl_table_free>>;
using ChainPtr = std::unique_ptr<nftnl_chain, NftnlDeleter<nftnl_chain, nftnl_chain_free>>;
using RuleObjectPtr = std::unique_ptr<nftnl_rule, NftnlDeleter<nftnl_rule, nftnl_rule_free>>;
using SetPtr = std::unique_ptr<nftnl_set, NftnlDeleter<nftnl_set, nftnl_set_free>>;

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_OBJECTS_H_
