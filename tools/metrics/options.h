// The command line.
#ifndef TOOLS_METRICS_OPTIONS_H_
#define TOOLS_METRICS_OPTIONS_H_

#include <cstdint>
#include <string>

#include "tools/metrics/sampler.h"

namespace metrics {

struct Options {
  SamplerOptions sampler;
  std::string address = "127.0.0.1";  // to listen at
  uint16_t port = 9830;               // 0: one that is free
  std::string print;                  // to be printed in place of all else, if not empty
};

// Reads the command line into `*options`, with the settings' socket where it names none. False with
// the reason in `*error`.
bool ReadOptions(int argc, const char* const* argv, Options* options, std::string* error);

}  // namespace metrics

#endif  // TOOLS_METRICS_OPTIONS_H_
