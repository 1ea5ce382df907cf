// SQLite on a disk that fails: an operating system layer (VFS) in front of the real one, which
// counts the calls that reach the disk and lets the chosen ones fail.
//
// It also knows what is on the disk for certain: of each file, the content at its last sync; and
// what may be: the content when a sync first failed after that.
#ifndef TESTS_HOST_CDB_FAULT_VFS_H_
#define TESTS_HOST_CDB_FAULT_VFS_H_

#include <sqlite3.h>

#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace host {

inline std::string ReadWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

class FaultVfs {
 public:
  enum Call { kOpen, kRead, kWrite, kSync, kDelete, kCalls };

  // The default layer of the process while it lives.
  FaultVfs() : real_(sqlite3_vfs_find(nullptr)), vfs_(*real_) {
    vfs_.zName = "fault";
    vfs_.szOsFile = static_cast<int>(sizeof(File)) + real_->szOsFile;
    vfs_.pAppData = this;
    vfs_.xOpen = Open;
    vfs_.xDelete = Delete;
    sqlite3_vfs_register(&vfs_, 1);
  }
  ~FaultVfs() {
    sqlite3_vfs_unregister(&vfs_);
    sqlite3_vfs_register(real_, 1);
  }
  FaultVfs(const FaultVfs&) = delete;
  FaultVfs& operator=(const FaultVfs&) = delete;

  // The `nth` call from now on (from 1) gives `code`; with `lasting`, all later ones of its kind as
  // well, until Heal().
  void FailAt(Call call, int nth, int code, bool lasting) {
    call_ = call, left_ = nth, code_ = code, lasting_ = lasting, failed_ = false;
  }
  void Heal() { left_ = 0, lasting_ = false; }
  // Calls made in between neither fail nor count.
  void Pause(bool pause) { paused_ = pause; }
  bool failed() const { return failed_; }
  // By path.
  const std::map<std::string, std::string>& synced() const { return synced_; }
  const std::map<std::string, std::string>& unconfirmed() const { return unconfirmed_; }

 private:
  struct File {
    sqlite3_file base;
    FaultVfs* vfs;
    std::string* path;
    sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
  };
  static File* Of(sqlite3_file* file) { return reinterpret_cast<File*>(file); }
  static FaultVfs* Of(sqlite3_vfs* vfs) { return static_cast<FaultVfs*>(vfs->pAppData); }

  bool Fails(Call call) {
    if (paused_ || call != call_) return false;
    if (failed_ && lasting_) return true;
    if (left_ == 0 || --left_ != 0) return false;
    failed_ = true;
    return true;
  }

  static int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* out) {
    FaultVfs* self = Of(vfs);
    file->pMethods = nullptr;
    if (self->Fails(kOpen)) return self->code_;
    File* wrapped = Of(file);
    const int result = self->real_->xOpen(self->real_, name, wrapped->real(), flags, out);
    if (wrapped->real()->pMethods == nullptr) return result;
    wrapped->vfs = self;
    wrapped->path = new std::string(name != nullptr ? name : "");
    file->pMethods = Methods();
    return result;
  }
  static int Delete(sqlite3_vfs* vfs, const char* name, int sync) {
    FaultVfs* self = Of(vfs);
    if (self->Fails(kDelete)) return self->code_;
    self->synced_.erase(name);
    self->unconfirmed_.erase(name);
    return self->real_->xDelete(self->real_, name, sync);
  }
  static int Close(sqlite3_file* file) {
    delete Of(file)->path;
    return Of(file)->real()->pMethods->xClose(Of(file)->real());
  }
  static int Read(sqlite3_file* file, void* to, int size, sqlite3_int64 at) {
    if (Of(file)->vfs->Fails(kRead)) return Of(file)->vfs->code_;
    return Of(file)->real()->pMethods->xRead(Of(file)->real(), to, size, at);
  }
  // A failing write has written half.
  static int Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 at) {
    const bool fails = Of(file)->vfs->Fails(kWrite);
    sqlite3_file* real = Of(file)->real();
    const int result = real->pMethods->xWrite(real, from, fails ? size / 2 : size, at);
    return fails ? Of(file)->vfs->code_ : result;
  }
  // A failing sync leaves open what is on the disk.
  static int Sync(sqlite3_file* file, int flags) {
    FaultVfs* vfs = Of(file)->vfs;
    const std::string& path = *Of(file)->path;
    if (vfs->Fails(kSync)) {
      vfs->unconfirmed_.try_emplace(path, ReadWhole(path));
      return vfs->code_;
    }
    vfs->unconfirmed_.erase(path);
    const int result = Of(file)->real()->pMethods->xSync(Of(file)->real(), flags);
    if (result == SQLITE_OK) vfs->synced_[path] = ReadWhole(path);
    return result;
  }

  static const sqlite3_io_methods* Methods() {
    // Without shared memory: the database is for one process.
    static const sqlite3_io_methods methods = {
        1,
        Close,
        Read,
        Write,
        [](sqlite3_file* f, sqlite3_int64 size) {
          return Of(f)->real()->pMethods->xTruncate(Of(f)->real(), size);
        },
        Sync,
        [](sqlite3_file* f, sqlite3_int64* size) {
          return Of(f)->real()->pMethods->xFileSize(Of(f)->real(), size);
        },
        [](sqlite3_file* f, int level) {
          return Of(f)->real()->pMethods->xLock(Of(f)->real(), level);
        },
        [](sqlite3_file* f, int level) {
          return Of(f)->real()->pMethods->xUnlock(Of(f)->real(), level);
        },
        [](sqlite3_file* f, int* held) {
          return Of(f)->real()->pMethods->xCheckReservedLock(Of(f)->real(), held);
        },
        [](sqlite3_file* f, int what, void* with) {
          return Of(f)->real()->pMethods->xFileControl(Of(f)->real(), what, with);
        },
        [](sqlite3_file* f) { return Of(f)->real()->pMethods->xSectorSize(Of(f)->real()); },
        [](sqlite3_file* f) {
          return Of(f)->real()->pMethods->xDeviceCharacteristics(Of(f)->real());
        },
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr};
    return &methods;
  }

  sqlite3_vfs* real_;
  sqlite3_vfs vfs_;
  Call call_ = kCalls;
  int left_ = 0;  // calls of the kind until the one that fails; 0: none does
  int code_ = SQLITE_OK;
  bool lasting_ = false;
  bool failed_ = false;
  bool paused_ = false;
  std::map<std::string, std::string> synced_, unconfirmed_;
};

}  // namespace host

#endif  // TESTS_HOST_CDB_FAULT_VFS_H_
