// Frames that an operator describes: see frame_words.h.
#include "tools/aclctl/frame_words.h"

#include <arpa/inet.h>
#include <libyang/libyang.h>
#include <netinet/ether.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace aclctl {
namespace {

constexpr uint16_t kIpv4 = 0x0800, kIpv6 = 0x86dd, kTag = 0x8100;
constexpr char kMatch[] =
    "/acl-app:config/access-list/acl-profile/ingress/access-list/access-list-entry/match";
constexpr uint16_t kNothing = 0x88b5;  // an EtherType for experiments: of a frame of no protocol

// What the words give, in host byte order.
struct WantedFrame {
  ether_addr source = {{2, 0, 0, 0, 0, 1}}, destination = {{2, 0, 0, 0, 0, 2}};
  std::string source_ip, destination_ip;
  std::map<std::string, uint16_t> numbers;

  uint16_t Number(const char* name, uint16_t otherwise = 0) const {
    const auto found = numbers.find(name);
    return found == numbers.end() ? otherwise : found->second;
  }
  bool Has(const char* name) const { return numbers.count(name) != 0; }
};

// Words that take a number, what they set, and the match whose values they take by name; the
// others' values are numbers alone. "tcp" and "udp" may stand alone.
struct NumberWord {
  const char* word;
  const char* field;
  const char* match;
  unsigned long most;
};
constexpr NumberWord kNumbers[] = {
    {"vlan", "vlan", nullptr, 4095},
    {"pcp", "pcp", nullptr, 7},
    {"tpid", "tpid", "ethertype", 0xffff},
    {"ethertype", "type", "ethertype", 0xffff},
    {"ether", "type", "ethertype", 0xffff},
    {"dscp", "dscp", "dscp", 63},
    {"tos", "tos", nullptr, 255},
    {"protocol", "protocol", "ip-protocol", 255},
    {"proto", "protocol", "ip-protocol", 255},
    {"dst-port", "port", "destination-port", 65535},
    {"dport", "port", "destination-port", 65535},
    {"tcp", "port", "destination-port", 65535},
    {"udp", "port", "destination-port", 65535},
};

// Words that take an address, and what they set.
struct AddressWord {
  const char* word;
  const char* field;
  bool mac, source;
};
constexpr AddressWord kAddresses[] = {
    {"src-mac", "src-mac", true, true},  {"smac", "src-mac", true, true},
    {"dst-mac", "dst-mac", true, false}, {"dmac", "dst-mac", true, false},
    {"src", "src", false, true},         {"src-ip", "src", false, true},
    {"dst", "dst", false, false},        {"dst-ip", "dst", false, false},
};

template <class Row, size_t N>
const Row* FindWord(const Row (&rows)[N], const std::string& word) {
  const Row* const found =
      std::find_if(rows, rows + N, [&word](const Row& row) { return word == row.word; });
  return found == rows + N ? nullptr : found;
}

bool IsFrameWord(const std::string& word) {
  return FindWord(kNumbers, word) != nullptr || FindWord(kAddresses, word) != nullptr;
}

Failure Usage(const std::string& message) { return {kUsage, message, {}}; }

// The number of a value's name; of a number as it stands in the configuration, where texts are
// hexadecimal.
std::optional<unsigned long> NumberOf(const lysc_type* type, const std::string& text,
                                      unsigned long most) {
  bool hexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
  const char* const begin = text.data() + (hexadecimal ? 2 : 0);
  const char* const end = text.data() + text.size();
  const lysc_type* const* members = &type;
  size_t count = type == nullptr ? 0 : 1;
  if (count != 0 && type->basetype == LY_TYPE_UNION) {
    members = reinterpret_cast<const lysc_type_union*>(type)->types;
    count = LY_ARRAY_COUNT(members);
  }
  for (size_t i = 0; i < count; ++i) {
    hexadecimal = hexadecimal || members[i]->basetype == LY_TYPE_STRING;
    if (members[i]->basetype != LY_TYPE_ENUM) continue;
    const auto* names = reinterpret_cast<const lysc_type_enum*>(members[i])->enums;
    for (size_t name = 0; name < LY_ARRAY_COUNT(names); ++name) {
      if (text == names[name].name) return names[name].value;
    }
  }
  unsigned long value = 0;
  const auto [read_to, error] = std::from_chars(begin, end, value, hexadecimal ? 16 : 10);
  if (error != std::errc() || read_to != end || value > most) return std::nullopt;
  return value;
}

// Reads the words, whose values are those of the schema's matches.
class Reader {
 public:
  Reader(const std::vector<std::string>& words, const lysc_node* match, WantedFrame* wanted)
      : words_(words), match_(match), wanted_(wanted) {}

