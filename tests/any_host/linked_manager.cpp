// The plug-in is linked, as most hosts do.
#include "tests/any_host/claim_questions.h"

std::unique_ptr<CKivClaimManager> any_host::makeManager()
{
    return std::make_unique<CKivClaimManager>();
}
