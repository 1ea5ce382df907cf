#include "tests/packets/ebpf/bpf_lab.h"

#include <bpf/bpf.h>
#include <gtest/gtest.h>
#include <linux/pkt_cls.h>
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>

namespace host {

std::string PrivateBpfFs(std::string* why_not) {
  constexpr char kPath[] = "/sys/fs/bpf";
  // Nothing of this is to reach the mounts of others.
  if (unshare(CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("bpf", kPath, "bpf", 0, "mode=0700") != 0) {
    *why_not = std::string("no BPF file system: ") + strerror(errno);
    return "";
  }
  return kPath;
}

ProgramRun RunProgram(int program, int interface, const Frame& frame) {
  __sk_buff context{};
  context.ifindex = static_cast<uint32_t>(interface);
  Frame out(frame.size() + 64);
  LIBBPF_OPTS(bpf_test_run_opts, run, .data_in = frame.data(), .data_out = out.data(),
              .data_size_in = static_cast<uint32_t>(frame.size()),
              .data_size_out = static_cast<uint32_t>(out.size()), .ctx_in = &context,
              .ctx_out = &context, .ctx_size_in = sizeof(context), .ctx_size_out = sizeof(context));
  EXPECT_EQ(0, bpf_prog_test_run_opts(program, &run)) << strerror(errno);
  out.resize(run.data_size_out);
  const auto verdict = static_cast<int>(run.retval);
  EXPECT_TRUE(verdict == TC_ACT_UNSPEC || verdict == TC_ACT_SHOT) << verdict;
  return {verdict == TC_ACT_UNSPEC, out, context.priority};
}

}  // namespace host