  Failure Read() {
    while (next_ < words_.size()) {
      const std::string& word = words_[next_++];
      const NumberWord* const number = FindWord(kNumbers, word);
      const AddressWord* const address = FindWord(kAddresses, word);
      Failure failure;
      if (number != nullptr) {
        failure = ReadNumber(*number);
      } else if (address != nullptr) {
        failure = ReadAddress(*address);
      } else {
        failure = Usage("a frame is described by " + std::string(kFrameWords) + "; not by \"" +
                        word + "\"");
      }
      if (failure) return failure;
    }
    const std::string &source = wanted_->source_ip, &destination = wanted_->destination_ip;
    if (!source.empty() && !destination.empty() &&
        (source.find(':') == std::string::npos) != (destination.find(':') == std::string::npos)) {
      return Usage("src " + source + " and dst " + destination + " are of different IP versions");
    }
    return {};
  }

 private:
  std::string Value() { return next_ < words_.size() ? words_[next_++] : ""; }

  // A failure when something has given the field before.
  Failure Give(const char* field, const char* word) {
    if (given_.insert(field).second) return {};
    return Usage(std::string(word) + ": " + field + " is given twice");
  }

  Failure ReadNumber(const NumberWord& word) {
    const std::string name = word.word;
    if (name == "tcp" || name == "udp") {
      if (Failure failure = Give("protocol", word.word)) return failure;
      wanted_->numbers["protocol"] = name == "tcp" ? IPPROTO_TCP : IPPROTO_UDP;
      if (next_ == words_.size() || IsFrameWord(words_[next_])) return {};
    }
    if (Failure failure = Give(word.field, word.word)) return failure;
    if ((name == "tos" || name == "dscp") && given_.count("tos") + given_.count("dscp") > 1) {
      return Usage("dscp and tos exclude each other");
    }
    const lysc_node* leaf = word.match == nullptr
                                ? nullptr
                                : lys_find_child(match_, match_->module, word.match, 0, 0, 0);
    const std::string value = Value();
    const auto read =
        NumberOf(leaf == nullptr ? nullptr : reinterpret_cast<const lysc_node_leaf*>(leaf)->type,
                 value, word.most);
    if (!read) {
      return Usage(name + " takes a number up to " + std::to_string(word.most) +
                   (leaf == nullptr ? "" : ", or one of the names of " + std::string(leaf->name)) +
                   ", not \"" + value + "\"");
    }
    wanted_->numbers[word.field] = static_cast<uint16_t>(*read);
    return {};
  }

  Failure ReadAddress(const AddressWord& word) {
    if (Failure failure = Give(word.field, word.word)) return failure;
    const std::string value = Value();
    if (word.mac) {
      ether_addr* const mac = word.source ? &wanted_->source : &wanted_->destination;
      if (ether_aton_r(value.c_str(), mac) != nullptr) return {};
      return Usage("\"" + value + "\" is no MAC address");
    }
    std::array<uint8_t, 16> bytes{};
    if (inet_pton(AF_INET, value.c_str(), bytes.data()) != 1 &&
        inet_pton(AF_INET6, value.c_str(), bytes.data()) != 1) {
      return Usage("\"" + value + "\" is no IP address");
    }
    (word.source ? wanted_->source_ip : wanted_->destination_ip) = value;
    return {};
  }

  const std::vector<std::string>& words_;
  const lysc_node* match_;
  WantedFrame* wanted_;
  size_t next_ = 0;
  std::set<std::string> given_;
};

class Builder {
 public:
  explicit Builder(const WantedFrame& wanted) : wanted_(wanted) {}

  FrameBytes Build() {
    const bool ipv6 = (wanted_.source_ip + wanted_.destination_ip).find(':') != std::string::npos;
    const bool ip = !wanted_.source_ip.empty() || !wanted_.destination_ip.empty() ||
                    wanted_.Has("tos") || wanted_.Has("dscp") || wanted_.Has("protocol") ||
                    wanted_.Has("port");
    Append(wanted_.destination.ether_addr_octet, ETH_ALEN);
    Append(wanted_.source.ether_addr_octet, ETH_ALEN);
    if (wanted_.Has("vlan") || wanted_.Has("pcp") || wanted_.Has("tpid")) {
      Append16(wanted_.Number("tpid", kTag));
      Append16(wanted_.Number("pcp") << 13 | wanted_.Number("vlan"));
    }
    Append16(wanted_.Number("type", !ip ? kNothing : ipv6 ? kIpv6 : kIpv4));
    const FrameBytes payload = Payload();
    if (ip && ipv6) AppendIpv6(payload.size());
    if (ip && !ipv6) AppendIpv4(payload.size());
    Append(payload.data(), payload.size());
    if (frame_.size() < 60) frame_.resize(60);  // the shortest on a wire
    return std::move(frame_);
  }

