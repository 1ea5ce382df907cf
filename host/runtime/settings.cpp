#include "host/runtime/settings.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "host/filter_mgr/backend_names.h"

namespace host {
namespace {

constexpr const char* kSettingsVariable = "ACL_APP_SETTINGS";
constexpr const char* kSocketVariable = "ACL_APP_SOCKET";

// Takes a setting's text; what is wrong with it, or empty.
using Setter = std::function<std::string(const std::string& value, Settings* settings)>;

Setter Text(std::string Settings::*member) {
  return [member](const std::string& value, Settings* settings) -> std::string {
    settings->*member = value;
    return {};
  };
}

Setter Path(std::string Settings::*member) {
  return [member](const std::string& value, Settings* settings) -> std::string {
    if (value.empty() || value[0] != '/') {
      return "must be an absolute path";
    }
    settings->*member = value;
    return {};
  };
}

Setter OptionalPath(std::string Settings::*member) {
  return [member](const std::string& value, Settings* settings) -> std::string {
    return value.empty() ? Text(member)(value, settings) : Path(member)(value, settings);
  };
}

Setter OneOf(std::string Settings::*member, std::vector<std::string> choices) {
  return [member, choices = std::move(choices)](const std::string& value,
                                                Settings* settings) -> std::string {
    std::string expected;
    for (const std::string& choice : choices) {
      if (value == choice) {
        settings->*member = value;
        return {};
      }
      expected += (expected.empty() ? "" : ", ") + choice;
    }
    return "must be one of: " + expected;
  };
}

Setter Number(unsigned int Settings::*member, int base, unsigned int lowest, unsigned int highest,
              const char* expected) {
  return [=](const std::string& value, Settings* settings) -> std::string {
    unsigned int number = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number, base);
    if (error != std::errc() || stop != end || number < lowest || number > highest) {
      return expected;
    }
    settings->*member = number;
    return {};
  };
}

const std::map<std::string, Setter, std::less<>>& Setters() {
  static const std::map<std::string, Setter, std::less<>> setters = {
      {"state_directory", Path(&Settings::state_directory)},
      {"netconf_socket", Path(&Settings::netconf_socket)},
      {"netconf_socket_mode", Number(&Settings::netconf_socket_mode, 8, 0, 0777,
                                     "must be an access mode in octal, such as 0660")},
      {"netconf_socket_group", Text(&Settings::netconf_socket_group)},
      {"history_commits", Number(&Settings::history_commits, 10, 1, 1000000,
                                 "must be a number of commits, from 1 to 1000000")},
      {"netconf_write_group", Text(&Settings::netconf_write_group)},
      {"startup_file", OptionalPath(&Settings::startup_file)},
      {"yang_directory", Path(&Settings::yang_directory)},
      {"filter_backend", OneOf(&Settings::filter_backend,
                               {std::begin(kBackendSettings), std::end(kBackendSettings)})},
      {"filter_capacity", Number(&Settings::filter_capacity, 10, 0, 65536,
                                 "must be a number of entries from 0 to 65536")},
      {"log_target", OneOf(&Settings::log_target, {"journal", "stderr"})},
      {"log_level", OneOf(&Settings::log_level, {"trace", "debug", "info", "warning", "error"})},
  };
  return setters;
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
  const auto setter = Setters().find(name);
  if (setter == Setters().end()) {
    return "has no setting of the name \"" + std::string(name) + "\"";
  }
  const std::string value(Trimmed(line.substr(equals + 1)));
  const std::string reason = setter->second(value, settings);
  return reason.empty() ? reason : std::string(name) + " " + reason;
}

Settings& MutableProcessSettings() {
  static Settings settings;
  return settings;
}

}  // namespace

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
