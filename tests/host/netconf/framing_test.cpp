// Framing: every message comes out whole whatever pieces it arrives in, and what is no frame is
// noticed.
#include "host/netconf/wire/framing.h"

#include <gtest/gtest.h>

#include <vector>

namespace host {
namespace {

using Status = FrameDecoder::Status;

// Feeds `bytes` in pieces of `piece`; the messages that came out, "TOO BIG" or "BROKEN" for others.
std::vector<std::string> Decode(std::string_view bytes, size_t piece, Framing framing,
                                size_t max_message = 100) {
  FrameDecoder decoder(max_message);
  decoder.SetFraming(framing);
  std::vector<std::string> messages;
  for (size_t pos = 0; pos < bytes.size(); pos += piece) {
    std::string_view input = bytes.substr(pos, piece);
    while (!input.empty()) {
      const Status status = decoder.Consume(&input);
      if (status == Status::kMessage) messages.push_back(decoder.message());
      if (status == Status::kTooBig) messages.push_back("TOO BIG");
      if (status == Status::kBroken) {
        messages.push_back("BROKEN");
        return messages;
      }
      EXPECT_LE(decoder.message().size(), max_message + 6);
    }
  }
  return messages;
}

struct Case {
  const char* name;
  Framing framing;
  std::string bytes;
  std::vector<std::string> messages;
};
void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

const std::string kLong(101, 'x');

const Case kCases[] = {
    {"EndOfMessage", Framing::kEndOfMessage, "<a/>]]>]]>\n<b/>]]>]]>", {"<a/>", "\n<b/>"}},
    {"EmptyMessage", Framing::kEndOfMessage, "]]>]]>", {""}},
    {"MarkerAfterItsOwnStart", Framing::kEndOfMessage, "a]]]>]]]>]]>]]>]]>", {"a]]]>]", ""}},
    {"MarkerStartsInContent", Framing::kEndOfMessage, "]]>]]]]>]]>", {"]]>]]"}},
    {"Unfinished", Framing::kEndOfMessage, "<a/>]]>]]", {}},
    {"AtTheLimit", Framing::kEndOfMessage, kLong.substr(1) + "]]>]]>", {kLong.substr(1)}},
    {"TooBigThenFine", Framing::kEndOfMessage, kLong + "]]>]]><a/>]]>]]>", {"TOO BIG", "<a/>"}},
    {"OneChunk", Framing::kChunked, "\n#4\n<a/>\n##\n", {"<a/>"}},
    {"ManyChunks", Framing::kChunked, "\n#1\n<\n#2\n\n#\n#1\n>\n##\n\n#1\nx\n##\n", {"<\n#>", "x"}},
    {"ChunksTooBigThenFine",
     Framing::kChunked,
     "\n#60\n" + kLong.substr(41) + "\n#60\n" + kLong.substr(41) + "\n##\n\n#1\nx\n##\n",
     {"TOO BIG", "x"}},
    {"EndWithoutChunk", Framing::kChunked, "\n##\n", {"BROKEN"}},
    {"ZeroSize", Framing::kChunked, "\n#0\n\n##\n", {"BROKEN"}},
    {"LeadingZero", Framing::kChunked, "\n#04\n<a/>\n##\n", {"BROKEN"}},
    {"NoSize", Framing::kChunked, "\n#\n<a/>\n##\n", {"BROKEN"}},
    {"SizeOverTheLimit", Framing::kChunked, "\n#4294967296\n", {"BROKEN"}},
    {"LargestSize", Framing::kChunked, "\n#4294967295\nabc", {}},
    {"SizeNotANumber", Framing::kChunked, "\n#4x\n<a/>", {"BROKEN"}},
    {"ContentLongerThanItsSize", Framing::kChunked, "\n#3\n<a/>\n##\n", {"BROKEN"}},
    {"OtherFraming", Framing::kChunked, "<a/>]]>]]>", {"BROKEN"}},
    {"BadEnd", Framing::kChunked, "\n#1\nx\n##x", {"BROKEN"}},
};

class FramingTest : public testing::TestWithParam<Case> {};

TEST_P(FramingTest, IsTheSameInPiecesOfAnySize) {
  const Case& c = GetParam();
  for (size_t piece = 1; piece <= c.bytes.size(); ++piece) {
    EXPECT_EQ(Decode(c.bytes, piece, c.framing), c.messages) << "in pieces of " << piece;
  }
}

INSTANTIATE_TEST_SUITE_P(Table, FramingTest, testing::ValuesIn(kCases),
                         [](const auto& info) { return info.param.name; });

TEST(FramingTest, WhatIsFramedIsDecoded) {
  for (const Framing framing : {Framing::kEndOfMessage, Framing::kChunked}) {
    std::string bytes;
    for (const std::string message : {"<a/>", "\n##\n", "]]"}) {
      bytes += FramePrefix(framing, message.size()) + message + std::string(FrameSuffix(framing));
    }
    EXPECT_EQ(Decode(bytes, 3, framing), (std::vector<std::string>{"<a/>", "\n##\n", "]]"}));
  }
}

TEST(FramingTest, ChangesBetweenMessages) {
  FrameDecoder decoder(100);
  std::string_view input = "<hello/>]]>]]>\n#1\nx\n##\n";
  EXPECT_EQ(decoder.Consume(&input), Status::kMessage);
  EXPECT_FALSE(decoder.InMessage());
  decoder.SetFraming(Framing::kChunked);
  EXPECT_EQ(decoder.Consume(&input), Status::kMessage);
  EXPECT_EQ(decoder.message(), "x");
}

}  // namespace
}  // namespace host
