// Reading of whole configurations from files.
#ifndef HOST_CDB_LOAD_H_
#define HOST_CDB_LOAD_H_

#include <string>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"

namespace host {

// Reads and validates the configuration in the file `path` (".json" or ".xml"); what joins units
// is not checked. An empty configuration must be stated ("{}"): an empty file is an error. The
// errors name the file.
DatastoreErrors LoadConfiguration(const ly_ctx* context, const std::string& path, Tree* tree);

// The same errors, naming the file.
DatastoreErrors InFile(const std::string& path, DatastoreErrors errors);

}  // namespace host

#endif  // HOST_CDB_LOAD_H_
