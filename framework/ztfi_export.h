// Marks what belongs to the binary contract: everything else in our libraries is hidden.
#ifndef KIVCLAIM_FRAMEWORK_ZTFI_EXPORT_H
#define KIVCLAIM_FRAMEWORK_ZTFI_EXPORT_H

#include "framework/ztfi_requirements.h"

// For a class, function or variable that programs outside the library use.
#define ZTFI_API __attribute__((visibility("default")))
// For a member of an exported class that only the class itself uses.
#define ZTFI_INTERNAL __attribute__((visibility("hidden")))

#endif
