// Message framing of NETCONF over a byte stream (RFC 6242 section 4), both kinds: end-of-message
// for peers of base:1.0 and for the hello, chunked for base:1.1.
//
// The decoder takes bytes as they come, in any pieces, and holds at most one message. It never
// holds more than `max_message` bytes: a longer message is skipped to its end, so that the session
// can answer and go on.
#ifndef HOST_NETCONF_WIRE_FRAMING_H_
#define HOST_NETCONF_WIRE_FRAMING_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace host {

enum class Framing { kEndOfMessage, kChunked };

class FrameDecoder {
 public:
  enum class Status {
    kNeedMore,  // all input consumed, no message ended
    kMessage,   // a message is complete
    kTooBig,    // a message is complete, but its content was skipped; message() has its start
    kBroken,    // not a frame (RFC 6242 section 4.2): the session must end
  };

  explicit FrameDecoder(size_t max_message) : max_message_(max_message) {}

  // Applies from the next message on; to be called between messages.
  void SetFraming(Framing framing) { framing_ = framing; }

  // Takes bytes from the front of `*input` (which is cut accordingly), at most up to the end of a
  // message. After kMessage and kTooBig the next call starts a new message.
  Status Consume(std::string_view* input);

  // The content of the message so far; complete after kMessage. The caller may move it out.
  std::string& message() { return message_; }
  // True within a message.
  bool InMessage() const { return state_ != State::kStart; }

 private:
  enum class State {
    kStart,       // before the first byte of a message
    kBody,        // end-of-message framing: in the content
    kHeaderLf,    // chunked: LF seen, '#' must follow
    kHeaderHash,  // "\n#" seen: a size or '#'
    kSize,        // in the digits of a chunk's size
    kData,        // in a chunk's data
    kNextLf,      // after a chunk's data: LF must follow
    kEndLf,       // "\n##" seen: LF must follow
  };

  Status ConsumeToMarker(std::string_view* input);
  Status ConsumeChunks(std::string_view* input);
  bool StepHeader(char byte, bool* ended);
  void Store(std::string_view bytes);
  Status Finish();

  const size_t max_message_;
  Framing framing_ = Framing::kEndOfMessage;
  State state_ = State::kStart;
  std::string message_;
  bool skipping_ = false;      // the message is over its limit
  size_t marker_matched_ = 0;  // bytes of the end marker at the end of the content
  uint64_t chunk_left_ = 0;
  bool has_chunk_ = false;
};

// One message, framed for sending: what goes before and after its content.
std::string FramePrefix(Framing framing, size_t content_size);
std::string_view FrameSuffix(Framing framing);

}  // namespace host

#endif  // HOST_NETCONF_WIRE_FRAMING_H_
