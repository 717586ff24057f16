// A module whose function calls an undefined one.
extern "C" {

void* kivclaim_test_nobody_has_this();

void* kivclaim_create_claim_module(unsigned int /*hostContract*/, unsigned int* /*moduleContract*/)
{
    return kivclaim_test_nobody_has_this();
}

}  // extern "C"
