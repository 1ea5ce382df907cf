// Notifications: what is kept of them, who gets which, and what becomes of who does not read.
#include <gmock/gmock.h>

#include <fstream>

#include "host/netconf/notifications/notification_log.h"
#include "host/netconf/notifications/notification_text.h"
#include "host/netconf/notifications/parsed_notification.h"
#include "host/runtime/date_and_time.h"
#include "tests/host/netconf/server_fixture.h"
#include "tests/host/runtime/scratch_state.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class LogTest : public testing::Test {
 protected:
  LogTest() { Open(50); }
  // A log in which a generation ends with its third small notification, as the next process has it
  // when the one before was killed.
  void Open(int64_t now) {
    const NotificationLog::Sizes sizes{{150, 150, 150}};
    log_ = std::make_unique<NotificationLog>(directory_, sizes, now);
  }
  void Add(NotificationLog::Shelf shelf, int64_t first, int64_t last) {
    for (int64_t time = first; time <= last; ++time) {
      log_->Add(shelf, std::make_shared<Notification>(Notification{time, std::to_string(time)}));
    }
  }
  std::string Between(int64_t from, int64_t until) const {
    std::string all;
    for (const NotificationPtr& one : log_->Between(from, until)) all += one->content + " ";
    return all + "aged " + std::to_string(log_->aged_us());
  }

  const ScratchState state_;
  const std::string directory_ = state_.directory() + "/";
  std::unique_ptr<NotificationLog> log_;
};

TEST_F(LogTest, SessionsAndPortsPushNothingElseOutAndTheRestIsThereForTheNextProcess) {
  Add(NotificationLog::kCommits, 101, 102);
  Add(NotificationLog::kPorts, 103, 112);
  Add(NotificationLog::kSessions, 113, 123);
  Add(NotificationLog::kCommits, 124, 124);
  const std::string all = "101 102 109 110 111 112 119 120 121 122 123 124 aged 118";
  EXPECT_EQ(all, Between(0, 1000));
  EXPECT_EQ("102 109 110 aged 118", Between(102, 110));
  for (const int64_t now : {200, 300}) {
    Open(now);
    EXPECT_EQ(all, Between(0, 1000));
    EXPECT_EQ(50, log_->created_us());
  }
  Add(NotificationLog::kSessions, 125, 126);
  EXPECT_EQ("112 122 123 124 125 126 aged 121", Between(112, 1000)) << "the next generation";
}

TEST_F(LogTest, WhatIsDamagedIsPassedOver) {
  Add(NotificationLog::kCommits, 101, 103);
  const std::string path = directory_ + "notifications.log";
  const struct {
    std::function<void(std::string*)> damage;
    const char* left;
  } cases[] = {
      {[](std::string* text) { text->back() = ' '; }, "101 102 104 aged 0"},
      {[](std::string* text) { text->resize(text->size() - 3); }, "101 102 104 aged 0"},
      {[](std::string* text) { text->replace(text->rfind("102"), 3, "105"); },
       "101 103 104 aged 0"},
      {[](std::string* text) { text->insert(0, "x"); }, "104 aged 0"},
      {[](std::string* text) { text->clear(); }, "104 aged 0"},
  };
  std::stringstream whole;
  whole << std::ifstream(path).rdbuf();
  for (const auto& c : cases) {
    std::string text = whole.str();
    c.damage(&text);
    std::filesystem::remove(path + ".old");
    std::ofstream(path) << text;
    Open(60);
    Add(NotificationLog::kCommits, 104, 104);
    Open(70);  // what follows the damage is not lost with it
    EXPECT_EQ(c.left, Between(0, 1000));
  }
}

