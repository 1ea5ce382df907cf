// The files of the page (page/), which are part of the program.
#ifndef TOOLS_METRICS_ASSETS_H_
#define TOOLS_METRICS_ASSETS_H_

#include <string_view>

namespace metrics {

struct Asset {
  const char* path;  // as it is asked for
  const char* type;
  std::string_view text;
};

extern const Asset kAssets[];
extern const size_t kAssetCount;

}  // namespace metrics

#endif  // TOOLS_METRICS_ASSETS_H_
