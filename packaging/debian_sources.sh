#!/usr/bin/env bash
# Prints apt's lines for a release of Debian: debian_sources.sh RELEASE. The packages come from where this machine takes
# its own, which may be of another release.
set -euo pipefail
release=$1

# One line for each list of packages that apt has: archive and release.
known() {
    # shellcheck disable=SC2016 # apt-get fills in what stands in $(...)
    apt-get indextargets --format '$(REPO_URI) $(CODENAME)' 'Created-By: Packages' 'Origin: Debian' 'Component: main' |
        sort -u
}

# The lines of `known` for this release, of which those for security and updates have a name of their own.
of_release() {
    sed -nE "s/^([^ ]+) ($1(-updates|-security)?)\$/deb \\1 $release\\3 main/p" <<<"$sources"
}

sources=$(known)
if [ -z "$sources" ]; then
    apt-get update -qq
    sources=$(known)
fi
lines=$(of_release "$release")
if [ -z "$lines" ]; then
    lines=$(of_release "$(sed -nE 's/^VERSION_CODENAME="?([^"]*)"?$/\1/p' /etc/os-release)")
fi
# What is unstable has no updates beside it.
[ "$release" != sid ] || lines=$(grep ' sid main$' <<<"$lines" || true)
if [ -z "$lines" ]; then
    echo "apt knows no archive of Debian: add one to /etc/apt/sources.list.d and run apt-get update" >&2
    exit 1
fi
printf '%s\n' "$lines"
