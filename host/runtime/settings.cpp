#include "host/runtime/settings.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "host/filter_mgr/backend_names.h"

namespace host {
namespace {

constexpr const char* kSettingsVariable = "ACL_APP_SETTINGS";
constexpr const char* kSocketVariable = "ACL_APP_SOCKET";

// What texts a setting may have, and how they become its member and come from it.
struct Form {
  std::string values;                                                     // as in "must be ..."
  std::function<bool(const std::string& value, Settings* settings)> set;  // false: none of them
  std::function<std::string(const Settings& settings)> get;
};

Form Text(std::string Settings::*member, std::string values) {
  return {std::move(values),
          [member](const std::string& value, Settings* settings) {
            settings->*member = value;
            return true;
          },
          [member](const Settings& settings) { return settings.*member; }};
}

// Takes only texts that `allowed` is true of.
Form Limited(Form form, std::function<bool(const std::string& value)> allowed) {
  form.set = [set = std::move(form.set), allowed = std::move(allowed)](const std::string& value,
                                                                       Settings* settings) {
    return allowed(value) && set(value, settings);
  };
  return form;
}

Form Path(std::string Settings::*member) {
  return Limited(Text(member, "an absolute path"),
                 [](const std::string& value) { return !value.empty() && value[0] == '/'; });
}

Form OptionalPath(std::string Settings::*member) {
  return Limited(Text(member, "an absolute path, or nothing"),
                 [](const std::string& value) { return value.empty() || value[0] == '/'; });
}

Form OneOf(std::string Settings::*member, const std::vector<std::string>& choices) {
  std::string values;
  for (const std::string& choice : choices) values += (values.empty() ? "" : ", ") + choice;
  return Limited(Text(member, "one of: " + values), [choices](const std::string& value) {
    return std::find(choices.begin(), choices.end(), value) != choices.end();
  });
}

Form Number(unsigned int Settings::*member, int base, unsigned int lowest, unsigned int highest,
            const char* values) {
  return {values,
          [=](const std::string& value, Settings* settings) {
            unsigned int number = 0;
            const char* end = value.data() + value.size();
            const auto [stop, error] = std::from_chars(value.data(), end, number, base);
            if (error != std::errc() || stop != end || number < lowest || number > highest) {
              return false;
            }
            settings->*member = number;
            return true;
          },
          [=](const Settings& settings) {
            char digits[16] = "0";  // ahead of an octal number, as in C
            char* const start = digits + (base == 8 ? 1 : 0);
            return std::string(digits,
                               std::to_chars(start, std::end(digits), settings.*member, base).ptr);
          }};
}

Form Threshold(FillThreshold Settings::*member) {
  return {"two percentages, high and not above it low, such as 80 70",
          [member](const std::string& value, Settings* settings) {
            FillThreshold read;
            const char* const end = value.data() + value.size();
            const auto high = std::from_chars(value.data(), end, read.high);
            if (high.ec != std::errc() || high.ptr == end || *high.ptr != ' ') return false;
            const auto low = std::from_chars(high.ptr + 1, end, read.low);
            if (low.ec != std::errc() || low.ptr != end) return false;
            if (read.high == 0 || read.high > 100 || read.low > read.high) return false;
            settings->*member = read;
            return true;
          },
          [member](const Settings& settings) {
            const FillThreshold& threshold = settings.*member;
            return std::to_string(threshold.high) + " " + std::to_string(threshold.low);
          }};
}

struct Setting {
  const char* name;
  Form form;
  const char* meaning;
};

// In the order in which people are told of them.
const std::vector<Setting>& AllSettings() {
  static const std::vector<Setting> settings = {
      {"state_directory", Path(&Settings::state_directory),
       "Where the daemon keeps what must survive it: the configuration and its history, and the "
       "lock "
       "that keeps a second daemon out. The directory must exist; it is closed to other users."},
      {"netconf_socket", Path(&Settings::netconf_socket),
       "The UNIX socket where NETCONF clients and aclctl connect. Its directory must exist."},
      {"netconf_socket_mode",
       Number(&Settings::netconf_socket_mode, 8, 0, 0777, "an access mode in octal, such as 0660"),
       "Access mode of the socket: who may connect."},
      {"netconf_socket_group",
       Text(&Settings::netconf_socket_group, "the name of a group, or nothing"),
       "Group that the socket is given to; without one it keeps the daemon's."},
      {"netconf_write_group",
       Text(&Settings::netconf_write_group, "the name of a group, or nothing"),
       "Group whose members may change things. Root and the daemon's own account always may; all "
       "others who can connect may only read."},
      {"startup_file", OptionalPath(&Settings::startup_file),
       "A configuration (.json or .xml) that is loaded as long as the state directory holds none "
       "of "
       "its own."},
      {"history_commits",
       Number(&Settings::history_commits, 10, 1, 1000000, "a number of commits, from 1 to 1000000"),
       "Commits that the history keeps at most. What they changed takes at most 64 MB."},
      {"yang_directory", Path(&Settings::yang_directory), "Where the YANG modules are."},
      {"filter_backend",
       OneOf(&Settings::filter_backend, {std::begin(kBackendSettings), std::end(kBackendSettings)}),
       "What enforces the filters. \"kernel\" is the best that this kernel and the privileges "
       "allow; "
       "\"bpf\" is tables that a BPF program searches, \"nftables\" rules of the kernel's packet "
       "filter; \"memory\" only keeps them. Which one is in use, and why, is in the log and in the "
       "state."},
      {"filter_capacity",
       Number(&Settings::filter_capacity, 10, 0, 65536, "a number of entries from 0 to 65536"),
       "Entries that each of the two filter groups holds at most."},
      {"filter_threshold_l2", Threshold(&Settings::filter_threshold_l2),
       "Percent of filter_capacity from which on the L2 group counts as nearly full, in the log, "
       "the "
       "status and the state, and down to which it has to come to count so no longer."},
      {"filter_threshold_l3", Threshold(&Settings::filter_threshold_l3),
       "The same for the L3 group."},
      {"log_target", OneOf(&Settings::log_target, {"journal", "stderr"}),
       "Where the log goes. Lines that nobody takes are dropped, not waited for, and a later line "
       "says how many. The installed file says \"journal\"."},
      {"log_level", OneOf(&Settings::log_level, {"trace", "debug", "info", "warning", "error"}),
       "What is logged: lines of this level and of those that are graver."},
  };
  return settings;
}

std::string_view Trimmed(std::string_view text) {
  constexpr const char* kBlanks = " \t\r";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Applies one line; what is wrong with it, or empty.
std::string ApplyLine(std::string_view line, Settings* settings) {
  line = Trimmed(line);
  if (line.empty() || line[0] == '#') {
    return {};
  }
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) {
    return "is not of the form \"name = value\"";
  }
  const std::string_view name = Trimmed(line.substr(0, equals));
  for (const Setting& setting : AllSettings()) {
    if (setting.name != name) continue;
    const std::string value(Trimmed(line.substr(equals + 1)));
    if (setting.form.set(value, settings)) return {};
    return std::string(name) + " must be " + setting.form.values;
  }
  return "has no setting of the name \"" + std::string(name) + "\"";
}

Settings& MutableProcessSettings() {
  static Settings settings;
  return settings;
}

}  // namespace

std::string DescribeSettings() {
  std::string text;
  for (const Setting& setting : AllSettings()) {
    text += std::string(setting.name) + " = " + setting.form.get(Settings()) +
            "\n    Values: " + setting.form.values + ".\n    " + setting.meaning + "\n";
  }
  return text;
}

bool ReadSettings(const std::string& path, Settings* settings, std::string* error) {
  errno = 0;
  std::ifstream file(path);
  if (!file) {
    *error = "settings file " + path + " cannot be read: " + std::strerror(errno);
    return false;
  }
  Settings result = *settings;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    const std::string reason = ApplyLine(line, &result);
    if (!reason.empty()) {
      *error = "settings file " + path + ", line " + std::to_string(number) + ": " + reason;
      return false;
    }
  }
  if (file.bad() || !file.eof()) {
    *error = "settings file " + path + " cannot be read to its end: " + std::strerror(errno);
    return false;
  }
  *settings = std::move(result);
  return true;
}

const Settings& ProcessSettings() { return MutableProcessSettings(); }

std::string SettingsFile() {
  const char* path = std::getenv(kSettingsVariable);
  return path != nullptr ? path : ACL_APP_SETTINGS_FILE;
}

bool FindSettings(Settings* settings, std::string* error) {
  const std::string path = SettingsFile();
  const bool named = std::getenv(kSettingsVariable) != nullptr;
  if (!named && access(path.c_str(), F_OK) != 0 && errno == ENOENT) return true;
  return ReadSettings(path, settings, error);
}

bool FindSocket(std::string* path, std::string* error) {
  const char* named = std::getenv(kSocketVariable);
  if (named != nullptr && *named == 0) named = nullptr;
  Settings settings;
  if (named == nullptr && !FindSettings(&settings, error)) {
    *error += std::string("; ") + kSocketVariable + " or --socket names the socket without it";
    return false;
  }
  *path = named != nullptr ? named : settings.netconf_socket;
  return true;
}

bool LoadProcessSettings(std::string* error) {
  Settings settings;
  if (!FindSettings(&settings, error)) return false;
  MutableProcessSettings() = std::move(settings);
  return true;
}

}  // namespace host
