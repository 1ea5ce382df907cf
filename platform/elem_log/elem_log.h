// The element's log library, as far as a process's log dictionary needs it: the records of the
// dictionary tables and the two calls that the dictionary's callouts make.
//
// Every record is a row of machine words; a table of classes, components or severities ends at the
// first row whose name is null. The meaning of the integer columns is the library's.
#ifndef PLATFORM_ELEM_LOG_ELEM_LOG_H_
#define PLATFORM_ELEM_LOG_ELEM_LOG_H_

extern "C" {

// A class, a component or a severity.
struct ElemLogRow {
  const char* name;
  const char* short_name;
  int value;
  int reserved;
};

struct ElemLogField {
  int index;
  const char* key;
  const char* name;
  const char* display;
  const char* short_display;
  int attributes[10];
};

struct ElemLogOutput {
  const char* key;
  const char* name;
  int settings[6];
};

struct ElemLogHeader {
  int settings[5];
  const ElemLogOutput* outputs;
  const ElemLogField* fields;
};

struct ElemLogTables {
  ElemLogRow* classes;
  int* word;  // zero at first, the library's from then on
  void* unused;
  const ElemLogRow* components;
  const ElemLogRow* severities;
};

struct ElemWebCategory {
  const char* title;
  const char* keyword;
  int settings[3];
};

// The identifier that is in use for a class identifier of the dictionary.
int ElemLogCfgGetActualClass(int class_id);
// Hands the dictionary over and returns the library's handle of it. Nothing is copied.
void* ElemLogCfgPopulate(const ElemLogHeader* header, const ElemLogTables* tables);

}  // extern "C"

#endif  // PLATFORM_ELEM_LOG_ELEM_LOG_H_
