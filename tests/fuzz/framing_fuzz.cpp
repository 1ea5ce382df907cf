// Fuzzes the frame decoder and the look at a message before it is parsed. The first two bytes
// choose the framing and the size of the pieces in which the rest arrives; the messages must not
// depend on the pieces.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/netconf/wire/framing.h"
#include "host/xml/generic_xml.h"
#include "host/xml/xml_text.h"

namespace host {
namespace {

constexpr size_t kMaxMessage = 4096;
constexpr int kMaxDepth = 32;

std::vector<std::string> Decode(std::string_view bytes, size_t piece, Framing framing) {
  using Status = FrameDecoder::Status;
  FrameDecoder decoder(kMaxMessage);
  decoder.SetFraming(framing);
  std::vector<std::string> messages;
  for (size_t pos = 0; pos < bytes.size(); pos += piece) {
    std::string_view input = bytes.substr(pos, piece);
    while (!input.empty()) {
      const Status status = decoder.Consume(&input);
      if (status == Status::kBroken) {
        messages.emplace_back("broken");
        return messages;
      }
      if (status != Status::kNeedMore) messages.push_back(decoder.message());
    }
  }
  return messages;
}

void Run(const uint8_t* data, size_t size) {
  static const auto xml = GenericXml::Create();
  if (size < 3) return;
  const Framing framing = data[0] % 2 == 0 ? Framing::kEndOfMessage : Framing::kChunked;
  const size_t piece = 1 + data[1];
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::vector<std::string> messages = Decode(bytes, piece, framing);
  if (messages != Decode(bytes, bytes.size(), framing)) std::abort();
  for (const std::string& message : messages) {
    if (message.size() > kMaxMessage + 6) std::abort();
    std::string error;
    if (ScanXml(message, kMaxDepth).fault == XmlOutline::Fault::kNone) xml->Parse(message, &error);
  }
}

}  // namespace
}  // namespace host

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  host::Run(data, size);
  return 0;
}
