#include "host/findings/frame_set.h"

#include <cstdio>
#include <iterator>

namespace host::findings {
namespace {

constexpr uint32_t kIpv4 = 0x0800, kIpv6 = 0x86dd, kCTag = 0x8100, kSTag = 0x88a8;
constexpr uint8_t kTcp = 6, kUdp = 17;

constexpr FieldPlace kPlaces[] = {
    {"destination-mac-address", 0, 16, 48, 0},
    {"source-mac-address", 1, 16, 48, 0},
    {"ethertype", 0, 0, 16, 0},
    {"vlan", 1, 0, 12, FrameClass::kTag},
    {"pcp", 1, 13, 3, FrameClass::kTag},
    {"dscp", 3, 18, 6, FrameClass::kTosByte},
    {"tos", 3, 16, 8, FrameClass::kTosByte},
    {"source-ipv4-address", 2, 32, 32, FrameClass::kSource},
    {"destination-ipv4-address", 2, 0, 32, FrameClass::kWhole},
    {"ip-protocol", 3, 24, 8, FrameClass::kProtocol},
    {"destination-port", 3, 0, 16, FrameClass::kPort},
};
static_assert(std::size(kPlaces) == kFieldCount);

// IPv4's fields, from a header that is cut off to one that is whole.
constexpr uint8_t kUpToTos = FrameClass::kTosByte;
constexpr uint8_t kUpToProtocol = kUpToTos | FrameClass::kProtocol;
constexpr uint8_t kUpToSource = kUpToProtocol | FrameClass::kSource;
constexpr uint8_t kHeader = kUpToSource | FrameClass::kWhole;
constexpr uint8_t kTag = FrameClass::kTag, kPort = FrameClass::kPort;

constexpr FrameClass kClasses[] = {
    {kIpv4, 0, 0, false},
    {kIpv4, kUpToTos, 0, false},
    {kIpv4, kUpToProtocol, 0, false},
    {kIpv4, kUpToSource, 0, false},
    {kIpv4, kHeader, 0, true},
    {kIpv4, kHeader | kPort, kTcp, true},
    {kIpv4, kHeader | kPort, kUdp, true},
    {kIpv6, 0, 0, true},
    {kIpv6, kPort, 0, true},
    {FrameClass::kOtherType, 0, 0, true},
    {kCTag, 0, 0, false},
    {kCTag, kTag, 0, true},
    {kCTag, kTag | kUpToTos, 0, false},
    {kCTag, kTag | kUpToProtocol, 0, false},
    {kCTag, kTag | kUpToSource, 0, false},
    {kCTag, kTag | kHeader, 0, true},
    {kCTag, kTag | kHeader | kPort, kTcp, true},
    {kCTag, kTag | kHeader | kPort, kUdp, true},
    {kCTag, kTag | kPort, 0, true},
    {kSTag, 0, 0, false},
    {kSTag, kTag, 0, true},
    {kSTag, kTag | kUpToTos, 0, false},
    {kSTag, kTag | kUpToProtocol, 0, false},
    {kSTag, kTag | kUpToSource, 0, false},
    {kSTag, kTag | kHeader, 0, true},
    {kSTag, kTag | kHeader | kPort, kTcp, true},
    {kSTag, kTag | kHeader | kPort, kUdp, true},
    {kSTag, kTag | kPort, 0, true},
};
static_assert(std::size(kClasses) == kClassCount);

uint64_t Ones(uint8_t width) { return ~uint64_t{0} >> (64 - width); }

// The class's EtherType among those that have a meaning.
uint32_t Meaning(uint64_t ethertype) {
  const bool known =
      ethertype == kIpv4 || ethertype == kIpv6 || ethertype == kCTag || ethertype == kSTag;
  return known ? static_cast<uint32_t>(ethertype) : FrameClass::kOtherType;
}

Classes ClassesOf(const Matches& matches) {
  uint8_t needs = 0;
  for (size_t i = 0; i < kFieldCount; ++i) {
    if (matches.Has(static_cast<Field>(i))) needs |= kPlaces[i].needs;
  }
  Classes classes = 0;
  for (size_t i = 0; i < kClassCount; ++i) {
    const FrameClass& type = kClasses[i];
    if ((type.has & needs) != needs) continue;
    if (matches.Has(kEthertype) && Meaning(matches.ValueOf(kEthertype)) != type.ethertype) continue;
    if (matches.Has(kIpProtocol) && type.protocol != 0 &&
        matches.ValueOf(kIpProtocol) != type.protocol) {
      continue;
    }
    classes |= Classes{1} << i;
  }
  return classes;
}

// The entry's matches of two fields alone.
Matches Only(const Matches& matches, Field a, Field b) {
  Matches only;
  for (const Field field : {a, b}) only.Compare(field, matches.ValueOf(field));
  return only;
}

std::string Hexadecimal(uint64_t number) {
  char text[8];
  std::snprintf(text, sizeof(text), "0x%04x", static_cast<unsigned int>(number & 0xffff));
  return text;
}

// What `field` asks of a frame beyond its value.
std::string Asks(Field field) {
  const std::string name = kPlaces[field].name;
  switch (kPlaces[field].needs) {
    case FrameClass::kTag:
      return name + " is a tag's, so that the ethertype is 0x8100 or 0x88a8";
    case FrameClass::kPort:
      return name + " is TCP's or UDP's, over IPv4 or IPv6";
    default:
      return name + " is IPv4's, whose ethertype is 0x0800, behind a tag 0x8100 or 0x88a8";
  }
}

}  // namespace

const FieldPlace& PlaceOf(Field field) { return kPlaces[field]; }
const FrameClass& ClassOf(size_t number) { return kClasses[number]; }

Classes CompleteClasses() {
  static const Classes classes = [] {
    Classes complete = 0;
    for (size_t i = 0; i < kClassCount; ++i) complete |= Classes{kClasses[i].complete} << i;
    return complete;
  }();
  return classes;
}

size_t PlainIpv6Class() {
  size_t number = 0;
  while (kClasses[number].ethertype != kIpv6 || kClasses[number].has != 0) ++number;
  return number;
}

void Matches::Compare(Field field, uint64_t field_value, uint64_t field_mask) {
  const FieldPlace& place = kPlaces[field];
  field_mask &= Ones(place.width);
  mask.word[place.word] |= field_mask << place.shift;
  value.word[place.word] |= (field_value & field_mask) << place.shift;
  fields = static_cast<uint16_t>(fields | 1 << field);
}

uint64_t Matches::ValueOf(Field field) const {
  const FieldPlace& place = kPlaces[field];
  return value.word[place.word] >> place.shift & Ones(place.width);
}

FrameSet SetOf(const Matches& matches) { return {matches.value, matches.mask, ClassesOf(matches)}; }

Cube PartOf(const FrameSet& set, size_t class_number) {
  const FrameClass& type = kClasses[class_number];
  Matches part;
  part.value = set.value;
  part.mask = set.mask;
  if (type.ethertype != FrameClass::kOtherType) part.Compare(kEthertype, type.ethertype);
  if (type.protocol != 0) part.Compare(kIpProtocol, type.protocol);
  return {part.value, part.mask};
}

std::string WhyEmpty(const Matches& matches) {
  for (size_t b = 0; b < kFieldCount; ++b) {
    for (size_t a = 0; a < b; ++a) {
      const auto first = static_cast<Field>(a), second = static_cast<Field>(b);
      if (!matches.Has(first) || !matches.Has(second)) continue;
      if (ClassesOf(Only(matches, first, second)) != 0) continue;
      const Field value = second == kDestinationPort && first == kIpProtocol ? first : kEthertype;
      const Field other = value == first ? second : first;
      return Asks(other) + ", but " + kPlaces[value].name + " is " +
             (value == kEthertype ? Hexadecimal(matches.ValueOf(value))
                                  : std::to_string(matches.ValueOf(value)));
    }
  }
  return "its matches contradict each other";
}

}  // namespace host::findings
