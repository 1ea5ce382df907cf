// The report: see report.h.
#include "host/standard/report.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "host/runtime/log_text.h"

namespace host::standard {

void Report::Add(ReportItem item) {
  ++counts_[static_cast<size_t>(item.outcome)];
  items_.push_back(std::move(item));
}

Outcome Report::Worst() const {
  for (const Outcome outcome : {Outcome::kRefused, Outcome::kLeftOut, Outcome::kNoted}) {
    if (CountOf(outcome) > 0) return outcome;
  }
  return Outcome::kExact;
}

const char* NameOf(Outcome outcome) {
  static constexpr const char* kNames[] = {"exact", "noted", "left-out", "refused"};
  return kNames[static_cast<size_t>(outcome)];
}

Loss LossOfCondition(bool denies) {
  if (denies) return {"left out: the entry drops more than it says", false};
  return {"left out: the entry passes more than it says", true};
}

Loss LossOfEntry(bool denies) {
  if (denies) {
    return {
        "the whole entry is left out: what it dropped is decided by the entries behind it, and "
        "may pass",
        true};
  }
  return {"the whole entry is left out: what it passed is decided by the entries behind it", false};
}

namespace {

constexpr size_t kMostShown = 1024;  // octets of a part of a line

// A part of a line.
std::string Shown(const std::string& text) { return LogText(CutText(text, kMostShown)); }

}  // namespace

std::string PrintReport(const Report& report, size_t most) {
  std::string text;
  for (const Outcome outcome :
       {Outcome::kRefused, Outcome::kLeftOut, Outcome::kNoted, Outcome::kExact}) {
    const bool bounded = outcome == Outcome::kNoted || outcome == Outcome::kExact;
    size_t listed = 0;
    for (const ReportItem& item : report.items()) {
      if (item.outcome != outcome) continue;
      if (bounded && listed == most) break;
      ++listed;
      text += std::string(item.loud ? "WARNING: " : "") + NameOf(outcome) + ": " +
              Shown(item.path) + ": " + Shown(item.meaning) + ": " + Shown(item.done) + "\n";
    }
    const size_t more = report.CountOf(outcome) - listed;
    if (more > 0) text += std::to_string(more) + " more are " + NameOf(outcome) + "\n";
  }
  return text;
}

std::string ReportAsJson(const Report& report) {
  nlohmann::ordered_json json;
  json["outcome"] = NameOf(report.Worst());
  json["items"] = nlohmann::ordered_json::array();
  for (const ReportItem& item : report.items()) {
    nlohmann::ordered_json entry = {{"path", item.path},
                                    {"meaning", item.meaning},
                                    {"outcome", NameOf(item.outcome)},
                                    {"done", item.done}};
    if (item.loud) entry["warning"] = true;
    json["items"].push_back(std::move(entry));
  }
  return json.dump(2, ' ', true, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace host::standard
