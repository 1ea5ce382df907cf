// Tries the filter program before it is attached to anything.
//
// That a kernel's verifier accepts a program does not say that the kernel runs it right: 6.1 has
// been seen to remove branches that are needed, without a word. So a program that is new to this
// kernel first decides about a hundred-odd frames by a small table set of its own, in the kernel's
// test runs, and what it decides is compared with the plain definition of a match.
#ifndef HOST_FILTER_MGR_EBPF_SELF_TEST_H_
#define HOST_FILTER_MGR_EBPF_SELF_TEST_H_

#include <string>

namespace host {

// Whether maps can be made, and the program can be loaded and decides right, on this kernel. 0, or
// a negative errno (-EPROTO: it decides wrongly) with why not in `reason`. Takes some ten
// milliseconds; leaves nothing in the kernel.
int TryFilterProgram(std::string* reason);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_SELF_TEST_H_
