// A shared library that is no claim module.
extern "C" int kivclaim_no_entry()
{
    return 0;
}
