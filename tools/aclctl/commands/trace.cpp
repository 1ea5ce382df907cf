// aclctl trace: which entries decide about a frame.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "host/xml/xml_text.h"
#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/frame_words.h"
#include "tools/aclctl/schema.h"
#include "tools/aclctl/table.h"
#include "tools/aclctl/words.h"

namespace aclctl {
namespace {

using Align = Table::Align;

struct TraceWanted {
  std::string interface;
  std::vector<std::string> words;
  std::string hex, capture, number;
  bool why = false;
};

// "entry 20 of guests on access-1"
std::string EntryName(const lyd_node* entry) {
  const std::string profile = ChildText(entry, "profile");
  if (profile.empty()) return "entry of id " + ChildText(entry, "id");
  return profile + " entry " + ChildText(entry, "ace-priority");
}

// "dropped", "passed", "passed, pcp 5, queue 5".
std::string VerdictText(const lyd_node* trace) {
  std::string text = ChildText(trace, "verdict");
  for (const char* leaf : {"pcp", "queue"}) {
    if (FindChild(trace, leaf) != nullptr) {
      text += std::string(", ") + leaf + " " + ChildText(trace, leaf);
    }
  }
  return text;
}

// The fields of the frame as it is understood.
std::string FieldsText(const lyd_node* frame) {
  std::string text;
  const auto add = [&](const char* word, const char* leaf) {
    const std::string value = ChildText(frame, leaf);
    if (!value.empty()) text += (text.empty() ? "" : " ") + std::string(word) + " " + value;
  };
  for (const MatchWord& word : MatchWords()) {
    add(word.word, word.node);
    if (word.node == std::string("pcp")) add("inner-ethertype", "inner-ethertype");
  }
  return text;
}

std::string DecisionText(const lyd_node* group) {
  const lyd_node* decider = FindChild(group, "decided-by");
  if (decider != nullptr) return EntryName(decider) + " (" + ChildText(decider, "text") + ")";
  const std::string missed = ChildText(group, "missed-entries");
  return missed == "0" ? "no entries"
                       : "none of " + missed + (missed == "1" ? " entry" : " entries");
}

void PrintMissed(const lyd_node* group) {
  const auto missed = Children(group, "missed");
  if (missed.empty()) return;
  std::printf("\n%s entries before that do not match:\n", GroupName(group).c_str());
  Table table({{"PROFILE"}, {"ENTRY", Align::kRight}, {"MISSES"}});
  for (const lyd_node* entry : missed) {
    std::string matches;
    for (const lyd_node* match : Children(entry, "match")) {
      matches += (matches.empty() ? "" : ", ") + std::string(host::XmlText(match));
    }
    const bool known = FindChild(entry, "profile") != nullptr;
    table.AddRow({known ? ChildText(entry, "profile") : "?",
                  known ? ChildText(entry, "ace-priority") : "?", matches});
  }
  std::fputs(table.Print().c_str(), stdout);
  const size_t all = std::strtoul(ChildText(group, "missed-entries").c_str(), nullptr, 10);
  if (all > missed.size()) std::printf("and %zu more\n", all - missed.size());
}

void PrintTrace(const lyd_node* trace, const std::string& interface) {
  const lyd_node* frame = FindChild(trace, "frame");
  std::printf("frame: %s\n", FieldsText(frame).c_str());
  for (const lyd_node* note : Children(frame, "note")) {
    std::printf("       %s\n", std::string(host::XmlText(note)).c_str());
  }
  for (const lyd_node* group : Children(trace, "group")) {
    std::printf("%s:    %s\n", GroupName(group).c_str(), DecisionText(group).c_str());
  }
  std::printf("frame is %s\n", VerdictText(trace).c_str());
  const std::string filters = ChildText(trace, "filters");
  if (filters == "none") {
    std::printf("no profile in force is bound to %s\n", interface.c_str());
  } else if (filters != "in-force") {
    std::printf("the groups are not in force on %s: %s\n", interface.c_str(), filters.c_str());
  }
  for (const lyd_node* group : Children(trace, "group")) PrintMissed(group);
}

// A line for each of many frames.
void AddFrame(size_t number, const lyd_node* trace, Table* table) {
  std::string deciders;
  for (const lyd_node* group : Children(trace, "group")) {
    const lyd_node* decider = FindChild(group, "decided-by");
    if (decider == nullptr) continue;
    deciders += (deciders.empty() ? "" : ", ") + EntryName(decider);
  }
  table->AddRow({std::to_string(number), FieldsText(FindChild(trace, "frame")), VerdictText(trace),
                 deciders.empty() ? "-" : deciders});
}

Failure FetchModules(Client* client, host::ContextPtr* schema) {
  return FetchSchema(client, {"acl-app", "acl-app-filters"}, schema);
}

// Opens the session and fetches `schema` where the frame is given by words.
Failure ReadFrames(const TraceWanted& wanted, const std::string& socket, Client* client,
                   host::ContextPtr* schema, std::vector<FrameBytes>* frames) {
  const int ways = (wanted.words.empty() ? 0 : 1) + (wanted.hex.empty() ? 0 : 1) +
                   (wanted.capture.empty() ? 0 : 1);
  if (ways != 1) return {kUsage, "a frame is given by words, by --hex or by --pcap", {}};
  if (!wanted.number.empty() && wanted.capture.empty()) {
    return {kUsage, "-n is for --pcap", {}};
  }
  if (!wanted.capture.empty()) {
    if (Failure failure = FramesFromCapture(wanted.capture, frames)) return failure;
    if (wanted.number.empty()) return {};
    char* end = nullptr;
    const size_t number = std::strtoul(wanted.number.c_str(), &end, 10);
    if (*end != 0) return {kUsage, "-n takes a number, not \"" + wanted.number + "\"", {}};
    if (number == 0 || number > frames->size()) {
      return {kFile, wanted.capture + " has " + std::to_string(frames->size()) + " frames", {}};
    }
    *frames = {(*frames)[number - 1]};
    return {};
  }
  frames->emplace_back();
  if (!wanted.hex.empty()) return FrameFromHex(wanted.hex, &frames->back());
  if (Failure failure = client->Open(socket)) return failure;
  if (Failure failure = FetchModules(client, schema)) return failure;
  return FrameFromWords(wanted.words, schema->get(), &frames->back());
}

std::string Request(const TraceWanted& wanted, const FrameBytes& frame) {
  std::string digits;
  for (const uint8_t byte : frame) {
    char text[3];
    std::snprintf(text, sizeof(text), "%02x", byte);
    digits += text;
  }
  return "<trace xmlns=\"urn:acl-app:filters\"><interface>" + host::XmlEscape(wanted.interface) +
         "</interface><frame>" + digits + "</frame>" + (wanted.why ? "<why/>" : "") + "</trace>";
}

Failure Trace(const Common& common, const TraceWanted& wanted) {
  std::vector<FrameBytes> frames;
  Client client;
  host::ContextPtr context;
  if (Failure failure = ReadFrames(wanted, common.socket, &client, &context, &frames)) {
    return failure;
  }
  if (context == nullptr) {
    if (Failure failure = client.Open(common.socket)) return failure;
  }
  const bool json = common.form == Form::kJson;
  if (json && context == nullptr) {
    if (Failure failure = FetchModules(&client, &context)) return failure;
  }
  Table table({{"FRAME", Align::kRight}, {"FIELDS"}, {"VERDICT"}, {"DECIDED BY"}});
  std::string output;  // JSON
  for (size_t i = 0; i < frames.size(); ++i) {
    host::Tree reply;
    std::string text;
    if (Failure failure = client.Call(Request(wanted, frames[i]), &reply, &text)) return failure;
    if (json) {
      std::string converted;
      if (Failure failure = ConvertOutput(context.get(), "acl-app-filters:trace",
                                          InnerXml(text, "rpc-reply"), &converted)) {
        return failure;
      }
      output += (output.empty() ? "" : ",\n") + converted;
    } else if (frames.size() == 1) {
      PrintTrace(reply.get(), wanted.interface);
    } else {
      AddFrame(i + 1, reply.get(), &table);
    }
  }
  if (json) {
    std::puts((frames.size() == 1 ? output : "[" + output + "]").c_str());
  } else if (frames.size() != 1) {
    std::fputs(table.Print().c_str(), stdout);
  }
  return {};
}

Run SetUpTrace(Syntax* syntax) {
  const auto wanted = std::make_shared<TraceWanted>();
  syntax->Operand("PORT", &wanted->interface, "where the frame enters", Names::kInterfaces);
  const std::string words =
      std::string("what the frame is like: ") + kFrameWords + ", each with its value";
  syntax->Operands("FIELD", &wanted->words, 0, words.c_str());
  syntax->Option("--hex", "BYTES", &wanted->hex, "the whole frame, in hexadecimal");
  syntax->Option("--pcap", "FILE", &wanted->capture, "the frames of a capture", Names::kFiles);
  syntax->Option("-n", "NUMBER", &wanted->number, "this one of the capture alone");
  syntax->Flag("--why", &wanted->why, "with what each entry before the deciding one misses");
  return [wanted](const Common& common) { return Trace(common, *wanted); };
}

}  // namespace

const Command kTrace = {"trace",
                        Group::kLook,
                        "which entry takes this frame, and what becomes of it",
                        "aclctl trace access-1 src 192.0.2.7 dst 10.0.0.2 tcp 443\n"
                        "aclctl trace access-1 --pcap capture.pcap -n 3 --why",
                        SetUpTrace,
                        kPaged};

}  // namespace aclctl
