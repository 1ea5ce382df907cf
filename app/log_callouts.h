// What the element's log and web-configuration libraries call to read the process's log dictionary.
// They find these functions by their unmangled names.
#ifndef APP_LOG_CALLOUTS_H_
#define APP_LOG_CALLOUTS_H_

#include "platform/elem_log/elem_log.h"

extern "C" {

// Replaces the class identifiers by those in use, hands the dictionary to the log library and
// returns the library's handle of it.
void* ElemLogCfgGetHandle();
// The first class identifier that is not a process's own.
int ElemLogCfgGetBaseClass();
// Short name of the class with this identifier (as replaced above), or null.
const char* ElemLogCfgCalloutGetClassName(int class_id);
// The categories of web commands, and how many they are.
const ElemWebCategory* ElemWebCfgGetCategories();
int ElemWebCfgGetNumCategories();

}  // extern "C"

#endif  // APP_LOG_CALLOUTS_H_
