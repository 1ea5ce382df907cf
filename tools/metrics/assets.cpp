// The files of the page: see assets.h. The assembler puts them in as they are.
#include "tools/metrics/assets.h"

#define ACL_ASSET(name, file)                  \
  asm(".section .rodata\n"                     \
      "acl_page_" #name                        \
      ":\n"                                    \
      ".incbin \"" ACL_PAGE_DIRECTORY "/" file \
      "\"\n"                                   \
      "acl_page_" #name                        \
      "_end:\n"                                \
      ".byte 0\n"                              \
      ".previous\n");                          \
  extern "C" const char acl_page_##name[], acl_page_##name##_end[]

ACL_ASSET(html, "index.html");
ACL_ASSET(css, "style.css");
ACL_ASSET(script, "page.js");
ACL_ASSET(icon, "icon.svg");

namespace metrics {
namespace {

std::string_view Between(const char* begin, const char* end) {
  return {begin, static_cast<size_t>(end - begin)};
}

}  // namespace

const Asset kAssets[] = {
    {"/", "text/html; charset=utf-8", Between(acl_page_html, acl_page_html_end)},
    {"/style.css", "text/css; charset=utf-8", Between(acl_page_css, acl_page_css_end)},
    {"/page.js", "text/javascript; charset=utf-8", Between(acl_page_script, acl_page_script_end)},
    {"/icon.svg", "image/svg+xml", Between(acl_page_icon, acl_page_icon_end)},
};
const size_t kAssetCount = sizeof(kAssets) / sizeof(kAssets[0]);

}  // namespace metrics
