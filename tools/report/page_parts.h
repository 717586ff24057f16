// The style and the script of a report, made of page.css and page.js by the build.
#ifndef KIVCLAIM_TOOLS_REPORT_PAGE_PARTS_H
#define KIVCLAIM_TOOLS_REPORT_PAGE_PARTS_H

namespace kivclaim::tools {

extern const char pageStyle[];
extern const char pageScript[];

}  // namespace kivclaim::tools

#endif
