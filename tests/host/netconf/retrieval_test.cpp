// Data in parts: what a reader gets is one state, whatever is committed while it reads.
#include "host/netconf/reply/retrieval.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <list>

#include "host/cdb/list_order.h"
#include "host/cdb/operational_store.h"
#include "host/netconf/operations/candidate.h"
#include "host/xml/generic_xml.h"
#include "tests/host/netconf/random_edits.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

using Progress = DataStream::Progress;

class RetrievalTest : public testing::Test {
 protected:
  // Does what a server does for its readers.
  class Pages : public CommitObserver {
   public:
    explicit Pages(Datastore& datastore) : datastore_(datastore) { datastore_.AddObserver(this); }
    void BeforeCommit(const lyd_node* diff) override { DetachTouched(datastore_.Running(), diff); }
    void OnCommit(const lyd_node* diff, const CommitInfo&) override {
      DetachParted(datastore_.Running(), diff);
    }
    Datastore& datastore_;
  };

  void SetUp() override {
    DatastoreErrors errors;
    DatastoreOptions options;
    options.yang_directory = ACL_YANG_DIR;
    datastore_ = Datastore::Open(options, &errors);
    ASSERT_NE(datastore_, nullptr);
    datastore_->Operational().SetProviders(providers_);
    memory_->page_nodes = 3;
    pages_ = std::make_unique<Pages>(*datastore_);
    candidate_ = std::make_unique<Candidate>(*datastore_);
  }
  void TearDown() override { memory_->kept.clear(); }

  std::unique_ptr<DataStream> Open(bool of_candidate, const std::string& filter = "") {
    RetrievalRequest request;
    request.configuration = [this, of_candidate] {
      return of_candidate
                 ? RetrievalRequest::Configuration{candidate_->Content(), candidate_->Holder()}
                 : RetrievalRequest::Configuration{datastore_->Running()};
    };
    request.with_state = !of_candidate;
    std::string error;
    const Tree tree = filter.empty() ? nullptr : xml_->Parse(filter, &error);
    request.filter = tree.get();
    RpcErrors errors;
    auto stream = Retrieve(request, *datastore_, memory_, &errors);
    EXPECT_TRUE(stream != nullptr && stream->Begin().empty());
    return stream;
  }
  static std::string ReadAll(DataStream* stream) {
    std::string text;
    while (stream->Next(&text) == Progress::kMore) {
    }
    return text;
  }

  std::shared_ptr<StateProviders> providers_ = std::make_shared<StateProviders>();
  std::unique_ptr<Datastore> datastore_;
  std::unique_ptr<GenericXml> xml_ = GenericXml::Create();
  std::shared_ptr<PageMemory> memory_ = std::make_shared<PageMemory>(size_t{1} << 30);
  std::unique_ptr<Pages> pages_;
  std::unique_ptr<Candidate> candidate_;
};

std::string PrintByKey(const lyd_node* tree) {
  const Tree ordered = InKeyOrder(tree);
  char* text = nullptr;
  lyd_print_mem(&text, ordered != nullptr ? ordered.get() : tree, LYD_XML, LYD_PRINT_SHRINK);
  const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
  return text != nullptr ? text : "";
}

struct Reader {
  std::unique_ptr<DataStream> stream;
  std::string expected, text;
};

