#include "host/runtime/settings.h"

#include <gmock/gmock.h>

#include "tests/host/runtime/scratch_state.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(SettingsTest, ReadsSettingsOnTopOfTheOldOnes) {
  const ScratchState scratch;
  const std::string path = scratch.File(
      "s",
      "# comment\n\n state_directory=/s d\r\nnetconf_socket_mode = 0600\nstartup_file = /f.json\n"
      "filter_capacity = 7\nfilter_threshold_l3 = 100 0\nlog_level = trace");
  Settings settings;
  std::string error;
  ASSERT_TRUE(ReadSettings(path, &settings, &error)) << error;
  EXPECT_EQ("/s d", settings.state_directory);
  EXPECT_EQ(0600U, settings.netconf_socket_mode);
  EXPECT_EQ(7U, settings.filter_capacity);
  EXPECT_EQ(100U, settings.filter_threshold_l3.high);
  EXPECT_EQ(0U, settings.filter_threshold_l3.low);
  EXPECT_EQ("trace", settings.log_level) << "the last line, without an end";

  const std::string more = scratch.File("more", "startup_file =\nfilter_backend = kernel\n");
  ASSERT_TRUE(ReadSettings(more, &settings, &error)) << error;
  EXPECT_EQ("", settings.startup_file);
  EXPECT_EQ("kernel", settings.filter_backend);
  EXPECT_EQ(7U, settings.filter_capacity) << "a setting that is not named stays as it was";
}

TEST(SettingsTest, RefusesBadFilesWithPlaceAndReason) {
  const ScratchState scratch;
  const struct {
    const char* text;
    const char* reason;
  } cases[] = {
      {"filter_capacity = 9\nfilter_capacity\n", "line 3: is not of the form"},
      {"\n\nfilter-capacity = 9\n", "line 4: has no setting of the name \"filter-capacity\""},
      {"= 9\n", "has no setting of the name \"\""},
      {"filter_capacity = 65537\n", "filter_capacity must be a number of entries"},
      {"filter_capacity = -1\n", "filter_capacity must be"},
      {"filter_capacity = 9x\n", "filter_capacity must be"},
      {"filter_capacity =\n", "filter_capacity must be"},
      {"netconf_socket_mode = 0888\n", "netconf_socket_mode must be an access mode in octal"},
      {"netconf_socket_mode = 1777\n", "netconf_socket_mode must be"},
      {"state_directory = var\n", "state_directory must be an absolute path"},
      {"yang_directory =\n", "yang_directory must be an absolute path"},
      {"startup_file = f.json\n", "startup_file must be an absolute path"},
      {"filter_threshold_l2 = 80\n", "filter_threshold_l2 must be two percentages"},
      {"filter_threshold_l3 = 70 80\n", "filter_threshold_l3 must be two percentages"},
      {"filter_threshold_l3 = 101 0\n", "filter_threshold_l3 must be"},
      {"filter_backend = nft\n", "filter_backend must be one of: kernel, bpf, nftables, memory"},
      {"log_level = loud\n", "log_level must be one of: trace, debug, info, warning, error"},
  };
  for (const auto& c : cases) {
    const std::string path = scratch.File("bad", std::string("log_target = journal\n") + c.text);
    Settings settings;
    std::string error;
    EXPECT_FALSE(ReadSettings(path, &settings, &error)) << c.text;
    EXPECT_THAT(error, AllOf(HasSubstr(path + ", line "), HasSubstr(c.reason))) << c.text;
    EXPECT_EQ("stderr", settings.log_target) << "nothing of a refused file may be taken over";
  }
}

TEST(SettingsTest, ProcessSettingsComeFromTheFileThatTheVariableNames) {
  const ScratchState scratch;
  std::string error;
  scratch.Settings("filter_capacity = 12\n");
  ASSERT_TRUE(LoadProcessSettings(&error)) << error;
  EXPECT_EQ(12U, ProcessSettings().filter_capacity);

  for (const std::string& path : {scratch.directory() + "/absent", scratch.directory()}) {
    setenv("ACL_APP_SETTINGS", path.c_str(), 1);
    EXPECT_FALSE(LoadProcessSettings(&error));
    EXPECT_THAT(error, HasSubstr("settings file " + path + " cannot be read"));
    EXPECT_EQ(12U, ProcessSettings().filter_capacity);
  }
  unsetenv("ACL_APP_SETTINGS");
  ASSERT_TRUE(LoadProcessSettings(&error)) << error;
  EXPECT_EQ(65536U, ProcessSettings().filter_capacity);
}

}  // namespace
}  // namespace host
