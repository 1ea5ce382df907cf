// Outputs whose reader does not read: nothing waits, nothing is torn, what is missing is told.
#include "host/runtime/log_output.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>

#include "host/runtime/log.h"
#include "tests/host/runtime/scratch_state.h"

namespace host {
namespace {

using testing::HasSubstr;

// What has arrived at `fd`.
std::string Arrived(int fd) {
  std::string text(4 << 20, 0);
  fcntl(fd, F_SETFL, O_NONBLOCK);
  size_t size = 0;
  for (ssize_t more; (more = read(fd, &text[size], text.size() - size)) > 0;) size += more;
  text.resize(size);
  return text;
}

TEST(LogOutputTest, UnreadOutputsDropWholeLinesAndTellHowMany) {
  const ScratchState scratch;
  sockaddr_un address{AF_UNIX, {}};
  scratch.File("j", "").copy(address.sun_path, sizeof(address.sun_path));
  unlink(address.sun_path);
  int pipe_ends[2], stream[2], journal = socket(AF_UNIX, SOCK_DGRAM, 0);
  ASSERT_EQ(0, pipe(pipe_ends) | socketpair(AF_UNIX, SOCK_STREAM, 0, stream));
  ASSERT_EQ(0, bind(journal, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
  const struct {
    const char* name;
    int reader;
    std::unique_ptr<LogOutput> output;
    std::string head;  // of each line
    std::string fields;
  } cases[] = {
      {"pipe", pipe_ends[0], DescriptorOutput(pipe_ends[1]), "", ""},
      {"stream", stream[0], DescriptorOutput(stream[1]), "", ""},
      {"journal", journal, JournalOutput(address.sun_path, "acl-app"),
       "SYSLOG_IDENTIFIER=acl-app\nPRIORITY=4\nMESSAGE=", "USER=eve\\x0a\nCOMMIT=7\n"},
  };
  const LogFields outer({{"SESSION", "1"}, {"USER", "alice"}});
  const LogFields fields({{"USER", "eve\n"}, {"COMMIT", "7"}, {"SESSION", ""}});
  const std::string filler(1500, '.');
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_NE(nullptr, c.output);
    size_t written = 0;
    for (; written < 5000; ++written) {
      c.output->Write(4, std::to_string(written) + filler, CurrentLogFields());
    }
    const uint64_t dropped = c.output->dropped();
    ASSERT_GT(dropped, 0U);
    std::string text = Arrived(c.reader);
    c.output->Write(4, "again");
    text += Arrived(c.reader);
    std::string expected;
    for (size_t i = 0; i < written - dropped; ++i) {
      expected += c.head + std::to_string(i) + filler + "\n" + c.fields;
    }
    expected +=
        c.head + "again [log lines dropped before this one: " + std::to_string(dropped) + "]\n";
    EXPECT_TRUE(text == expected) << text.substr(text.size() - 200);
    EXPECT_EQ(dropped, c.output->dropped());
    // The last line of a process waits for a reader, but not for ever.
    for (size_t i = 0; i < written; ++i) c.output->Write(4, filler);
    c.output->Write(2, "the end");
    std::thread end([&c] { c.output->Write(2, "the end"); });
    usleep(50000);
    text = Arrived(c.reader);
    end.join();
    EXPECT_THAT(text + Arrived(c.reader), HasSubstr("the end [log lines dropped"));
  }
  EXPECT_EQ(nullptr, JournalOutput(scratch.directory() + "/absent", "acl-app"));
}

}  // namespace
}  // namespace host
