// Searches for findings and how they are told: see findings_service.h.
#include "host/netconf/operations/findings_service.h"

#include <libyang/libyang.h>
#include <net/if.h>

#include <algorithm>
#include <utility>

#include "host/xml/xml_writer.h"

namespace host {
namespace {

constexpr char kNamespace[] = "urn:acl-app:findings";
// A step's share of the work, and findings of a part of a reply.
constexpr uint64_t kStepWork = 1000;
constexpr size_t kPartFindings = 64;

void WriteCounts(const findings::Findings& found, XmlWriter* xml) {
  for (const findings::Kind kind : findings::kAllKinds) {
    const auto count = found.count.find(kind);
    if (count == found.count.end()) continue;
    xml->Open("count");
    xml->Leaf("kind", findings::NameOf(kind));
    xml->Leaf("findings", uint64_t{count->second});
    xml->Close("count");
  }
  if (!found.complete) xml->Leaf("incomplete", "");
}

void WriteCost(const EstimatedCost& cost, XmlWriter* xml) {
  for (const bool l3 : {false, true}) {
    const std::optional<SearchCost>& group = cost.groups[l3 ? 1 : 0];
    if (!group) continue;
    xml->Open("search");
    xml->Leaf("group", l3 ? "l3" : "l2");
    xml->Leaf("port", group->port);
    xml->Leaf("tables-mean", group->MeanText());
    xml->Leaf("tables-worst", uint64_t{group->tables->worst});
    xml->Leaf("entries-worst", uint64_t{group->entries_worst});
    xml->Close("search");
  }
  xml->Leaf("tables-memory", cost.bytes);
}

void WriteName(const findings::EntryName& name, XmlWriter* xml) {
  xml->Leaf("profile", name.profile);
  xml->Leaf("ace-priority", uint64_t{name.ace_priority});
}

void WriteFinding(const findings::Finding& finding, uint64_t number, XmlWriter* xml) {
  xml->Open("finding");
  xml->Leaf("number", number);
  xml->Leaf("kind", findings::NameOf(finding.kind));
  if (finding.entry) WriteName(*finding.entry, xml);
  if (finding.interfaces != nullptr) {
    for (const std::string& name : *finding.interfaces) xml->Leaf("interface", name);
  }
  for (const findings::EntryName& name : finding.cover) {
    xml->Open("cover");
    WriteName(name, xml);
    xml->Close("cover");
  }
  xml->Leaf("text", finding.text);
  xml->Close("finding");
}

// The findings from `*next` on that make up a part; moves it on.
void WritePart(const findings::Findings& found, size_t* next, XmlWriter* xml) {
  const size_t end = std::min(*next + kPartFindings, found.list.size());
  for (; *next < end; ++*next) WriteFinding(found.list[*next], *next + 1, xml);
}

class FindingsStream : public DataStream {
 public:
  explicit FindingsStream(
      std::function<std::shared_ptr<FindingsSearch>(DatastoreErrors* errors)> begin)
      : begin_(std::move(begin)) {}

  bool in_data() const override { return false; }

  RpcErrors Begin() override {
    DatastoreErrors errors;
    search_ = begin_(&errors);
    begin_ = nullptr;
    return FromDatastore(errors);
  }

  Progress Next(std::string* xml) override {
    if (search_->Step() == FindingsSearch::Progress::kFailed) return Progress::kFailed;
    if (search_->result() == nullptr) return Progress::kMore;
    const findings::Findings& found = search_->result()->found;
    XmlWriter writer(kNamespace);
    if (next_ == 0) {
      WriteCounts(found, &writer);
      WriteCost(search_->result()->cost, &writer);
    }
    WritePart(found, &next_, &writer);
    *xml += writer.Take();
    return next_ < found.list.size() ? Progress::kMore : Progress::kEnd;
  }

 private:
  std::function<std::shared_ptr<FindingsSearch>(DatastoreErrors* errors)> begin_;
  std::shared_ptr<FindingsSearch> search_;
  size_t next_ = 0;
};

// The findings from `*next` on that make up a part, as state; moves it on.
lyd_node* BuildState(const ly_ctx* context, const FindingsSearch::Result& result, size_t* next) {
  XmlWriter xml(kNamespace);
  xml.Open("findings");
  if (result != nullptr) {
    xml.Leaf("commit", result->commit);
    if (*next == 0) WriteCounts(result->found, &xml);
    if (*next > 0 && !result->found.complete) xml.Leaf("incomplete", "");
    WritePart(result->found, next, &xml);
  }
  xml.Close("findings");
  lyd_node* tree = nullptr;
  lyd_parse_data_mem(context, xml.Take().c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0,
                     &tree);
  return tree;
}

// State in pieces. As long as nothing is known yet a piece is an element without content, which
// nobody sees.
class FindingsPieces : public StateProviders::Pieces {
 public:
  explicit FindingsPieces(std::shared_ptr<FindingsSearch> search) : search_(std::move(search)) {}

  lyd_node* Next(const ly_ctx* context) override {
    failed_ = search_->Step() == FindingsSearch::Progress::kFailed;
    if (ended_ || failed_) return nullptr;
    lyd_node* piece = BuildState(context, search_->result(), &next_);
    ended_ = search_->result() != nullptr && next_ == search_->result()->found.list.size();
    return piece;
  }
  bool failed() const override { return failed_; }

