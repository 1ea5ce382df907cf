// The parts of the platform that are a function or two: interface ids, what is logged of a text,
// the registry of state providers.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include "host/limid/limid.h"
#include "host/runtime/log_text.h"
#include "host/runtime/state_providers.h"
#include "host/runtime/watchdog.h"
#include "platform/limid/limid.h"

namespace host {
namespace {

TEST(LimidTest, EachNameKeepsItsOwnId) {
  limid_t first = 0;
  ASSERT_EQ(0, limid_from_intfname(&first, "limid-test"));
  EXPECT_NE(0U, first);
  // Enough of them to make every container grow.
  for (int i = 0; i < 5000; ++i) {
    limid_t id = 0;
    const std::string name = "limid-test." + std::to_string(i);
    ASSERT_EQ(0, limid_from_intfname(&id, name.c_str()));
    ASSERT_EQ(name, InterfaceNameOf(id));
  }
  limid_t again = 0;
  ASSERT_EQ(0, limid_from_intfname(&again, "limid-test"));
  EXPECT_EQ(first, again);
  EXPECT_EQ("limid-test", InterfaceNameOf(first));

  limid_t untouched = 77;
  EXPECT_NE(0, limid_from_intfname(&untouched, ""));
  EXPECT_NE(0, limid_from_intfname(&untouched, nullptr));
  EXPECT_EQ(77U, untouched);
  EXPECT_EQ("", InterfaceNameOf(0));
  EXPECT_EQ("", InterfaceNameOf(0xffffffff));
}

TEST(LogTextTest, CutsAndEscapesWhatCouldMislead) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain 100%", "plain 100%"},
      {"a\nb\x1b[31m\x7f", "a\\x0ab\\x1b[31m\\x7f"},
      {"\u00e9\u20ac\U0001f600", "\u00e9\u20ac\U0001f600"},
      {"\u009b1m", "\\xc2\\x9b1m"},
      {"\u202egnp.\u2066\u061c\u2028",
       "\\xe2\\x80\\xaegnp.\\xe2\\x81\\xa6\\xd8\\x9c\\xe2\\x80\\xa8"},
      {"\x9b|\xe2\x82", "\\x9b|\\xe2\\x82"},
  };
  for (const auto& [text, logged] : cases) EXPECT_EQ(LogText(text), logged);
  const std::string start(kMaxLogLine - 1, 'x');
  EXPECT_EQ(LogText(start + "y"), start + "y");
  EXPECT_EQ(LogText(start + "\u00e9" + std::string(900000, 'z')),
            start + "... (and 900002 octets)");
}

TEST(WatchdogTest, IsFedWhereItWatchesAndOnceASecondAtMost) {
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  const std::string name = "acl-app-test." + std::to_string(getpid());
  sockaddr_un address = {};  // an abstract one: unix(7)
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path + 1, sizeof(address.sun_path) - 1);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  ASSERT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), length));
  setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
  setenv("WATCHDOG_USEC", "1000000", 1);
  for (int i = 0; i < 1000; ++i) FeedWatchdog();
  char message[32] = {};
  ASSERT_EQ(10, recv(fd, message, sizeof(message), 0));
  EXPECT_STREQ("WATCHDOG=1", message);
  int more = 0;
  while (recv(fd, message, sizeof(message), 0) > 0) ++more;
  EXPECT_LE(more, 1);
  close(fd);
}

TEST(StateProvidersTest, RegistrationsEndWithTheirOwnersInAnyOrder) {
  auto providers = std::make_unique<StateProviders>();
  const auto modules = [&] {
    std::string names;
    for (const auto& entry : providers->entries()) {
      names += entry.module;
    }
    return names;
  };
  auto a = providers->Add({"a", "", nullptr});
  auto b = providers->Add({"b", "", nullptr});
  {
    auto c = providers->Add({"c", "", nullptr});
    EXPECT_EQ("abc", modules());
    b = std::move(c);
  }
  EXPECT_EQ("ac", modules()) << "what a registration replaces has ended";
  a = {};
  EXPECT_EQ("c", modules());
  providers.reset();
}

}  // namespace
}  // namespace host
