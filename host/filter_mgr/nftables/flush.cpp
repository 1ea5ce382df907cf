#include "host/filter_mgr/nftables/flush.h"

#include <linux/netlink.h>

#include <cerrno>

#include "host/filter_mgr/nftables/kernel/batch.h"
#include "host/filter_mgr/nftables/kernel/reader.h"

namespace host {

int FlushNftables(size_t* ports) {
  constexpr int kAttempts = 64;  // others may change the packet filter meanwhile
  int error = 0;
  const auto socket = OpenNetlink({NETLINK_NETFILTER, 0, 0}, &error);
  if (socket == nullptr) return error;
  KernelReader reader(socket.get());
  for (int i = 0; i < kAttempts; ++i) {
    uint32_t generation = 0;
    std::vector<std::string> names;
    error = reader.ReadGeneration(&generation);
    if (error == 0) error = reader.ReadPorts(&names);
    if (error != 0) return error;
    *ports = names.size();
    if (names.empty()) return 0;
    NftBatch batch;
    for (const std::string& port : names) batch.DeleteTable(TableName(port));
    error = batch.Commit(*socket, generation).error;
    if (error != -ERESTART) break;
  }
  return error;
}

int LeftByNftables(size_t* ports) {
  int error = 0;
  const auto socket = OpenNetlink({NETLINK_NETFILTER, 0, 0}, &error);
  if (socket == nullptr) return error;
  std::vector<std::string> all, unowned;
  error = KernelReader(socket.get()).ReadPorts(&all, &unowned);
  *ports = unowned.size();
  return error;
}

}  // namespace host
