// The one call of the zlog library that the process makes, declared as zlog declares it.
#ifndef PLATFORM_ZLOG_ZLOG_H_
#define PLATFORM_ZLOG_ZLOG_H_

#include <cstddef>

extern "C" {

struct zlog_category_s;

// Writes one line of `level` to `category`, with the place it comes from.
void zlog(struct zlog_category_s* category, const char* file, size_t filelen, const char* func,
          size_t funclen, long line, int level, const char* format, ...)
    __attribute__((format(printf, 8, 9)));

}  // extern "C"

#endif  // PLATFORM_ZLOG_ZLOG_H_
