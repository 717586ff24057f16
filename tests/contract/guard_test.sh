#!/usr/bin/env bash
# Shows that the guards of the binary contract see what they are for: guard_test.sh ALTERATION RELEASE_SOURCE
# HOST_LIBRARY. Builds a library from a copy of its sources that is altered in one place, and expects a certain guard to
# refuse it and to name the place. Without alteration (`nothing`), both guards must let it pass.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
alteration=$1 release_source=$2 host_library=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -R "$root"/{framework,claim,modules,host} "$work"
cd "$work"

# alter FILE EXPRESSION: edits the copy of a file with sed, and insists that something changed.
alter() {
    cp "$1" before
    sed -i -E "$2" "$1"
    ! cmp -s before "$1" || { echo "there is nothing to alter in $1" && exit 2; }
}

# swap FILE ONE OTHER: moves the line with ONE after the line with OTHER.
swap() {
    local one other
    one=$(grep -nF "$2" "$1" | cut -d : -f 1)
    other=$(grep -nF "$3" "$1" | cut -d : -f 1)
    alter "$1" "$one{h;d};$other{G}"
}

# `names` is how abidiff puts it, `fact` how it is put where the dump is of another toolchain.
library=libkivclaim.so.1 guard='' names='' fact=''
case $alteration in
    nothing) ;;
    swapped_slots)
        swap claim/kiv_device_claim_base.h ' claim(const std::string& path) = 0;' ' isPartition('
        guard=abi names='CKivDeviceClaimBase::claim(const std::string&) changed from 4 to 5'
        fact='new: CKivDeviceClaimBase: slot 5 is CKivDeviceClaimBase::claim('
        ;;
    swapped_slots_of_the_manager)
        swap claim/kiv_claim_manager.h ' claim(const std::string& path);' ' isPartition('
        guard=abi names='CKivClaimManager::claim(const std::string&) changed from 5 to 6'
        fact='new: CKivClaimManager: slot 6 is CKivClaimManager::claim('
        ;;
    swapped_slots_of_the_reference_count)
        swap framework/cfitracelog.h 'virtual unsigned int increment()' 'virtual unsigned int decrement()'
        guard=abi names='CFiRefCount::increment() changed from 2 to 3'
        fact='new: CFiRefCount: slot 3 is ztfi_pdk_4_4::CFiRefCount::increment()'
        ;;
    new_field)
        alter claim/kiv_claim_manager.h 's/^( *)std::vector<CKivDeviceClaimBase\*> modules;/&\n\1int extra = 0;/'
        guard=abi names="'int extra', at offset"
        fact='new: CKivClaimManager: field extra at '
        ;;
    new_field_of_the_runner)
        alter framework/cfiexecpipe.h 's/^( *)EFiExecPipe lastFailure\{\};/&\n\1int extra = 0;/'
        library=libztfi_pdk.so.4.4 guard=abi names="'int extra', at offset"
        fact='new: CFiExecPipeBase: field extra at '
        ;;
    other_claim_level)
        alter claim/kiv_device_claim_base.h 's/(ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY) = 16/\1 = 17/'
        guard=abi names="ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY' from value '16' to '17'"
        fact='new: ZTFI_DEVICE_CLAIM_LEVEL: ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY is 17'
        ;;
    lost_export)
        alter claim/libkivclaim.map 's/^ *CZtKIVSupport::\*;//'
        guard=symbols names='lost: CZtKIVSupport::isZtKIVInstalled()'
        ;;
    unwanted_export)
        alter claim/libkivclaim.map 's/^ *local: \*;/    local: nothing;/'
        guard=symbols names='new: ACE_Thread_Mutex::lock()'
        ;;
    other_parameter)
        alter modules/kiv_linux_device_mapper_claim.h 's/(getExecPipeWaitPidStatus\()long/\1int/'
        alter modules/kiv_linux_device_mapper_claim.cpp 's/(::getExecPipeWaitPidStatus\()long/\1int/'
        guard=symbols names='lost: CKivDeviceMapperClaim::getExecPipeWaitPidStatus(long)'
        ;;
    *) echo "'$alteration' is no alteration" && exit 2 ;;
esac

# compile LIBRARY VERSION_SCRIPT PACKAGES INPUT...
compile() {
    local flags=()
    read -ra flags <<<"$(pkg-config --cflags --libs "$3")"
    g++ -std=c++17 -O0 -g -femit-class-debug-always -fPIC -fvisibility=hidden -fvisibility-inlines-hidden -I. \
        -shared "-Wl,-soname,$1" "-Wl,--version-script=$2" -o "$1" "${@:4}" "${flags[@]}"
}

abi() {
    "$here/check_abi.sh" "$root/contract/$library.abi" "$library"
}

symbols() {
    "$here/check_symbols.sh" any-build "$root/contract/$library.symbols" "$library"
}

if [ "$library" = libkivclaim.so.1 ]; then
    compile "$library" claim/libkivclaim.map ACE claim/*.cpp modules/*.cpp "$release_source" "$host_library"
else
    compile "$library" host/libztfi_pdk.map 'ACE spdlog' host/*.cpp host/runner/*.cpp
fi
if [ "$alteration" = nothing ]; then
    abi
    symbols
    exit
fi
if "$guard" >report 2>&1; then
    echo "the guard '$guard' lets $alteration pass"
    exit 1
fi
cat report
[ "$guard" != abi ] || ! grep -q '^shared: ' report || names=$fact
grep -qF -- "$names" report || { echo "the guard '$guard' does not name: $names" && exit 1; }
