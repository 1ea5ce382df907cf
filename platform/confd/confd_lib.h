// Values and keypaths of the configuration daemon's client library.
//
// A value is a tagged union. A keypath names one node of the configuration tree; it is indexed from
// the node upwards: v[0] is the node itself, v[len - 1] the top-level container. Each element is
// either one XML tag or the keys of a list entry (in key order, ended by a C_NOEXISTS value).
//
// Ownership: whatever a library call hands out is released by the caller, values with
// confd_free_value(), keypaths with confd_free_hkeypath(). Buffers (C_BUF, C_BINARY) carry a NUL
// byte after their last octet, so that texts can be read as C strings.
#ifndef PLATFORM_CONFD_CONFD_LIB_H_
#define PLATFORM_CONFD_CONFD_LIB_H_

#include <netinet/in.h>

#include <cstdint>

extern "C" {

enum confd_result { CONFD_OK = 0, CONFD_ERR = -1 };

enum confd_vtype {
  C_NOEXISTS = 1,
  C_XMLTAG = 2,
  C_BUF = 5,
  C_INT32 = 8,
  C_UINT8 = 10,
  C_UINT16 = 11,
  C_UINT32 = 12,
  C_IPV4 = 15,
  C_ENUM_VALUE = 28,
  C_LIST = 31,
  C_BINARY = 39,
  C_IPV4_AND_PLEN = 48,
};

struct confd_value;

struct confd_xmltag {
  uint32_t tag;  // hash of the node's name
  uint32_t ns;   // hash of its namespace
};

struct confd_buf {
  unsigned int size;  // octets, the NUL byte after them not counted
  unsigned char* ptr;
};

struct confd_ipv4_prefix {
  in_addr ip;   // network byte order, host bits kept
  uint8_t len;  // prefix length, 0..32
};

struct confd_list {
  unsigned int size;
  confd_value* ptr;
};

struct confd_value {
  confd_vtype type;
  union {
    confd_xmltag xmltag;
    confd_buf buf;  // C_BUF and C_BINARY
    int32_t i32;
    uint8_t u8;
    uint16_t u16;
    uint32_t u32;
    in_addr ip;         // network byte order
    int32_t enumvalue;  // the value assigned in the schema
    confd_list list;
    confd_ipv4_prefix ipv4prefix;
  } val;
};
typedef struct confd_value confd_value_t;

enum { MAXKEYLEN = 9, MAXDEPTH = 20 };

struct confd_hkeypath {
  int len;
  // One element more than a path can be long: callers may look at v[len], which holds no value.
  confd_value_t v[MAXDEPTH + 1][MAXKEYLEN];
};
typedef struct confd_hkeypath confd_hkeypath_t;

// What happened to a node (operation of a diff iteration).
enum confd_iter_op { MOP_CREATED = 1, MOP_DELETED = 2, MOP_MODIFIED = 3, MOP_VALUE_SET = 4 };

// How a diff iteration goes on: end it, descend into the node, or skip the node's children.
enum confd_iter_ret { ITER_STOP = 1, ITER_RECURSE = 2, ITER_CONTINUE = 3 };

// Prints `kp` into `buf` (at most `n` bytes, always NUL-terminated). Returns the length that the
// whole text has, or a negative value on error.
int confd_pp_kpath(char* buf, int n, const confd_hkeypath_t* kp);

// Releases what the value owns, not the value itself. Values that own nothing are left alone.
void confd_free_value(confd_value_t* value);

// Releases a keypath that the library allocated. Null is allowed.
void confd_free_hkeypath(confd_hkeypath_t* kp);

// The text of the last error of this process; never null.
const char* confd_lasterr();

}  // extern "C"

#endif  // PLATFORM_CONFD_CONFD_LIB_H_