 private:
  void Append(const uint8_t* bytes, size_t size) {
    frame_.insert(frame_.end(), bytes, bytes + size);
  }
  void Append16(unsigned int value) {
    frame_.push_back(static_cast<uint8_t>(value >> 8));
    frame_.push_back(static_cast<uint8_t>(value));
  }
  void AppendAddress(int family, const std::string& text) {
    std::array<uint8_t, 16> bytes{};
    if (!text.empty()) inet_pton(family, text.c_str(), bytes.data());
    Append(bytes.data(), family == AF_INET ? 4 : 16);
  }
  // A port without a protocol is TCP's.
  uint8_t Protocol() const {
    return static_cast<uint8_t>(
        wanted_.Number("protocol", wanted_.Has("port") ? IPPROTO_TCP : IPPROTO_RAW));
  }
  uint8_t Tos() const {
    return static_cast<uint8_t>(wanted_.Number("tos", wanted_.Number("dscp") << 2));
  }

  // The header behind IP's: ports and zeros, or nothing but zeros.
  FrameBytes Payload() const {
    FrameBytes bytes(20);
    const uint16_t port = wanted_.Number("port");
    bytes[2] = static_cast<uint8_t>(port >> 8);
    bytes[3] = static_cast<uint8_t>(port);
    return bytes;
  }
  void AppendIpv4(size_t payload) {  // RFC 791; without checksum, which nothing compares
    const uint8_t start[] = {0x45, Tos()}, middle[] = {0, 0, 0, 0, 64, Protocol(), 0, 0};
    Append(start, sizeof(start));
    Append16(static_cast<unsigned int>(20 + payload));
    Append(middle, sizeof(middle));
    AppendAddress(AF_INET, wanted_.source_ip);
    AppendAddress(AF_INET, wanted_.destination_ip);
  }
  void AppendIpv6(size_t payload) {  // RFC 8200
    Append16(0x6000 | Tos() << 4);
    Append16(0);
    Append16(static_cast<unsigned int>(payload));
    const uint8_t end[] = {Protocol(), 64};
    Append(end, sizeof(end));
    AppendAddress(AF_INET6, wanted_.source_ip);
    AppendAddress(AF_INET6, wanted_.destination_ip);
  }

  const WantedFrame& wanted_;
  FrameBytes frame_;
};

}  // namespace

Failure FrameFromWords(const std::vector<std::string>& words, const ly_ctx* schema,
                       FrameBytes* frame) {
  WantedFrame wanted;
  const lysc_node* const match = lys_find_path(schema, nullptr, kMatch, 0);
  if (match == nullptr) return {kProtocol, "the daemon's configuration has no matches", {}};
  if (Failure failure = Reader(words, match, &wanted).Read()) return failure;
  *frame = Builder(wanted).Build();
  return {};
}

Failure FrameFromHex(const std::string& digits, FrameBytes* frame) {
  std::string clean;
  for (const char c : digits) {
    if (c != ' ' && c != ':' && c != '\n' && c != '\t') clean += c;
  }
  if (clean.empty() || clean.size() % 2 != 0 ||
      clean.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    return Usage("a frame is an even number of hexadecimal digits");
  }
  for (size_t i = 0; i < clean.size(); i += 2) {
    frame->push_back(static_cast<uint8_t>(std::strtoul(clean.substr(i, 2).c_str(), nullptr, 16)));
  }
  return {};
}

Failure FramesFromCapture(const std::string& path, std::vector<FrameBytes>* frames) {
  char error[PCAP_ERRBUF_SIZE] = "";
  const std::unique_ptr<pcap_t, void (*)(pcap_t*)> capture(pcap_open_offline(path.c_str(), error),
                                                           pcap_close);
  if (capture == nullptr) return {kFile, "cannot read " + path + ": " + error, {}};
  if (pcap_datalink(capture.get()) != DLT_EN10MB) {
    return {kFile, path + " was not captured from Ethernet", {}};
  }
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  int result = 0;
  while ((result = pcap_next_ex(capture.get(), &header, &bytes)) == 1) {
    frames->emplace_back(bytes, bytes + header->caplen);
  }
  if (result != PCAP_ERROR_BREAK) {
    return {kFile, "cannot read " + path + ": " + pcap_geterr(capture.get()), {}};
  }
  return {};
}

}  // namespace aclctl
