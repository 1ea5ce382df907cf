// A directory for one benchmark's files, removed with everything in it.
#ifndef BENCH_SCRATCH_H_
#define BENCH_SCRATCH_H_

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class Scratch {
 public:
  Scratch() {
    std::string name = (std::filesystem::temp_directory_path() / "acl-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    directory_ = name;
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { std::filesystem::remove_all(directory_); }

  const std::string& directory() const { return directory_; }
  // Writes a file and returns its path.
  std::string Write(const std::string& name, const std::string& text) const {
    const std::string path = directory_ + "/" + name;
    std::ofstream(path) << text;
    return path;
  }

 private:
  std::string directory_;
};

#endif  // BENCH_SCRATCH_H_
