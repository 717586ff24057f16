# The bundled host framework.
kivclaim_test(printable_text_test SOURCES printable_text_test.cpp LIBRARIES kivclaim::ztfi_pdk)
