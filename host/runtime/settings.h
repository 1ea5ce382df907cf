// The daemon's own settings: one small file of "name = value" lines ('#' starts a comment). It is
// the one that the environment variable ACL_APP_SETTINGS names, or else the one at the path that
// the installation gave it; the daemon and its clients find it in the same way. A setting's name is
// that of its member below. Where there is no file at the latter path, every setting has its
// default; a file that cannot be read, an unknown name or a bad value is an error. What a setting
// means is said to people in settings.cpp, from which the manual page is made.
#ifndef HOST_RUNTIME_SETTINGS_H_
#define HOST_RUNTIME_SETTINGS_H_

#include <string>

#include "host/filter_mgr/fill_threshold.h"

namespace host {

struct Settings {
  // Where the daemon keeps what must survive it, and the lock that keeps a second daemon out. The
  // directory must exist.
  std::string state_directory = "/var/lib/acl-app";
  // UNIX socket for NETCONF; its directory must exist.
  std::string netconf_socket = "/run/acl-app/netconf.sock";
  // Access mode of the socket, and the group it is given to (empty: the daemon's own).
  unsigned int netconf_socket_mode = 0660;
  std::string netconf_socket_group;
  // Group whose members may change things over NETCONF. Root and the daemon's own account always
  // may; all others who can connect may only read. Empty: no such group.
  std::string netconf_write_group;
  // Configuration (JSON or XML, by its ending) that running is loaded from as long as the state
  // directory holds none of its own; empty: none.
  std::string startup_file;
  // Commits that the history keeps at most.
  unsigned int history_commits = 1000;
  // Where the YANG modules are.
  std::string yang_directory = ACL_APP_YANG_DIRECTORY;
  // "kernel" for the best back end that enforces the filters here, or one by its name
  // (host/filter_mgr/backend_names.h).
  std::string filter_backend = "kernel";
  // Entries that one filter group holds at most.
  unsigned int filter_capacity = 65536;
  // Where the groups count as nearly full.
  FillThreshold filter_threshold_l2, filter_threshold_l3;
  // "journal" or "stderr"; and "trace", "debug", "info", "warning" or "error".
  std::string log_target = "stderr";
  std::string log_level = "info";
};

// All settings with their defaults, values and meanings, for people. By setting, a line "name =
// default", and below it lines that begin with blanks: its values, and what it means.
std::string DescribeSettings();

// Reads `path` into `settings`, on top of what it holds. False with a reason that names the file
// and the line in `error` otherwise; `settings` is then unchanged.
bool ReadSettings(const std::string& path, Settings* settings, std::string* error);

// The path of the settings file, as described above.
std::string SettingsFile();
// Reads the settings file into `settings`, if there is one. False with a reason in `error`
// otherwise.
bool FindSettings(Settings* settings, std::string* error);
// The NETCONF socket that a client connects to: what the environment variable ACL_APP_SOCKET names,
// or else the settings. False with a reason in `error` when those cannot be read.
bool FindSocket(std::string* path, std::string* error);

// The settings of this process. Read once, by the middleware's start; the defaults before that.
const Settings& ProcessSettings();
// Loads the process's settings as described above. False with a reason in `error` on failure.
bool LoadProcessSettings(std::string* error);

}  // namespace host

#endif  // HOST_RUNTIME_SETTINGS_H_
