// The set of frames that an entry matches, in a form in which sets can be compared.
//
// What a match asks of a frame (docs/packet-filter.md) is more than the value that it names: a
// vlan asks for a tag, an address for an IPv4 header, a destination port for TCP or UDP. So frames
// are divided into classes by what they have: the EtherType, as far as it has a meaning; a tag; an
// IPv4 header, whole or cut off by the frame's end; a port over IPv4 (one class for TCP, one for
// UDP) or IPv6. Within a class every field that its frames have is free, and so the frames of one
// class that an entry matches are a cube: those that agree with a value in the bits of a mask. An
// entry's set is given by its value and mask, which are the same in all classes, and by the classes
// in which there are frames that it matches.
//
// Where headers are cut off, frames have some fields of IPv4 without the others. Nobody sends such
// frames but in an attack or by mistake; yet the filter treats them by its rules. Sets are compared
// over complete frames, and whether the same holds for all is told apart.
//
// The words of values and masks are those of the classifier's key (host/classifier/layout.h), but
// that the upper half of the last is 0: classes stand for it.
#ifndef HOST_FINDINGS_FRAME_SET_H_
#define HOST_FINDINGS_FRAME_SET_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "host/classifier/rule.h"

namespace host::findings {

// The leaves of an entry's match, by what they compare.
enum Field : uint8_t {
  kDestinationMac,
  kSourceMac,
  kEthertype,
  kVlan,
  kPcp,
  kDscp,
  kTos,
  kSourceIpv4,
  kDestinationIpv4,
  kIpProtocol,
  kDestinationPort,
  kFieldCount
};

// Where a field is in the words, and what a frame must have for it to be compared.
struct FieldPlace {
  const char* name;  // of the leaf
  uint8_t word;
  uint8_t shift;
  uint8_t width;  // in bits
  uint8_t needs;  // bits of FrameClass::has
};
const FieldPlace& PlaceOf(Field field);

using Classes = uint32_t;  // a bit per class

struct FrameClass {
  static constexpr uint32_t kOtherType = 0x10000;
  enum Has : uint8_t {
    kTag = 1,
    kTosByte = 2,
    kProtocol = 4,
    kSource = 8,
    kWhole = 16,
    kPort = 32
  };

  uint32_t ethertype;  // the 16 bits behind the source address; kOtherType: none that has a meaning
  uint8_t has;         // kWhole: the IPv4 header up to the destination address
  uint8_t protocol;    // of IPv4; 0: any
  bool complete;       // false: a header is cut off
};
constexpr size_t kClassCount = 28;
const FrameClass& ClassOf(size_t number);
// The classes of complete frames, and that of IPv6 packets without a port, untagged.
Classes CompleteClasses();
size_t PlainIpv6Class();

// The matches of one entry.
struct Matches {
  cls_key value{};
  cls_key mask{};
  uint16_t fields = 0;  // a bit per Field

  bool Has(Field field) const { return (fields >> field & 1) != 0; }
  // Adds that `field` agrees with `value` in the bits of `mask`, in host byte order.
  void Compare(Field field, uint64_t value, uint64_t mask = ~uint64_t{0});
  uint64_t ValueOf(Field field) const;
};

struct FrameSet {
  cls_key value{};  // no other bits than those of `mask`
  cls_key mask{};
  Classes classes = 0;  // 0: the set is empty
};
FrameSet SetOf(const Matches& matches);

// The part of a set in one class: what all frames of the class have in common is in it.
struct Cube {
  cls_key value{};
  cls_key mask{};
};
Cube PartOf(const FrameSet& set, size_t class_number);

// Whether no bit that both compare differs.
inline bool Meet(const cls_key& value, const cls_key& mask, const Cube& cube) {
  uint64_t differing = 0;
  for (int i = 0; i < 4; ++i) {
    differing |= (value.word[i] ^ cube.value.word[i]) & mask.word[i] & cube.mask.word[i];
  }
  return differing == 0;
}

// Why no frame can match, in words, from the first two fields that contradict each other. For a
// set that is empty.
std::string WhyEmpty(const Matches& matches);

}  // namespace host::findings

#endif  // HOST_FINDINGS_FRAME_SET_H_
