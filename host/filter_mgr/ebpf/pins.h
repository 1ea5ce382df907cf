// Kernel objects that outlive the process: descriptors, and the names under which a BPF file system
// keeps programs, maps and links (bpf-helpers(7), "pinning").
#ifndef HOST_FILTER_MGR_EBPF_PINS_H_
#define HOST_FILTER_MGR_EBPF_PINS_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace host {

// Owns a file descriptor.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor();

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// A directory in a BPF file system. Names of pins must not contain dots.
class PinDirectory {
 public:
  // Makes the directory, and those above it, if need be. Null with a negative errno in `error`,
  // -EINVAL when no BPF file system is there.
  static std::unique_ptr<PinDirectory> Make(const std::string& path, int* error);

  const std::string& path() const { return path_; }
  // Keeps others out for as long as this object lives (flock(2)). 0, or a negative errno:
  // -EWOULDBLOCK when another process has the directory.
  int Lock();
  // Pins the object under `name`, in place of what is pinned there. 0 or a negative errno.
  int Pin(int fd, const std::string& name) const;
  // The object pinned under `name`; none with a negative errno in `error`.
  Descriptor Get(const std::string& name, int* error) const;
  // Removes a pin. 0 or a negative errno.
  int Unpin(const std::string& name) const;
  // Names of the pins, or of the directories, in here.
  std::vector<std::string> Pins() const { return Names(/*directories=*/false); }
  std::vector<std::string> Directories() const { return Names(/*directories=*/true); }
  std::string PathOf(const std::string& name) const { return path_ + "/" + name; }

 private:
  explicit PinDirectory(std::string path) : path_(std::move(path)) {}
  std::vector<std::string> Names(bool directories) const;

  std::string path_;
  Descriptor lock_;
};

// Removes the directory, the pins in it and the directories below it. 0 or a negative errno.
int RemovePins(const std::string& path);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_PINS_H_
