// Access to the configuration database (CDB): the running and the operational datastore.
//
// Paths are printf-style formats. An element is a node name, a list entry is followed by its keys
// in braces ("list{k1 k2}") or by its zero-based position in brackets ("list[3]" or "list/[3]"). A
// path that starts with "/" is absolute, others start at the session's current position.
//
// Unless stated otherwise a call returns CONFD_OK or CONFD_ERR; confd_lasterr() then has the
// reason.
#ifndef PLATFORM_CONFD_CONFD_CDB_H_
#define PLATFORM_CONFD_CONFD_CDB_H_

#include <cstddef>
#include <cstdint>

#include "platform/confd/confd_lib.h"

#define CDB_PRINTF(format_index) __attribute__((format(printf, format_index, (format_index) + 1)))

extern "C" {

enum cdb_db_type { CDB_RUNNING = 1, CDB_OPERATIONAL = 3 };

// Identifies one committed state of the running datastore.
struct cdb_txid {
  int32_t s1;
  int32_t s2;
  int32_t s3;
  char primary[256];  // name of the node that made the commit, NUL-terminated
};

int cdb_get_txid(int sock, struct cdb_txid* txid);
int cdb_set_namespace(int sock, int hashed_ns);
int cdb_set_timeout(int sock, int seconds);

// Moves the session's position. The node need not exist, its place in the schema must.
int cdb_cd(int sock, const char* fmt, ...) CDB_PRINTF(2);
int cdb_getcwd(int sock, size_t size, char* curdir);
// `*kp` is the caller's, to be released with confd_free_hkeypath().
int cdb_getcwd_kpath(int sock, confd_hkeypath_t** kp);

// 1 when the node exists, 0 when it does not, negative on error.
int cdb_exists(int sock, const char* fmt, ...) CDB_PRINTF(2);
// Number of entries of the list, negative on error.
int cdb_num_instances(int sock, const char* fmt, ...) CDB_PRINTF(2);

// The leaf's value (a leaf-list as C_LIST); the caller releases it with confd_free_value().
int cdb_get(int sock, confd_value_t* value, const char* fmt, ...) CDB_PRINTF(3);
// The text of a string leaf, NUL-terminated, in a buffer that the caller releases with free().
int cdb_get_buf(int sock, unsigned char** buffer, int* length, const char* fmt, ...) CDB_PRINTF(4);
int cdb_get_int32(int sock, int32_t* value, const char* fmt, ...) CDB_PRINTF(3);
int cdb_get_enum_value(int sock, int32_t* value, const char* fmt, ...) CDB_PRINTF(3);

// Writes, operational datastore only. cdb_delete() of a list without keys deletes all its entries.
int cdb_create(int sock, const char* fmt, ...) CDB_PRINTF(2);
int cdb_delete(int sock, const char* fmt, ...) CDB_PRINTF(2);
int cdb_set_elem(int sock, confd_value_t* value, const char* fmt, ...) CDB_PRINTF(3);

}  // extern "C"

#endif  // PLATFORM_CONFD_CONFD_CDB_H_
