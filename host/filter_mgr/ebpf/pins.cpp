#include "host/filter_mgr/ebpf/pins.h"

#include <bpf/bpf.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace host {

Descriptor::~Descriptor() {
  if (fd_ >= 0) close(fd_);
}

std::unique_ptr<PinDirectory> PinDirectory::Make(const std::string& path, int* error) {
  *error = 0;
  for (size_t end = 0; end != std::string::npos && *error == 0;) {
    end = path.find('/', end + 1);
    const std::string above = path.substr(0, end);
    if (mkdir(above.c_str(), 0700) != 0 && errno != EEXIST) *error = -errno;
  }
  struct statfs info {};
  if (*error == 0 && statfs(path.c_str(), &info) != 0) *error = -errno;
  if (*error == 0 && info.f_type != BPF_FS_MAGIC) *error = -EINVAL;
  if (*error != 0) return nullptr;
  return std::unique_ptr<PinDirectory>(new PinDirectory(path));
}

int PinDirectory::Lock() {
  Descriptor fd(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd || flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return -errno;
  // Who had the lock until now may have removed the directory.
  struct stat locked {};
  struct stat now {};
  if (fstat(fd.get(), &locked) != 0 || stat(path_.c_str(), &now) != 0) return -errno;
  if (locked.st_ino != now.st_ino || locked.st_dev != now.st_dev) return -ENOENT;
  lock_ = std::move(fd);
  return 0;
}

int PinDirectory::Pin(int fd, const std::string& name) const {
  const std::string path = PathOf(name), fresh = path + "_new";
  // By way of another name, so that there is no moment without a pin.
  if (unlink(fresh.c_str()) != 0 && errno != ENOENT) return -errno;
  if (bpf_obj_pin(fd, fresh.c_str()) != 0) return -errno;
  if (rename(fresh.c_str(), path.c_str()) == 0) return 0;
  const int error = -errno;
  unlink(fresh.c_str());  // it would keep the object alive, a link also at work
  return error;
}

Descriptor PinDirectory::Get(const std::string& name, int* error) const {
  Descriptor fd(bpf_obj_get(PathOf(name).c_str()));
  *error = fd ? 0 : -errno;
  return fd;
}

int PinDirectory::Unpin(const std::string& name) const {
  return unlink(PathOf(name).c_str()) == 0 ? 0 : -errno;
}

std::vector<std::string> PinDirectory::Names(bool directories) const {
  std::vector<std::string> names;
  DIR* const stream = opendir(path_.c_str());
  if (stream == nullptr) return names;
  while (const dirent* entry = readdir(stream)) {
    if (entry->d_name[0] == '.') continue;
    struct stat info {};
    if (lstat(PathOf(entry->d_name).c_str(), &info) != 0) continue;
    if (S_ISDIR(info.st_mode) == directories) names.emplace_back(entry->d_name);
  }
  closedir(stream);
  return names;
}

int RemovePins(const std::string& path) {
  int error = 0;
  const std::unique_ptr<PinDirectory> directory = PinDirectory::Make(path, &error);
  if (directory == nullptr) return error;
  for (const std::string& name : directory->Directories()) {
    error = RemovePins(directory->PathOf(name));
    if (error != 0) return error;
  }
  for (const std::string& name : directory->Pins()) {
    error = directory->Unpin(name);
    if (error != 0) return error;
  }
  return rmdir(path.c_str()) == 0 ? 0 : -errno;
}

}  // namespace host
