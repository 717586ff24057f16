#!/usr/bin/env bash
# Prints what every toolchain must have alike of a dump of the binary contract, a fact a line: shared_facts.sh DUMP. Of
# the project's own classes: sizes, bases, fields and slots; of its enumerations: the numbers. Every release of abidw
# writes these in the same words, whereas only dumps of one format can be compared by abidiff.
set -euo pipefail
export LC_ALL=C

awk -F "'" '
    function attribute(name,    i) {
        for (i = 1; i < NF; i += 2)
            if ($i ~ ("[ <]" name "=$")) return $(i + 1)
        return ""
    }
    # Nothing of what only a template or a private part of the project holds: releases show more or less of that.
    function fact(text,    i, name) {
        for (i = 1; i <= depth; ++i) {
            if (scope[i] !~ /^[A-Z][A-Za-z]*$/ && scope[i] !~ /^ZTFI_[A-Z_]+$/) return
            name = name (i == 1 ? "" : "::") scope[i]
        }
        print name ": " text
    }
    /<namespace-decl / { isForeign[++namespaces] = /name=.(std|host_internal)/; foreign += isForeign[namespaces] }
    /<\/namespace-decl>/ { foreign -= isForeign[namespaces--] }
    foreign || /is-declaration-only=/ && /\/>/ { next }
    /<(class|union|enum)-decl / && !/\/>/ {
        scope[++depth] = attribute("name")
        if (/<class-decl / && attribute("size-in-bits") != "") fact(attribute("size-in-bits") " bits")
    }
    /<\/(class|union|enum)-decl>/ { --depth }
    /<base-class / { fact("a base at " attribute("layout-offset-in-bits")) }
    /<data-member / { offset = attribute("layout-offset-in-bits") }
    /<var-decl / && offset != "" { fact("field " attribute("name") " at " offset); offset = "" }
    /<member-function / { slot = /destructor=/ ? "" : attribute("vtable-offset") }
    /<function-decl / && slot != "" { fact("slot " slot " is " attribute("mangled-name")); slot = "" }
    /<enumerator / { fact(attribute("name") " is " attribute("value")) }
' "$1" | c++filt | sort -u
