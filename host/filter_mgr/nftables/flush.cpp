#include "host/filter_mgr/nftables/flush.h"

#include <cerrno>

#include "host/filter_mgr/nftables/kernel/batch.h"
#include "host/filter_mgr/nftables/kernel/reader.h"

namespace host {

int FlushTables(NetlinkSocket& socket, size_t* ports) {
  constexpr int kAttempts = 8;  // others may change the packet filter meanwhile
  KernelReader reader(&socket);
  BatchResult result;
  for (int i = 0; i < kAttempts; ++i) {
    uint32_t generation = 0;
    HeldTables tables;
    int error = reader.ReadGeneration(&generation);
    if (error == 0) error = reader.ReadTables(&tables);
    if (error != 0) return error;
    *ports = tables.size();
    if (tables.empty()) return 0;
    NftBatch batch(generation);
    for (const auto& [port, table] : tables) batch.DeleteTable(TableName(port));
    result = batch.Commit(socket);
    if (result.error != -ERESTART) break;
  }
  return result.error;
}

}  // namespace host
