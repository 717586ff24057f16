// The version of kivclaim. It is written here and nowhere else: the build reads it out of this file.
#ifndef KIVCLAIM_CLAIM_KIV_VERSION_H
#define KIVCLAIM_CLAIM_KIV_VERSION_H

#include "framework/ztfi_export.h"

// The version of these headers, for the preprocessor. The first number increases with a new SONAME.
#define KIVCLAIM_VERSION_MAJOR 1
// Increases with new names.
#define KIVCLAIM_VERSION_MINOR 0
// Increases with every other release.
#define KIVCLAIM_VERSION_PATCH 0

// One number for comparisons: 1.2.3 is 10203.
#define KIVCLAIM_VERSION_NUMBER(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
// The number of these headers.
#define KIVCLAIM_VERSION KIVCLAIM_VERSION_NUMBER(KIVCLAIM_VERSION_MAJOR, KIVCLAIM_VERSION_MINOR, KIVCLAIM_VERSION_PATCH)

// The version of the loaded library as such a number; it may be later than that of the headers. Threads: any. Failure:
// none.
extern "C" ZTFI_API int kivclaim_version(void);  // NOLINT(modernize-redundant-void-arg): C may declare it as well

#endif
