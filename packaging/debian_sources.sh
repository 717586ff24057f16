#!/usr/bin/env bash
# Prints apt's source lines for a release of Debian: debian_sources.sh RELEASE. The mirror is that of this machine,
# which may have another release.
set -euo pipefail
release=$1

# One line for each package list of apt: archive and release.
known() {
    # shellcheck disable=SC2016 # apt-get itself expands $(...)
    apt-get indextargets --format '$(REPO_URI) $(CODENAME)' 'Created-By: Packages' 'Origin: Debian' 'Component: main' |
        sort -u
}

# The lines of `known` for this release, including those for security and updates, which have other names.
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
# The unstable release has no separate updates.
[ "$release" != sid ] || lines=$(grep ' sid main$' <<<"$lines" || true)
if [ -z "$lines" ]; then
    echo "apt knows no archive of Debian: add one to /etc/apt/sources.list.d and run apt-get update" >&2
    exit 1
fi
printf '%s\n' "$lines"
