// Files with edits, which some commands take.
#ifndef TOOLS_ACLCTL_EDIT_FILE_H_
#define TOOLS_ACLCTL_EDIT_FILE_H_

#include <string>

#include "tools/aclctl/command.h"

namespace aclctl {

// An edit as the command line names it.
struct EditFile {
  std::string path;      // "-": standard input
  bool replace = false;  // it replaces the configuration, instead of being merged with it
};

// Declares the operand and the option of commands that take an edit.
void AddEditFile(Syntax* syntax, EditFile* file);

// Reads the file (.json or .xml), opens the session, and gives the content of <config> for the edit
// as XML.
Failure OpenWithEdit(const Common& common, const EditFile& file, Client* client,
                     std::string* config);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_EDIT_FILE_H_
