#include "claim/kiv_version.h"

int kivclaim_version()
{
    return KIVCLAIM_VERSION;
}
