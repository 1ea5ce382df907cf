// The version of the project, as its CMakeLists.txt has it.
#ifndef HOST_RUNTIME_VERSION_H_
#define HOST_RUNTIME_VERSION_H_

namespace host {

// Three numbers with points between.
const char* Version();

}  // namespace host

#endif  // HOST_RUNTIME_VERSION_H_