 private:
  const std::shared_ptr<FindingsSearch> search_;
  size_t next_ = 0;
  bool ended_ = false, failed_ = false;
};

}  // namespace

InterfaceNames SystemInterfaces() {
  const std::unique_ptr<struct if_nameindex, void (*)(struct if_nameindex*)> all(if_nameindex(),
                                                                                 if_freenameindex);
  if (all == nullptr) return std::nullopt;
  std::set<std::string> names;
  for (const struct if_nameindex* at = all.get(); at->if_name != nullptr; ++at) {
    names.insert(at->if_name);
  }
  return names;
}

FindingsSearch::FindingsSearch(uint64_t commit, InterfaceNames interfaces,
                               std::unique_ptr<FindingsReader> reader,
                               std::shared_ptr<CostWorker> worker,
                               std::function<void(const Result& result)> on_done)
    : known_{commit, std::move(interfaces), {}, {}},
      reader_(std::move(reader)),
      worker_(std::move(worker)),
      on_done_(std::move(on_done)) {}

FindingsSearch::Progress FindingsSearch::Step() {
  if (failed_) return Progress::kFailed;
  if (result_ != nullptr) return Progress::kEnd;
  if (reader_ == nullptr) {
    if (Analyse()) return Progress::kMore;
    End();
    return Progress::kEnd;
  }
  const Progress progress = reader_->Step();
  failed_ = progress == Progress::kFailed;
  if (progress != Progress::kEnd) return progress;
  BeginAnalysis();
  return Progress::kMore;
}

void FindingsSearch::BeginAnalysis() {
  std::shared_ptr<findings::Configuration> configuration = reader_->Take();
  reader_.reset();
  for (auto& [name, interface] : configuration->interfaces) {
    interface.absent = known_.interfaces && known_.interfaces->count(name) == 0;
  }
  analysis_ = std::make_unique<findings::Analysis>(configuration);
  estimate_ = std::make_unique<CostEstimate>(std::move(configuration), worker_);
}

bool FindingsSearch::Analyse() {
  if (analysis_ == nullptr) return estimate_->Step();
  if (analysis_->Step(kStepWork)) return true;
  known_.found = analysis_->result();
  analysis_.reset();
  return true;
}

void FindingsSearch::End() {
  auto result = std::make_shared<FindingsResult>(known_);
  result->cost = estimate_->result();
  estimate_.reset();
  for (const EstimatedCost::Refused& refused : result->cost.refused) {
    if (result->found.count[findings::Kind::kBeyondTables]++ >= findings::Limits().list_per_kind) {
      continue;
    }
    const auto port = std::make_shared<const std::vector<std::string>>(1, refused.port);
    result->found.list.push_back({findings::Kind::kBeyondTables, port, {}, {}, refused.text});
  }
  result_ = std::move(result);
  if (on_done_) on_done_(result_);
}

std::unique_ptr<FindingsReader> FindingsService::Reader(const lyd_node* difference) const {
  return std::make_unique<FindingsReader>(datastore_.Context(), datastore_.Running(), nullptr,
                                          difference, pages_);
}

std::shared_ptr<FindingsSearch> FindingsService::OfRunning() {
  InterfaceNames interfaces = interfaces_();
  const uint64_t commit = datastore_.TransactionId();
  if (known_ != nullptr && known_->commit == commit && known_->interfaces == interfaces) {
    return std::make_shared<FindingsSearch>(known_);
  }
  std::shared_ptr<FindingsSearch> search = running_.lock();
  const bool same = search != nullptr && search->IsOf(commit, interfaces) &&
                    search->Step() != FindingsSearch::Progress::kFailed;
  if (!same) {
    search = std::make_shared<FindingsSearch>(
        commit, std::move(interfaces), Reader(nullptr), worker_,
        [this](const FindingsSearch::Result& result) { known_ = result; });
    running_ = search;
  }
  return search;
}

std::shared_ptr<FindingsSearch> FindingsService::OfCandidate() const {
  auto reader = std::make_unique<FindingsReader>(datastore_.Context(), candidate_.Content(),
                                                 candidate_.Holder(), nullptr, pages_);
  return std::make_shared<FindingsSearch>(datastore_.TransactionId(), interfaces_(),
                                          std::move(reader), worker_, nullptr);
}

std::shared_ptr<FindingsSearch> FindingsService::OfEdit(const lyd_node* edit,
                                                        const EditOptions& options,
                                                        DatastoreErrors* errors) const {
  const EditPreview preview = datastore_.Preview(edit, options);
  *errors = preview.errors;
  if (!errors->empty()) return nullptr;
  return std::make_shared<FindingsSearch>(datastore_.TransactionId(), interfaces_(),
                                          Reader(preview.difference.get()), worker_, nullptr);
}

void FindingsService::Show(StateProviders* providers) {
  // Where all must be told at once, what is known already is; in one part after the other.
  const auto build = [this](const ly_ctx* context) -> lyd_node* {
    Tree state;
    for (size_t next = 0; known_ != nullptr && (next == 0 || next < known_->found.list.size());) {
      TreeBuilder first(&state);
      const Tree part(BuildState(context, known_, &next));
      if (lyd_merge_siblings(first, part.get(), 0) != LY_SUCCESS || known_->found.list.empty()) {
        break;
      }
    }
    return state.release();
  };
  shown_ = providers->Add({"acl-app-findings", "findings", build,
                           [this] { return std::make_unique<FindingsPieces>(OfRunning()); }});
}

std::unique_ptr<DataStream> StreamFindings(
    std::function<std::shared_ptr<FindingsSearch>(DatastoreErrors* errors)> begin) {
  return std::make_unique<FindingsStream>(std::move(begin));
}

}  // namespace host
