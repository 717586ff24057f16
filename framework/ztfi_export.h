// Marks what belongs to the binary contract: everything else in our libraries is hidden.
#ifndef KIVCLAIM_FRAMEWORK_ZTFI_EXPORT_H
#define KIVCLAIM_FRAMEWORK_ZTFI_EXPORT_H

#include "framework/ztfi_requirements.h"

// On a class, a function or a variable that programs outside the library use.
#define ZTFI_API __attribute__((visibility("default")))
// What an exported class needs for itself alone.
#define ZTFI_INTERNAL __attribute__((visibility("hidden")))

#endif
