// Which release of the plug-in is loaded.
#ifndef KIVCLAIM_CLAIM_KIV_RELEASE_H
#define KIVCLAIM_CLAIM_KIV_RELEASE_H

#include "framework/ztfi_export.h"

// Name, version and source revision, separated by blanks, as the build set them; static, ended by a zero byte. Of one
// size in every release: programs may hold a copy of it.
extern "C" ZTFI_API const char kivclaim_release_identification[128];

#endif