TEST_F(RetrievalTest, ReadersSeeTheStateInWhichTheyBegan) {
  static const std::string kFilters[] = {
      "",
      "",
      "<filter xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'><config xmlns='urn:acl-app:acl'>"
      "<access-list><acl-profile><ingress><access-list><access-list-entry><match/>"
      "</access-list-entry></access-list></ingress></acl-profile></access-list></config></filter>",
  };
  RandomEdits edits(datastore_->Context(), 4712, 40);
  std::list<Reader> readers;
  int done = 0;
  for (int step = 0; step < RandomRounds(4000); ++step) {
    if (edits.Below(3) == 0) {
      const bool of_candidate = edits.Below(2) == 0;
      const std::string& filter = kFilters[edits.Below(3)];
      const std::string now = ReadAll(Open(of_candidate, filter).get());
      if (of_candidate && filter.empty()) {
        ASSERT_EQ(now, PrintByKey(candidate_->Content())) << "step " << step;
      }
      readers.push_back({Open(of_candidate, filter), now, ""});
    }
    const Tree edit = edits.Next();
    switch (edits.Below(6)) {
      case 0:
        candidate_->Commit({});
        break;
      case 1:
        candidate_->Discard();
        break;
      case 2:
        candidate_->Edit(edit.get(), {DefaultOperation::kMerge, TestOption::kSet}, {});
        break;
      default:
        datastore_->Edit(edit.get(), {}, {});
    }
    for (auto it = readers.begin(); it != readers.end();) {
      const bool goes_on = edits.Below(8) != 0 || it->stream->Next(&it->text) == Progress::kMore;
      if (!goes_on) {
        ASSERT_EQ(it->text, it->expected) << "step " << step;
        ++done;
      }
      it = goes_on ? std::next(it) : readers.erase(it);
    }
  }
  EXPECT_GT(done, RandomRounds(600));
  readers.clear();
  datastore_->Edit(nullptr, {DefaultOperation::kReplace, TestOption::kSet}, {});
  memory_->kept.clear();
  EXPECT_EQ(memory_->used, 0u);
}

// Without memory for what has changed meanwhile a reader is given up, and nobody else is hurt.
TEST_F(RetrievalTest, ReadersWithoutMemoryAreGivenUp) {
  memory_ = std::make_shared<PageMemory>(size_t{0});
  RandomEdits edits(datastore_->Context(), 1);
  while (datastore_->TransactionId() < 20) datastore_->Edit(edits.Next().get(), {}, {});
  const auto stream = Open(false), other = Open(false);
  ReadAll(other.get());
  datastore_->Edit(nullptr, {DefaultOperation::kReplace, TestOption::kSet}, {});
  std::string text;
  Progress progress = Progress::kMore;
  while (progress == Progress::kMore) progress = stream->Next(&text);
  EXPECT_EQ(progress, Progress::kFailed);
}

// State that comes in pieces reads as if it had come at once.
TEST_F(RetrievalTest, PiecesAreJoined) {
  class Source : public StateProviders::Pieces {
    lyd_node* Next(const ly_ctx* context) override {
      static constexpr const char* kPieces[] = {
          "<group><id>1</id><stage>1</stage><entries>2</entries><entry><id>1</id></entry></group>",
          "<group><id>1</id><stage>1</stage><entries>2</entries><entry><id>2</id></entry></group>",
          "<group><id>2</id><stage>1</stage><entries>0</entries></group>",
          "<port><name>e0</name><state>absent</state></port>",
      };
      if (next_ == 4) return nullptr;
      const std::string xml = std::string("<filters xmlns='urn:acl-app:filters'>") +
                              "<capacity>9</capacity>" + kPieces[next_++] + "</filters>";
      lyd_node* tree = nullptr;
      EXPECT_EQ(lyd_parse_data_mem(context, xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT,
                                   0, &tree),
                LY_SUCCESS)
          << ly_errmsg(context);
      return tree;
    }
    int next_ = 0;
  };
  const auto registration = providers_->Add(
      {"acl-app-filters", "filters", nullptr, [] { return std::make_unique<Source>(); }});
  const std::string first = "<group><id>1</id><stage>1</stage>";
  EXPECT_EQ(ReadAll(Open(false).get()),
            "<filters xmlns=\"urn:acl-app:filters\"><capacity>9</capacity>" + first +
                "<entries>2</entries><entry><id>1</id></entry><entry><id>2</id></entry></group>"
                "<group><id>2</id><stage>1</stage><entries>0</entries></group>"
                "<port><name>e0</name><state>absent</state></port></filters>");
  EXPECT_EQ(ReadAll(Open(false,
                         "<filter xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'><filters "
                         "xmlns='urn:acl-app:filters'><group><entries>2</entries><entry><id/>"
                         "</entry></group></filters></filter>")
                        .get()),
            "<filters xmlns=\"urn:acl-app:filters\">" + first +
                "<entries>2</entries><entry><id>1</id></entry><entry><id>2</id></entry></group>"
                "</filters>");
}

}  // namespace
}  // namespace host