class NotificationTest : public ServerTest {
 protected:
  void SetUp() override {
    server_options_.notification_directory = directory_;
    server_options_.events = events_;
    Start();
    writer_ = std::make_unique<TestClient>(server_options_.socket_path);
    writer_->Open();
  }
  std::unique_ptr<TestClient> Subscriber(const std::string& parameters, const char* reply) {
    auto client = std::make_unique<TestClient>(server_options_.socket_path);
    client->Open();
    EXPECT_THAT(Subscribe(client.get(), parameters), HasSubstr(reply)) << parameters;
    return client;
  }
  static std::string Subscribe(TestClient* client, const std::string& parameters) {
    return client->Rpc("<create-subscription xmlns='" + std::string(kNotificationNamespace) + "'>" +
                       parameters + "</create-subscription>");
  }
  // A commit that creates or deletes so many interfaces.
  void Commit(const char* operation, int interfaces, int first = 0) {
    std::string list;
    for (int i = 0; i < interfaces; ++i) {
      list += std::string("<interface nc:operation='") + operation + "'><interface-name>e" +
              std::to_string(first + i) + "</interface-name></interface>";
    }
    EXPECT_THAT(writer_->Rpc("<edit-config><target><running/></target><config xmlns:nc='" +
                             std::string(kNetconfNamespace) +
                             "'><config xmlns='urn:acl-app:acl'>"
                             "<access-list>" +
                             list +
                             "</access-list></config></config>"
                             "</edit-config>"),
                HasSubstr("<ok/>"));
  }
  const std::shared_ptr<Events> events_ = std::make_shared<Events>();
  std::unique_ptr<TestClient> writer_;
};

TEST_F(NotificationTest, WhatIsWrongIsRefusedByItsCode) {
  const std::string start = "<startTime>2020-01-01T00:00:00Z</startTime>";
  const std::pair<std::string, const char*> cases[] = {
      {"<stream>SNMP</stream>", "<error-tag>invalid-value<"},
      {"<stopTime>2030-01-01T00:00:00Z</stopTime>",
       "missing-element</error-tag><error-severity>error</error-severity><error-message "
       "xml:lang=\"en\">the element &quot;startTime&quot; is missing</error-message><error-info>"
       "<bad-element>startTime<"},
      {"<startTime>2099-01-01T00:00:00Z</startTime>", "<bad-element>startTime<"},
      {start + "<stopTime>2020-01-01T00:59:59.9+01:00</stopTime>", "<bad-element>stopTime<"},
      {"<filter type='xpath' select='/x['/>", "<bad-attribute>select<"},
      {"<filter type='xpath'/>", "<bad-attribute>select<"},
      {"<filter type='xpath' select='//*[//*]'/>", "<bad-attribute>select<"},
      {start + "<stopTime>2020-01-01T01:00:00+01:00</stopTime>", "<ok/>"},
  };
  for (const auto& [parameters, reply] : cases) Subscriber(parameters, reply);
  const auto client = Subscriber("<stream>NETCONF</stream>", "<ok/>");
  EXPECT_THAT(Subscribe(client.get(), ""), HasSubstr("<error-tag>in-use<"));
}

TEST_F(NotificationTest, EveryEventIsOfTheSchema) {
  Stop();
  std::vector<Event> all = {
      SessionBegan{1, "a\nb<\x01>"},
      CommitJudged{7,
                   "u",
                   3,
                   "c",
                   true,
                   "failed",
                   true,
                   "why",
                   std::chrono::hours(9999),
                   2,
                   1,
                   {{"l2", 1}, {"l3", 65536}}},
      GroupFilled{"l3", true, 65536, 65536, 100},
      GroupFilled{"l2", false, 0, 1, 0},
      InterfaceChanged{"e0", "down", "not-enforced", 3},
      InterfaceChanged{"e0", "absent", "failed"},
      FiltersTouched{"e0", "what", true},
      FiltersTouched{"", "", false},
  };
  for (int reason = SessionEnded::kClosed; reason <= SessionEnded::kOther; ++reason) {
    all.push_back(SessionEnded{1, "u", static_cast<SessionEnded::Reason>(reason), 2});
  }
  for (int step = ConfirmedCommitStep::kStart; step <= ConfirmedCommitStep::kTimeout; ++step) {
    all.push_back(ConfirmedCommitStep{static_cast<ConfirmedCommitStep::What>(step), "u", 1, 600});
  }
  ParsedNotification parsed(datastore_->Context());
  for (const Event& event : all) {
    const auto text = std::make_shared<Notification>(Notification{1, NotificationText(event)});
    EXPECT_NE(parsed.Of(text), nullptr) << text->content;
  }
}

