// A scratch state directory with a settings file that names it, for tests of the middleware.
#ifndef TESTS_HOST_RUNTIME_SCRATCH_STATE_H_
#define TESTS_HOST_RUNTIME_SCRATCH_STATE_H_

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace host {

class ScratchState {
 public:
  ScratchState() {
    std::string path = std::filesystem::temp_directory_path() / "acl-app-test-XXXXXX";
    directory_ = mkdtemp(path.data());
    Settings("");
  }
  ~ScratchState() {
    unsetenv("ACL_APP_SETTINGS");
    std::filesystem::remove_all(directory_);
  }

  const std::string& directory() const { return directory_; }
  // Writes the settings file anew: the state directory, then `lines`.
  void Settings(const std::string& lines) const {
    const std::string path = File("settings", "state_directory = " + directory_ + "\n" + lines);
    setenv("ACL_APP_SETTINGS", path.c_str(), 1);
  }
  // Writes a file into the directory and returns its path.
  std::string File(const std::string& name, const std::string& text) const {
    std::string path = directory_ + "/" + name;
    std::ofstream(path) << text;
    return path;
  }

 private:
  std::string directory_;
};

}  // namespace host

#endif  // TESTS_HOST_RUNTIME_SCRATCH_STATE_H_
