// Frames that an operator describes: see frame_words.h.
#include "tools/aclctl/frame_words.h"

#include <arpa/inet.h>
#include <netinet/ether.h>
#include <pcap/pcap.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

namespace aclctl {
namespace {

constexpr uint16_t kIpv4 = 0x0800, kIpv6 = 0x86dd, kTag = 0x8100;
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

// Words that take a number, and what they set. "tcp" and "udp" may stand alone.
constexpr struct {
  const char* word;
  const char* field;
  unsigned long most;
} kNumbers[] = {
    {"vlan", "vlan", 4095},        {"pcp", "pcp", 7},          {"tpid", "tpid", 0xffff},
    {"ethertype", "type", 0xffff}, {"dscp", "dscp", 63},       {"tos", "tos", 255},
    {"protocol", "protocol", 255}, {"proto", "protocol", 255}, {"dst-port", "port", 65535},
    {"dport", "port", 65535},      {"tcp", "port", 65535},     {"udp", "port", 65535},
};

std::optional<uint16_t> NumberOf(const std::string& text, unsigned long most) {
  const bool hexadecimal = text.rfind("0x", 0) == 0;
  const char* const begin = text.data() + (hexadecimal ? 2 : 0);
  const char* const end = text.data() + text.size();
  unsigned long value = 0;
  const auto [read_to, error] = std::from_chars(begin, end, value, hexadecimal ? 16 : 10);
  if (error != std::errc() || read_to != end || value > most) return std::nullopt;
  return static_cast<uint16_t>(value);
}

std::optional<uint16_t> ProtocolOf(const std::string& text) {
  static const std::map<std::string, uint16_t> kNames = {
      {"icmp", 1}, {"tcp", 6}, {"udp", 17}, {"icmpv6", 58}, {"sctp", 132}};
  const auto named = kNames.find(text);
  return named != kNames.end() ? named->second : NumberOf(text, 255);
}

Failure Usage(const std::string& message) { return {kUsage, message, {}}; }

Failure SetAddress(const std::string& word, const std::string& value, WantedFrame* wanted) {
  const bool source = word[0] == 's';
  if (word.size() > 3 && word.substr(3) == "-mac") {
    ether_addr* const mac = source ? &wanted->source : &wanted->destination;
    if (ether_aton_r(value.c_str(), mac) == nullptr) {
      return Usage("\"" + value + "\" is no MAC address");
    }
    return {};
  }
  std::array<uint8_t, 16> bytes{};
  if (inet_pton(AF_INET, value.c_str(), bytes.data()) != 1 &&
      inet_pton(AF_INET6, value.c_str(), bytes.data()) != 1) {
    return Usage("\"" + value + "\" is no IP address");
  }
  (source ? wanted->source_ip : wanted->destination_ip) = value;
  return {};
}

Failure Read(const std::vector<std::string>& words, WantedFrame* wanted) {
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    const bool address = word == "src" || word == "dst" || word == "src-ip" || word == "dst-ip" ||
                         word == "src-mac" || word == "dst-mac";
    const auto* number = std::begin(kNumbers);
    while (number != std::end(kNumbers) && word != number->word) ++number;
    if (!address && number == std::end(kNumbers)) {
      return Usage("a frame is described by " + std::string(kFrameWords) + "; not by \"" + word +
                   "\"");
    }
    const bool carrier = word == "tcp" || word == "udp";
    if (carrier) wanted->numbers["protocol"] = word == "tcp" ? IPPROTO_TCP : IPPROTO_UDP;
    const std::string value = i + 1 < words.size() ? words[i + 1] : "";
    if (address) {
      if (Failure failure = SetAddress(word, value, wanted)) return failure;
    } else if (const auto read = number->field == std::string("protocol")
                                     ? ProtocolOf(value)
                                     : NumberOf(value, number->most)) {
      wanted->numbers[number->field] = *read;
    } else if (carrier) {
      continue;
    } else {
      return Usage(word + " takes a number up to " + std::to_string(number->most) + ", not \"" +
                   value + "\"");
    }
    ++i;
  }
  const std::string &source = wanted->source_ip, &destination = wanted->destination_ip;
  if (!source.empty() && !destination.empty() &&
      (source.find(':') == std::string::npos) != (destination.find(':') == std::string::npos)) {
    return Usage("src " + source + " and dst " + destination + " are of different IP versions");
  }
  return {};
}

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

Failure FrameFromWords(const std::vector<std::string>& words, FrameBytes* frame) {
  WantedFrame wanted;
  if (Failure failure = Read(words, &wanted)) return failure;
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
