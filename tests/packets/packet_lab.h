// A network of its own for a test: a fresh network namespace with veth pairs in a row, through
// which real frames pass one port under test.
//
//   in ──► in-peer ─(fwd)► out ──► out-peer
//
// The port under test is in-peer; what its ingress hook lets through goes on to out and is captured
// on out-peer. A pair beside it, `side`, leads past the port under test. With tags in metadata,
// there is a pair in front, so that frames arrive at the port under test as a VLAN-aware card would
// hand them over: the outer tag beside the bytes.
#ifndef TESTS_PACKETS_PACKET_LAB_H_
#define TESTS_PACKETS_PACKET_LAB_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/filter_mgr/match/frame_fields.h"

namespace host {

class PacketLab {
 public:
  // Puts the process into a new network namespace. Null, with the reason, where the kernel refuses.
  static std::unique_ptr<PacketLab> Create(std::string* why_not);
  ~PacketLab();
  PacketLab(const PacketLab&) = delete;
  PacketLab& operator=(const PacketLab&) = delete;

  // Sets up the row of pairs; the name of the port under test.
  std::string Connect(bool tags_in_metadata);
  // Sends the frames and waits until all have passed or not. Frames end with kIdSize bytes that
  // are overwritten. Gives what came out, by index; what was dropped is not in there.
  std::map<size_t, Frame> Pass(const std::vector<Frame>& frames);
  // Sends the frames without waiting for anything. May be called from another thread.
  void Send(const std::vector<Frame>& frames);
  // How many frames came out that nobody has asked for yet.
  size_t Drain();
  // Adds a veth pair `name`, `name`-peer, both up.
  static void AddPair(const std::string& name);
  // Sends one frame out of an interface.
  static void SendOn(const std::string& interface, const Frame& frame);

  // Runs a shell command; the test fails when the command does.
  static void Run(const std::string& command);
  // What a shell command prints.
  static std::string Output(const std::string& command);

  static constexpr size_t kIdSize = 4;

 private:
  PacketLab() = default;
  static void SendOne(int socket, const Frame& frame);
  // Waits until a frame comes through: the kernel opens the queues of a new pair some time after
  // both its ends are up, and drops frames until then.
  void AwaitPath();

  int sender_ = -1, side_ = -1, capture_ = -1;
  uint32_t next_sentinel_ = 0;
};

}  // namespace host

#endif  // TESTS_PACKETS_PACKET_LAB_H_
