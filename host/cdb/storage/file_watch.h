// Notices that somebody else has removed, replaced or changed files that are the daemon's own.
#ifndef HOST_CDB_STORAGE_FILE_WATCH_H_
#define HOST_CDB_STORAGE_FILE_WATCH_H_

#include <sys/stat.h>

#include <string>
#include <vector>

namespace host {

class FileWatch {
 public:
  explicit FileWatch(std::vector<std::string> paths) : paths_(std::move(paths)) {}

  // Takes the files as they are now, present or not, for what they should be: after each write of
  // one's own.
  void Note();
  // What became of the first file that is not as noted, with its name; empty when all are.
  std::string WhatChanged() const;

 private:
  // Which file it is (0, 0: none), and what a write changes of it.
  struct State {
    dev_t device;
    ino_t inode;
    off_t size;
    timespec modified;
  };
  static State StateOf(const std::string& path);

  std::vector<std::string> paths_;
  std::vector<State> noted_;
};

}  // namespace host

#endif  // HOST_CDB_STORAGE_FILE_WATCH_H_
