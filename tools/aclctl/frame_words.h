// Frames that an operator describes.
#ifndef TOOLS_ACLCTL_FRAME_WORDS_H_
#define TOOLS_ACLCTL_FRAME_WORDS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/cdb/schema/yang_tree.h"
#include "tools/aclctl/client.h"

namespace aclctl {

using FrameBytes = std::vector<uint8_t>;  // from the destination MAC address, without checksum

// The words that describe a frame, each with its value, for people.
inline constexpr char kFrameWords[] =
    "src-mac, dst-mac, vlan, pcp, tpid, ethertype, src, dst, tos, dscp, protocol, tcp, udp, "
    "dst-port";

// Builds a frame from words such as "src 10.0.0.1 dst 10.0.0.2 tcp 443 vlan 100 pcp 3". Values have
// the names and forms that the matches of `schema` (with the module acl-app) have. What is not
// named is zero, but for the MAC addresses, which are local ones, lengths, which are right, and
// where nothing says what the frame carries: an EtherType and a protocol for experiments, TCP with
// a port.
Failure FrameFromWords(const std::vector<std::string>& words, const ly_ctx* schema,
                       FrameBytes* frame);

// Reads hexadecimal digits; blanks and colons between them do not count.
Failure FrameFromHex(const std::string& digits, FrameBytes* frame);

// Reads the frames of a capture file (any format that libpcap knows), which must be Ethernet.
Failure FramesFromCapture(const std::string& path, std::vector<FrameBytes>* frames);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_FRAME_WORDS_H_