TEST_F(NotificationTest, FiltersSelectWholeNotifications) {
  const std::string base = "urn:ietf:params:xml:ns:yang:ietf-netconf-notifications";
  const std::string change = "<netconf-config-change xmlns='" + base + "'>";
  const auto xpath = [&](const std::string& select) {
    return "<filter type='xpath' xmlns:n='" + base +
           "' xmlns:o='urn:acl-app:notifications' select=\"" + select + "\"/>";
  };
  const std::pair<std::string, const char*> cases[] = {
      {"", "1 2"},
      {"<filter>" + change + "</netconf-config-change></filter>", "1 2"},
      {"<filter>" + change +
           "<edit><operation>delete</operation></edit></netconf-config-change>"
           "</filter>",
       "2"},
      {"<filter><netconf-session-start xmlns='" + base + "'/></filter>", ""},
      {xpath("/n:netconf-config-change[o:commit='2']"), "1"},
      {xpath("//n:edit[n:operation='delete']"), "2"},
      {xpath("/*[o:commit > 2]"), "2"},
      {xpath("/n:netconf-session-end"), ""},
  };
  std::vector<std::unique_ptr<TestClient>> clients;
  for (const auto& [filter, numbers] : cases) clients.push_back(Subscriber(filter, "<ok/>"));
  const auto reader = Subscriber(cases[1].first, "<ok/>");
  Commit("create", 1);
  Commit("delete", 1);
  for (size_t i = 0; i < clients.size(); ++i) {
    std::string got;
    // The reply to the request behind them: what did not come by then was not selected.
    clients[i]->SendMessage(std::string(kRpcStart) + "<close-session/></rpc>");
    for (std::string text = clients[i]->Receive(); text.find("<ok/>") == std::string::npos;
         text = clients[i]->Receive()) {
      if (text.find("config-change") == std::string::npos) continue;
      got += (got.empty() ? "" : " ") + std::string(text.find("create<") != text.npos ? "1" : "2");
      EXPECT_THAT(text, HasSubstr("<changes xmlns=\"urn:acl-app:notifications\">1<"));
    }
    EXPECT_EQ(cases[i].second, got) << cases[i].first;
  }
}

TEST_F(NotificationTest, ReplayAndStopAreMarkedAndTheSessionGoesOn) {
  Commit("create", 64);
  Commit("create", 65, 100);
  const std::string window =
      "<filter><netconf-config-change xmlns='urn:ietf:params:xml:ns:yang:"
      "ietf-netconf-notifications'/></filter><startTime>2020-01-01T00:00:00Z"
      "</startTime><stopTime>";
  const auto client =
      Subscriber(window + DateAndTime(NowMicroseconds() + 700000, 6) + "</stopTime>", "<ok/>");
  EXPECT_THAT(client->Receive(), AllOf(HasSubstr("'e63'"), Not(HasSubstr("edits-combined"))));
  EXPECT_THAT(client->Receive(), AllOf(HasSubstr("<edit><target xmlns:acl-app=\"urn:acl-app:acl\">"
                                                 "/acl-app:config</target><operation>merge<"),
                                       HasSubstr("edits-combined")));
  EXPECT_THAT(client->Receive(), HasSubstr("<replayComplete "));
  Commit("delete", 1);
  EXPECT_THAT(client->Receive(), HasSubstr("<operation>delete<"));
  EXPECT_THAT(client->Rpc("<get/>"), HasSubstr("<out-notifications>4<"));
  EXPECT_THAT(client->Receive(), HasSubstr("<notificationComplete "));
  Commit("create", 1);
  EXPECT_THAT(Subscribe(client.get(), window + "2020-01-02T00:00:00Z</stopTime>"),
              HasSubstr("<ok/>"));
  EXPECT_THAT(client->Receive(), HasSubstr("<replayComplete "));
  EXPECT_THAT(client->Receive(), HasSubstr("<notificationComplete "));
}

TEST_F(NotificationTest, WhoDoesNotReadIsDroppedAndNobodyElseIs) {
  const auto deaf = Subscriber("", "<ok/>"), reader = Subscriber("", "<ok/>");
  std::string last, end;
  for (int i = 0; i < 160; ++i) {
    Commit(i % 2 == 0 ? "create" : "delete", 64);
    while (last.find(">" + std::to_string(i + 2) + "</commit>") == std::string::npos) {
      last = reader->Receive();
      ASSERT_THAT(last, HasSubstr("<notification "));
      if (last.find("session-end") != std::string::npos) end = last;
    }
  }
  EXPECT_THAT(end, HasSubstr("<termination-reason>other<"));
  int got = 0;
  while ((last = deaf->Receive()).find("<notification ") == 0) ++got;
  EXPECT_EQ("CLOSED", last);
  EXPECT_LT(got, 100);
}

}  // namespace
}  // namespace host
