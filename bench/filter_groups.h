// Filter groups of any size and frames that meet them, for the benchmarks of the back ends; and
// networks of their own to put them in force in.
#ifndef BENCH_FILTER_GROUPS_H_
#define BENCH_FILTER_GROUPS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/filter_mgr/ebpf/ebpf_backend.h"

constexpr int kMostEntries = 65536;

// What entries compare: a destination address, protocol and port, or a source MAC address and VLAN.
enum Kind { kL3Entries, kL2Entries };

std::string PortName(int port);

// A group of `count` entries over `ports` ports, which deny or permit; without entry `left_out`
// (-1: with all).
FiltersCommon::FiltersGroup MakeGroup(int count, int ports, Kind kind, int left_out = -1,
                                      bool deny = true);

// A TCP segment to the address and port of entry `i` of either kind, in VLAN 100; -1: of none.
std::vector<uint8_t> FrameOf(int i);

// A network with these ports, the other end of port N being peerN, a BPF file system, and nothing
// in force. False where the kernel gives none.
bool Enter(int ports);
// The same with ports of these names.
bool Enter(const std::vector<std::string>& ports);

// The back end of tables, in what Enter() made. Null, with the reason on stderr.
std::unique_ptr<host::EbpfBackend> OpenTables();
// Puts the group in force.
bool Apply(host::Backend* backend, const FiltersCommon::FiltersGroup& group);

double Seconds();

#endif  // BENCH_FILTER_GROUPS_H_
