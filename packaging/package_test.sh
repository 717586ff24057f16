#!/usr/bin/env bash
# Checks the packages, installs them in a clean Debian, uses them and removes them: package_test.sh PACKAGES OTHERS
# ARCHIVE ROOT. OTHERS holds the packages of a second build. ROOT is unpacked from ARCHIVE. Run it as root. Prints a
# line for each check, and how many passed.
set -euo pipefail
export LC_ALL=C DEBIAN_FRONTEND=noninteractive
packages=$1 others=$2 archive=$3 root=$4
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
names=(kivclaim libkivclaim1 libkivclaim-kernel1 libztfi-pdk4.4 libkivclaim-dev libkivclaim-testkit-dev)

passed=0 failed=0
# check WHAT COMMAND...: shows the command's output only when it fails.
check() {
    local what=$1 output
    shift
    if output=$("$@" 2>&1); then
        echo "  passed: $what"
        passed=$((passed + 1))
    else
        echo "  FAILED: $what"
        printf '%s\n' "$output" | tail -n 30
        failed=$((failed + 1))
    fi
}

same_bytes() {
    local package differ=0
    diff <(cd "$packages" && ls ./*.deb) <(cd "$others" && ls ./*.deb)
    for package in "$packages"/*.deb; do
        if ! cmp "$package" "$others/$(basename "$package")"; then
            differ=1
            rm -rf "$root"
            mkdir -p "$root"
            dpkg-deb -R "$package" "$root/one"
            dpkg-deb -R "$others/$(basename "$package")" "$root/other"
            diff -rq "$root/one" "$root/other" || true
        fi
    done
    return "$differ"
}

# The packages do not go to Debian's archive, so there is no request for them to close.
lintian_accepts() {
    lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$packages"/*.changes
}

exports_listed_symbols() {
    local library=$1
    "$here/../tests/contract/check_symbols.sh" any-build "$here/../contract/$library.symbols" \
        "$root"/usr/lib/*/"$library"
}

# Runs a shell command in the clean root.
inside() {
    chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
        DEBIAN_FRONTEND=noninteractive ${http_proxy:+"http_proxy=$http_proxy"} \
        ${https_proxy:+"https_proxy=$https_proxy"} bash -euo pipefail -c "$1"
}

# answers EXPECTED COMMAND: the command prints exactly this.
answers() {
    local output
    output=$(inside "$2") || { echo "$output" && return 1; }
    [ "$output" = "$1" ] || { printf 'expected: %s\nprinted: %s\n' "$1" "$output" && return 1; }
}

# Every file in the root directory except the records of apt and dpkg.
files() {
    find "$root" -xdev ! -path "$root/packages*" ! -path "$root/proc/*" ! -path "$root/sys/*" ! -path "$root/dev/*" \
        ! -path "$root/var/lib/apt/*" ! -path "$root/var/lib/dpkg/*" ! -path "$root/var/cache/apt/*" \
        ! -path "$root/var/cache/ldconfig/*" ! -path "$root/var/log/*" | sort
    inside "dpkg-query -W -f '\${db:Status-Abbrev}\${Package}\n'"
}

install_packages() {
    local list=() name
    for name in "$@"; do
        list+=("/packages/${name}_"*.deb)
    done
    inside "apt-get -o DPkg::Options::=--force-unsafe-io install -y -qq --no-install-recommends ${list[*]}"
}

# Builds each example in both ways, from the installed documents.
build_with_cmake() {
    inside "cp -R /usr/share/doc/libkivclaim-dev/examples/$1 /tmp/examples && cd /tmp/examples/$1 &&
        cmake -S . -B build -DCMAKE_CXX_FLAGS='-Wall -Wextra -Werror' && cmake --build build"
}

build_with_pkg_config() {
    inside "cd /tmp/examples/$1 && g++ -Wall -Wextra -Werror $2 *.cpp \$(pkg-config --cflags --libs $3) -o $4"
}

echo 'The packages:'
check 'two builds in folders of different names give the same bytes' same_bytes
check 'lintian accepts them' lintian_accepts

echo 'In a clean Debian:'
rm -rf "$root"
mkdir -p "$root"
tar -C "$root" -xf "$archive"
cp -L /etc/resolv.conf "$root/etc/resolv.conf"
mkdir "$root/packages"
cp "$packages"/*.deb "$root/packages"
check 'apt knows its packages' inside 'apt-get update -qq'
before=$(files)

check 'the command is installed with what it needs' install_packages kivclaim libkivclaim1 libztfi-pdk4.4
check 'it names its release' inside "kivclaim --version | grep -E '^kivclaim [0-9.]+ \(revision .+\)\$'"
check 'it answers' answers '2 native /dev/sda1' 'kivclaim claim /dev/sda1'
check 'every library is found' inside "! ldd /usr/bin/kivclaim | grep 'not found'"
for library in libkivclaim.so.1 libztfi_pdk.so.4.4; do
    check "$library exports what is listed" exports_listed_symbols "$library"
done
check 'the command does without the kernel facts' inside '! ls /usr/lib/*/libkivclaim_kernel.so.1'
check 'no header comes with it' inside '! ls /usr/include/kivclaim'

check 'the development files are installed' install_packages libkivclaim-dev libkivclaim-kernel1
check 'libkivclaim_kernel.so.1 exports what is listed' exports_listed_symbols libkivclaim_kernel.so.1
inside 'mkdir /tmp/examples'
check 'the example host builds with CMake' build_with_cmake host
check 'that one answers' answers '/dev/sda 1' '/tmp/examples/host/build/example_host /dev/sda1'
check 'the example host builds with pkg-config' build_with_pkg_config host '' 'kivclaim ztfi_pdk' example_host
check 'that one answers as well' answers '/dev/sda 1' '/tmp/examples/host/example_host /dev/sda1'
check 'the example module builds with CMake' build_with_cmake nvme_module
check 'the example module builds with pkg-config' \
    build_with_pkg_config nvme_module '-shared -fPIC' kivclaim nvme_module.so
for module in build/nvme_module.so nvme_module.so; do
    check "the command asks $module" answers '2 CNvmeClaim /dev/nvme0n1p2' \
        "kivclaim --module /tmp/examples/nvme_module/$module claim /dev/nvme0n1p2"
    check "the example host asks $module" answers '/dev/nvme0n1 2' \
        "/tmp/examples/host/example_host --module /tmp/examples/nvme_module/$module /dev/nvme0n1p2"
done

check 'the example host with a framework of its own builds with CMake' build_with_cmake query_host
check 'that one answers, and asks the kernel' answers '16 powerpath /dev/emcpowera' \
    'echo /dev/emcpowera | /tmp/examples/query_host/build/query_host --kernel 2>/dev/null'
check 'it builds with pkg-config' build_with_pkg_config query_host '-rdynamic' 'kivclaim kivclaim_kernel' query_host
check 'that one answers as well' answers '16 powerpath /dev/emcpowera' 'echo /dev/emcpowera | /tmp/examples/query_host/query_host'
# A host with its own framework, checked; and a host's own code, tested on the kit.
check 'the command tells that its framework is its own' inside \
    "kivclaim --check-host /tmp/examples/query_host/build/query_host | grep -c 'operations: .*/query_host\$' | grep -x 8"
check 'the command tells that the other one gets the bundled framework' inside \
    "kivclaim --check-host /tmp/examples/host/build/example_host | grep -c 'libztfi_pdk.so.4.4\$' | grep -x 8"
check 'the command finds nothing wrong with the example module' inside \
    'kivclaim --check-module /tmp/examples/nvme_module/build/nvme_module.so'
check 'the test kit is installed' install_packages libkivclaim-testkit-dev
check 'the example test builds with CMake' build_with_cmake host_test
check 'CTest runs it' inside 'ctest --test-dir /tmp/examples/host_test/build --output-on-failure --no-tests=error'
check 'the example test builds with pkg-config' \
    build_with_pkg_config host_test '' 'kivclaim_testkit' multipath_paths_test
check 'that one passes as well' inside '/tmp/examples/host_test/multipath_paths_test'

inside 'rm -r /tmp/examples'
check 'the packages are removed' inside "apt-get -o DPkg::Options::=--force-unsafe-io purge -y -qq --autoremove ${names[*]}"
check 'nothing is left' diff <(echo "$before") <(files)

rm -rf "$root"
printf 'package: %d passed, %d failed\n' "$passed" "$failed"
[ "$failed" = 0 ]
