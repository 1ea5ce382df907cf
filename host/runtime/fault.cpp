// Faults and the stack that goes with the fatal ones.
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "host/runtime/log.h"
#include "host/runtime/middleware.h"
#include "platform/qzmw/qzmw.h"

namespace host {
namespace {

// "function (object+0xoffset)", as far as the dynamic symbols tell. The offset is what addr2line(1)
// takes.
std::string FrameText(void* address) {
  Dl_info info{};
  if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
    return Formatted("%p", address);
  }
  std::string function = info.dli_sname == nullptr ? "?" : info.dli_sname;
  const std::unique_ptr<char, decltype(&std::free)> demangled(
      abi::__cxa_demangle(function.c_str(), nullptr, nullptr, nullptr), &std::free);
  if (demangled) {
    function = demangled.get();
  }
  const auto offset =
      reinterpret_cast<uintptr_t>(address) - reinterpret_cast<uintptr_t>(info.dli_fbase);
  return Formatted("%s (%s+0x%zx)", function.c_str(), info.dli_fname, static_cast<size_t>(offset));
}

}  // namespace

void FailStart(const std::string& reason) {
  Log(LogLevel::kFatal, "cannot start: %s", reason.c_str());
  std::exit(1);
}

void FatalFault(const char* function, const char* file, int line, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::string message = VFormatted(format, args);
  va_end(args);
  qzmw_gen_fault(1, function, file, line, message.c_str());
  std::exit(1);
}

}  // namespace host

void qzmw_print_backtrace() {
  std::array<void*, 64> frames;
  const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
  // The first frame is this function.
  for (int i = 1; i < count; ++i) {
    host::Log(host::LogLevel::kError, "  #%d %s", i, host::FrameText(frames[i]).c_str());
  }
}

void qzmw_gen_fault(int level, const char* function, const char* file, int line,
                    const char* message) {
  host::Log(level == 1 ? host::LogLevel::kFatal : host::LogLevel::kError, "%s in %s (%s:%d): %s",
            level == 1 ? "fatal fault" : "fault", function, file, line, message);
}
