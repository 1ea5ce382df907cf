// Access lists as RFC 8519 and OpenConfig mean them, in a form that is neither's: what a conversion
// goes through.
//
//   a document of the standard ──reader──► AccessLists ──► Profiles ──► our configuration
//                              ◄──writer──             ◄──          ◄──
//
// A reader knows the statements of its standard, what comes behind it knows only what they mean. An
// entry is a conjunction of conditions; a condition is a field of the frame and the values that it
// may have, under masks. A list is an ordered sequence of entries of which the first that matches
// decides, with an end that decides about what none matches.
//
// What a statement means that has no place here (a TTL, a TCP flag) becomes a problem of its entry,
// never a condition less: an entry with problems is not converted unless somebody says what is to
// become of it (report.h).
//
// How the texts are read where they leave room:
// - a list of a type is about the frames of that type: one of type ipv4 neither passes nor drops
//   what is not IPv4, and its end is the end for IPv4 packets;
// - lists of different types at one interface are each evaluated, and a frame passes when all of
//   them let it pass;
// - the EtherType of the Ethernet header is the 16 bits behind the source address, the VLAN that of
//   the outer tag;
// - an IPv4 header, and what follows it, is found behind one tag at most.
#ifndef HOST_STANDARD_ACL_H_
#define HOST_STANDARD_ACL_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host::standard {

// What conditions compare. DSCP, ECN and the whole type-of-service byte are one field, under masks.
enum Field : uint8_t {
  kDestinationMac,
  kSourceMac,
  kEthertype,
  kVlan,
  kPcp,
  kTos,
  kSourceIpv4,
  kDestinationIpv4,
  kIpProtocol,       // of IPv4
  kDestinationPort,  // of TCP or UDP
  kFieldCount
};

// Those of the Ethernet header and its tag, and those of the IPv4 header.
inline constexpr Field kEthernetFields[] = {kDestinationMac, kSourceMac, kEthertype, kVlan, kPcp};
inline constexpr Field kIpv4Fields[] = {kTos, kSourceIpv4, kDestinationIpv4, kIpProtocol};

// All bits of a field, and those of the type-of-service byte that are DSCP and ECN.
uint64_t FullMask(Field field);
inline constexpr uint64_t kDscpMask = 0xfc, kEcnMask = 0x03;

// A value in the bits of a mask, in host byte order; other bits of the value say nothing, but are
// kept as they were written.
struct Value {
  uint64_t value = 0;
  uint64_t mask = 0;
};

// By field: the values of which one must agree. Without any, the field is not compared.
using Conditions = std::array<std::vector<Value>, kFieldCount>;

enum class Handling : uint8_t { kNone, kPermit, kDeny };

// A statement that the neutral form cannot hold.
struct Problem {
  std::string path;     // of the statement
  std::string meaning;  // in words
  // Whether the entry would match more without it, or only do less than it says.
  bool is_condition = true;
  bool whole = false;  // nothing that could be dropped from the entry: it goes or stays with it
};

// What is not carried over without any frame being treated otherwise for it.
struct Note {
  std::string path;
  std::string meaning;
  std::string done;
};

struct Ace {
  std::string name;  // in RFC 8519; the number in OpenConfig
  std::string path;
  std::string description;
  Handling handling = Handling::kNone;
  std::optional<uint8_t> set_pcp;
  Conditions conditions;
  // What a destination port belongs to where no protocol of IPv4 says it: TCP (6) or UDP (17), over
  // either version of IP. Without it either.
  std::optional<uint8_t> transport;
  bool matches_nothing = false;          // its conditions contradict each other
  std::optional<uint32_t> number;        // its place, where the document has numbers
  std::optional<uint16_t> ace_priority;  // our own, where the document has it
  bool is_end = false;                   // made from the end of a profile of ours
  bool widened = false;                  // conditions of ours were left out
  std::vector<Problem> problems;
};

// What frames a list is about.
enum class Kind : uint8_t {
  kEthernet,  // conditions on the Ethernet header alone
  kIpv4,      // IPv4 packets, and no others
  kMixed,     // all frames; conditions on TCP and UDP are over IPv4
  kAny,       // all frames; conditions on TCP and UDP are over IPv4 and IPv6
};

struct Acl {
  std::string name;  // of no other list
  // What OpenConfig calls it, where lists of other types may have the name, too; empty: as above.
  std::string set_name;
  std::string path;
  std::string description;
  Kind kind = Kind::kAny;
  std::optional<uint16_t> priority;  // our own, where the document has it
  std::optional<bool> l3;            // our own group, where the document has it
  std::string profile_name;          // our own, where the document has it and it is another
  std::vector<Ace> aces;             // in the order of evaluation
  std::vector<Problem> problems;     // of the list as a whole
};

struct Attachment {
  std::string interface;
  std::string path;
  std::vector<std::string> acls;  // names, in the order of evaluation
  std::vector<std::string> paths;
};

struct AccessLists {
  std::vector<Acl> acls;
  std::vector<Attachment> attachments;  // of the ingress
  std::vector<Problem> problems;        // of the document
  std::vector<Note> notes;              // of all of it
};

// The values that agree with one of `a` and one of `b`. Without masks in common two values agree.
std::vector<Value> Intersect(const std::vector<Value>& a, const std::vector<Value>& b);

// Values that stand for one of a field: of the ECN alone, which ours compares with a DSCP or not at
// all, there are as many as there are DSCPs.
std::vector<Value> FormsOf(Field field, const std::vector<Value>& values);
// How many entries with one value for each field the conditions come to; SIZE_MAX for more.
size_t AlternativesOf(const Conditions& conditions);

// Whether the conditions ask for an IPv4 header.
bool AskForIpv4(const Conditions& conditions);
// Whether there are any on the Ethernet header or its tag.
bool AskForEthernet(const Conditions& conditions);
bool AskForNothing(const Conditions& conditions);

}  // namespace host::standard

#endif  // HOST_STANDARD_ACL_H_
