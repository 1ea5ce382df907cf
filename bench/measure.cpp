#include "bench/measure.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>

#include "host/runtime/memory.h"

namespace {

double sync_seconds = 0;

int TimedSync(long call, int fd) {
  const auto start = std::chrono::steady_clock::now();
  const int result = static_cast<int>(syscall(call, fd));
  sync_seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

// A line of proc(5)'s status, in MB.
double StatusMegabytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == name && status >> kilobytes) return kilobytes / 1024;
  }
  return 0;
}

}  // namespace

// In the place of the C library's, for all libraries of the process.
extern "C" int fdatasync(int fd) { return TimedSync(SYS_fdatasync, fd); }
extern "C" int fsync(int fd) { return TimedSync(SYS_fsync, fd); }

double SyncSeconds() { return sync_seconds; }

double ResidentMegabytes() {
  host::GiveBackMemory();
  return StatusMegabytes("VmRSS:");
}

double PeakMegabytes() { return StatusMegabytes("VmHWM:"); }

// proc(5): "5" resets the peak.
void ResetPeak() {
  host::GiveBackMemory();
  std::ofstream("/proc/self/clear_refs") << "5";
}
