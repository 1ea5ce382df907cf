#include "host/netconf/wire/socket_group.h"

#include <endian.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

namespace host {
namespace {

constexpr char kAttribute[] = "system.posix_acl_access";

// The list as the kernel takes it: little-endian, its entries in the order of their tags.
struct AccessList {
  posix_acl_xattr_header header;
  posix_acl_xattr_entry entries[5];
};
constexpr size_t kGroupEntry = 2;

posix_acl_xattr_entry Entry(uint16_t tag, mode_t permissions, uint32_t id = ACL_UNDEFINED_ID) {
  return {htole16(tag), htole16(static_cast<uint16_t>(permissions & 7)), htole32(id)};
}

}  // namespace

bool GiveToGroup(const std::string& path, gid_t group, mode_t mode) {
  const bool given = chown(path.c_str(), static_cast<uid_t>(-1), group) == 0;
  if ((!given && errno != EPERM) || chmod(path.c_str(), mode) != 0) return false;
  if (given) return true;
  const mode_t of_group = mode >> 3;
  const AccessList list = {
      {htole32(POSIX_ACL_XATTR_VERSION)},
      {Entry(ACL_USER_OBJ, mode >> 6), Entry(ACL_GROUP_OBJ, 0), Entry(ACL_GROUP, of_group, group),
       Entry(ACL_MASK, of_group), Entry(ACL_OTHER, mode)}};
  return setxattr(path.c_str(), kAttribute, &list, sizeof(list), 0) == 0;
}

bool GroupOf(const std::string& path, gid_t* group) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return false;
  *group = info.st_gid;
  AccessList list;
  if (getxattr(path.c_str(), kAttribute, &list, sizeof(list)) == sizeof(list) &&
      list.entries[kGroupEntry].e_tag == htole16(ACL_GROUP)) {
    *group = le32toh(list.entries[kGroupEntry].e_id);
  }
  return true;
}

}  // namespace host
