// A frame taken apart into the fields that entries compare.
//
// What the fields mean, and which frames have them, is the back ends' common contract (backend.h).
// This is that contract once more, as plain code over bytes: nothing here knows how a back end
// finds a field. It answers what an entry would do to a frame, and the back ends are tested by it.
#ifndef HOST_FILTER_MGR_MATCH_FRAME_FIELDS_H_
#define HOST_FILTER_MGR_MATCH_FRAME_FIELDS_H_

#include <net/ethernet.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace host {

// From the destination MAC address on, without checksum.
using Frame = std::vector<uint8_t>;
constexpr size_t kShortestFrame = 14;  // bytes

// Numbers in host byte order. A field that the frame does not have has no value.
struct FrameFields {
  ether_addr destination{}, source{};
  uint16_t after_source = 0;          // the 16 bits behind the source MAC address
  unsigned int tags = 0;              // as far as two
  std::optional<uint16_t> tci;        // of the outer tag: PCP, DEI, VLAN id
  std::optional<uint16_t> ethertype;  // behind one tag at most
  std::optional<uint8_t> tos, protocol;
  std::optional<uint32_t> source_ip, destination_ip;
  std::optional<uint16_t> destination_port;
  // For people: why there is no destination port although there is an IP header; empty otherwise.
  const char* why_no_port = "";

  std::optional<uint16_t> vlan() const { return Part(0x0fff, 0); }
  std::optional<uint16_t> pcp() const { return Part(7, 13); }

 private:
  std::optional<uint16_t> Part(uint16_t mask, int shift) const {
    if (!tci) return std::nullopt;
    return static_cast<uint16_t>(*tci >> shift & mask);
  }
};

// Whether the value behind a source MAC address begins a tag (IEEE 802.1Q).
constexpr bool IsTagTpid(uint16_t tpid) { return tpid == 0x8100 || tpid == 0x88a8; }

// `frame` has kShortestFrame bytes at least.
FrameFields ParseFrame(const Frame& frame);

}  // namespace host

#endif  // HOST_FILTER_MGR_MATCH_FRAME_FIELDS_H_
