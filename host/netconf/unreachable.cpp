#include "host/netconf/unreachable.h"

#include <grp.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace host {
namespace {

// Who may connect to a socket of that mode, owner and group.
std::string WhoMay(const struct stat& socket) {
  if ((socket.st_mode & S_IWGRP) == 0) return "only its owner may connect";
  const ::group* entry = getgrgid(socket.st_gid);
  const std::string group =
      entry == nullptr ? std::to_string(socket.st_gid) : std::string(entry->gr_name);
  return "only members of the group \"" + group +
         "\" may connect; whoever is made one has to log in anew";
}

}  // namespace

std::string WhyUnreachable(const std::string& path, int error) {
  std::string text = "cannot reach the daemon at " + path + ": " + std::strerror(error);
  struct stat info {};
  if (error == ENOENT || error == ECONNREFUSED) {
    text += " (is it running?)";
  } else if (error == EACCES && stat(path.c_str(), &info) == 0) {
    text += " (" + WhoMay(info) + ")";
  } else if (error == EACCES) {
    text += " (its directory is closed to you)";
  }
  return text;
}

}  // namespace host
