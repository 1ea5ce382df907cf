// Message framing: see framing.h.
#include "host/netconf/wire/framing.h"

#include <algorithm>

namespace host {
namespace {

constexpr std::string_view kEndMarker = "]]>]]>";
constexpr uint64_t kMaxChunk = 4294967295;  // RFC 6242 section 4.2

// Length of the longest start of the marker that ends `matched` marker bytes plus `byte`.
size_t AdvanceMarker(size_t matched, char byte) {
  while (true) {
    if (kEndMarker[matched] == byte) return matched + 1;
    if (matched == 0) return 0;
    // Fall back to the longest proper border of the matched part: "]]>]]" -> "]]", "]]" -> "]".
    static constexpr size_t kBorder[] = {0, 0, 1, 0, 1, 2};
    matched = kBorder[matched];
  }
}

}  // namespace

FrameDecoder::Status FrameDecoder::Consume(std::string_view* input) {
  if (state_ == State::kStart) {
    message_.clear();
    skipping_ = false;
    marker_matched_ = 0;
    has_chunk_ = false;
  }
  return framing_ == Framing::kChunked ? ConsumeChunks(input) : ConsumeToMarker(input);
}

FrameDecoder::Status FrameDecoder::ConsumeToMarker(std::string_view* input) {
  if (input->empty()) return Status::kNeedMore;
  state_ = State::kBody;
  size_t pos = 0;
  while (pos < input->size()) {
    if (marker_matched_ == 0) {
      pos = std::min(input->find(kEndMarker[0], pos), input->size());
      if (pos == input->size()) break;
    }
    marker_matched_ = AdvanceMarker(marker_matched_, (*input)[pos]);
    ++pos;
    if (marker_matched_ == kEndMarker.size()) {
      Store(input->substr(0, pos));
      input->remove_prefix(pos);
      if (!skipping_) message_.resize(message_.size() - kEndMarker.size());
      return Finish();
    }
  }
  Store(*input);
  input->remove_prefix(input->size());
  return Status::kNeedMore;
}

FrameDecoder::Status FrameDecoder::ConsumeChunks(std::string_view* input) {
  while (!input->empty()) {
    if (state_ == State::kData) {
      const size_t take = std::min<uint64_t>(chunk_left_, input->size());
      Store(input->substr(0, take));
      input->remove_prefix(take);
      chunk_left_ -= take;
      if (chunk_left_ == 0) state_ = State::kNextLf;
      continue;
    }
    const char byte = input->front();
    input->remove_prefix(1);
    bool ended = false;
    if (!StepHeader(byte, &ended)) return Status::kBroken;
    if (ended) return Finish();
  }
  return Status::kNeedMore;
}

// Takes one byte of a chunk's header or of the end of chunks. False when it does not belong there.
bool FrameDecoder::StepHeader(char byte, bool* ended) {
  switch (state_) {
    case State::kStart:
    case State::kNextLf:
      state_ = State::kHeaderLf;
      return byte == '\n';
    case State::kHeaderLf:
      state_ = State::kHeaderHash;
      return byte == '#';
    case State::kHeaderHash:
      if (byte == '#') {
        state_ = State::kEndLf;
        return has_chunk_;
      }
      chunk_left_ = byte - '0';
      state_ = State::kSize;
      return byte >= '1' && byte <= '9';
    case State::kSize:
      if (byte == '\n') {
        state_ = State::kData;
        has_chunk_ = true;
        return true;
      }
      if (byte < '0' || byte > '9') return false;
      chunk_left_ = chunk_left_ * 10 + (byte - '0');
      return chunk_left_ <= kMaxChunk;
    case State::kEndLf:
      *ended = byte == '\n';
      return *ended;
    default:
      return false;
  }
}

void FrameDecoder::Store(std::string_view bytes) {
  if (skipping_) return;
  // The end marker is stored with the content and cut off afterwards.
  const size_t limit = max_message_ + (framing_ == Framing::kEndOfMessage ? kEndMarker.size() : 0);
  if (bytes.size() > limit - message_.size()) {
    skipping_ = true;
    bytes = bytes.substr(0, limit - message_.size());
  }
  message_.append(bytes);
}

FrameDecoder::Status FrameDecoder::Finish() {
  state_ = State::kStart;
  return skipping_ ? Status::kTooBig : Status::kMessage;
}

std::string FramePrefix(Framing framing, size_t content_size) {
  if (framing == Framing::kEndOfMessage) return {};
  return "\n#" + std::to_string(content_size) + "\n";
}

std::string_view FrameSuffix(Framing framing) {
  return framing == Framing::kEndOfMessage ? kEndMarker : std::string_view("\n##\n");
}

}  // namespace host
