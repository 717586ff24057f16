// Which release of the plug-in is loaded.
#ifndef KIVCLAIM_CLAIM_KIV_RELEASE_H
#define KIVCLAIM_CLAIM_KIV_RELEASE_H

#include "framework/ztfi_export.h"

// Name, version and source revision, separated by blanks, as the build set them; static, ended by a zero byte. The size
// is fixed: executables may hold a copy.
extern "C" ZTFI_API const char kivclaim_release_identification[128];

#endif
