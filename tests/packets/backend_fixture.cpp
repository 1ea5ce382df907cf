#include "tests/packets/backend_fixture.h"

#include "host/filter_mgr/nftables/nftables_backend.h"

namespace host {
namespace {

std::unique_ptr<Backend> OpenNftables(const PortNames& names, std::string* why_not) {
  NftablesOptions options;
  options.names = names;
  std::vector<std::string> missing;
  options.features = ProbeKernel(&missing);
  EXPECT_TRUE(options.features.set_pcp) << ::testing::PrintToString(missing);
  return NftablesBackend::Open(options, why_not);
}

}  // namespace

const std::vector<BackendUnderTest>& BackendsUnderTest() {
  static const std::vector<BackendUnderTest> kBackends = {{"nftables", OpenNftables, true}};
  return kBackends;
}

}  // namespace host
