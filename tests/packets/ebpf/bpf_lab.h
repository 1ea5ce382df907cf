// A place for BPF tests: a BPF file system and a network namespace of the process's own, and single
// frames put to a program by the kernel's test runs.
#ifndef TESTS_PACKETS_EBPF_BPF_LAB_H_
#define TESTS_PACKETS_EBPF_BPF_LAB_H_

#include <optional>
#include <string>
#include <vector>

#include "tests/packets/packet_lab.h"

namespace host {

// Mounts a BPF file system for this process alone and gives its path; empty, with the reason, where
// the kernel refuses. It goes, with all pins in it, when the process ends.
std::string PrivateBpfFs(std::string* why_not);

// What a program made of a frame.
struct ProgramRun {
  bool passed = false;
  Frame frame;
  unsigned int priority = 0;
};
// Runs the program on a frame that enters through the interface. The tags are in the bytes.
ProgramRun RunProgram(int program, int interface, const Frame& frame);

}  // namespace host

#endif  // TESTS_PACKETS_EBPF_BPF_LAB_H_
