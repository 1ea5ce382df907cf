#include "tests/packets/backend_fixture.h"

#include "host/filter_mgr/ebpf/ebpf_backend.h"
#include "host/filter_mgr/nftables/nftables_backend.h"
#include "tests/packets/ebpf/bpf_lab.h"

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

// `links`: on links, or attached as older kernels do.
template <bool links>
std::unique_ptr<Backend> OpenBpf(const PortNames& names, std::string* why_not) {
  EbpfOptions options;
  options.names = names;
  options.links = links;
  const std::string directory = PrivateBpfFs(why_not);
  if (directory.empty()) return nullptr;
  options.directory = directory + "/acl-app";
  return EbpfBackend::Open(options, why_not);
}

}  // namespace

const std::vector<BackendUnderTest>& BackendsUnderTest() {
  static const std::vector<BackendUnderTest> kBackends = {
      {"nftables", OpenNftables}, {"bpf", OpenBpf<true>}, {"bpfClassifier", OpenBpf<false>}};
  return kBackends;
}

}  // namespace host
