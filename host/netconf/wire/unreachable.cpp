#include "host/netconf/wire/unreachable.h"

#include <grp.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "host/netconf/wire/socket_group.h"

namespace host {
namespace {

// Who may connect to the socket, which has that mode.
std::string WhoMay(const std::string& path, mode_t mode) {
  gid_t gid = 0;
  if ((mode & S_IWGRP) == 0 || !GroupOf(path, &gid)) return "only its owner may connect";
  const ::group* entry = getgrgid(gid);
  return "only members of the group \"" +
         (entry == nullptr ? std::to_string(gid) : std::string(entry->gr_name)) +
         "\" may connect; whoever is made one has to log in anew";
}

}  // namespace

std::string WhyUnreachable(const std::string& path, int error) {
  std::string text = "cannot reach the daemon at " + path + ": " + std::strerror(error);
  struct stat info {};
  if (error == ENOENT || error == ECONNREFUSED) {
    text += " (is it running?)";
  } else if (error == EACCES && stat(path.c_str(), &info) == 0) {
    text += " (" + WhoMay(path, info.st_mode) + ")";
  } else if (error == EACCES) {
    text += " (its directory is closed to you)";
  }
  return text;
}

}  // namespace host
