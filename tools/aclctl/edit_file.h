// Edits in files, which some commands take: JSON, XML, or lines (lines.h).
#ifndef TOOLS_ACLCTL_EDIT_FILE_H_
#define TOOLS_ACLCTL_EDIT_FILE_H_

#include <string>
#include <vector>

#include "tools/aclctl/command.h"
#include "tools/aclctl/lines.h"

namespace aclctl {

// An edit as the command line names it.
struct EditFile {
  std::string path;      // "-": standard input
  std::string content;   // where it is not empty, in place of the file's: JSON
  bool replace = false;  // it replaces the configuration, instead of being merged with it
};

// An edit of running, ready for edit-config.
struct Edit {
  std::string what;                // what it came from, for messages
  std::string config;              // content of <config>; empty: nothing
  std::string default_operation;   // "merge", "replace" or "none"
  std::vector<std::string> notes;  // what the operator should know of it
};

// A statement and where it stands, for messages ("" or "FILE:3: ").
struct PlacedStatement {
  std::string place;
  Statement words;
};

// Declares the operand and the option of commands that take an edit.
void AddEditFile(Syntax* syntax, EditFile* file);

// Reads the file, opens the session, and makes the edit. The ending of the name (.json, .xml) says
// what is in the file; where it does not, the first character does.
//
// An entry that is in JSON, to be merged, has the matches that the file gives it: where running has
// others, the edit replaces them, and notes it.
Failure OpenWithEdit(const Common& common, const EditFile& file, Client* client, Edit* edit);

// Makes the edit that statements ask for of what is running; `edit->what` is for messages.
Failure EditFromStatements(Client* client, const std::vector<PlacedStatement>& statements,
                           Edit* edit);

// The statements of a text; `name` is what messages call it.
Failure ReadStatements(const std::string& name, const std::string& text,
                       std::vector<PlacedStatement>* statements);

// Applies statements to `config`.
Failure ApplyAll(const std::vector<PlacedStatement>& statements, ConfigTree* config);

// The content of a file, or of standard input where `path` is "-".
Failure ReadFile(const std::string& path, std::string* content);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_EDIT_FILE_H_
