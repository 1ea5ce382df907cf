// Notices that somebody else has touched files.
#include "host/cdb/storage/file_watch.h"

namespace host {

FileWatch::State FileWatch::StateOf(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino, info.st_size, info.st_mtim};
}

void FileWatch::Note() {
  noted_.clear();
  for (const std::string& path : paths_) noted_.push_back(StateOf(path));
}

std::string FileWatch::WhatChanged() const {
  for (size_t i = 0; i < noted_.size(); ++i) {
    const State& was = noted_[i];
    const State now = StateOf(paths_[i]);
    if (now.inode == 0 && was.inode != 0) return paths_[i] + " was removed";
    if (now.inode != was.inode || now.device != was.device)
      return paths_[i] + " was replaced by another file";
    if (now.size != was.size || now.modified.tv_sec != was.modified.tv_sec ||
        now.modified.tv_nsec != was.modified.tv_nsec) {
      return paths_[i] + " was changed by another program";
    }
  }
  return "";
}

}  // namespace host
