// The operations of the host framework under the names that the loader binds. Not installed.
#ifndef KIVCLAIM_CLAIM_KIV_HOST_SYMBOLS_H
#define KIVCLAIM_CLAIM_KIV_HOST_SYMBOLS_H

#define KIV_HOST_STRING "NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"

// KIV_HOST_SYMBOLS(entry) expands to entry(function, name, symbol) for each, in the order of the table in
// docs/host-guide.md.
#define KIV_HOST_SYMBOLS(entry)                                                                                     \
    entry(kivBoundTrace, "CFiTraceLog::trace", "_ZN12ztfi_pdk_4_411CFiTraceLog5traceEiPKcz")                        \
        entry(kivBoundRunner, "CFiExecPipePosix::CFiExecPipePosix", "_ZN12ztfi_pdk_4_416CFiExecPipePosixC1Ei")      \
            entry(kivBoundExec, "CFiExecPipeBase::Exec",                                                            \
                  "_ZN12ztfi_pdk_4_415CFiExecPipeBase4ExecE" KIV_HOST_STRING "RSt6vectorIS6_SaIS6_EES6_mS6_S6_S6_") \
                entry(kivBoundFind, "CFiStringTool::find",                                                          \
                      "_ZN12ztfi_pdk_4_413CFiStringTool4findERKSt6vectorI" KIV_HOST_STRING "SaIS7_EERKS7_Rmb")      \
                    entry(kivBoundTrim, "CFiStringTool::trim",                                                      \
                          "_ZN12ztfi_pdk_4_413CFiStringTool4trimERK" KIV_HOST_STRING "S8_")                         \
                        entry(kivBoundTokenize, "CFiStringTool::tokenize",                                          \
                              "_ZN12ztfi_pdk_4_413CFiStringTool8tokenizeERK" KIV_HOST_STRING "S8_")                 \
                            entry(kivBoundToFramework, "CFiStringTool::str2tstr",                                   \
                                  "_ZN12ztfi_pdk_4_413CFiStringTool8str2tstrERK" KIV_HOST_STRING)                   \
                                entry(kivBoundFromFramework, "CFiStringTool::tstr2str",                             \
                                      "_ZN12ztfi_pdk_4_413CFiStringTool8tstr2strB5cxx11ERK15ACE_String_BaseIcE")

#endif
