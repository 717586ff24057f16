#!/usr/bin/env bash
# Prints the numbers that ctest has for the tests of the given files, one a line: affected.sh BUILD FILE... BUILD is a
# finished build made with ninja; a FILE is named from the root of the tree. A test belongs to a file that its programs are
# made of, that its program runs one made of, or that its command line names. On standard error: files without a test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
build=$root/$1
shift

# Ninja knows what each object has read, and what each program is made of.
graph() {
    ninja -C "$build" -t deps | awk -v root="$root/" '
        /^[^ ]/ { made = $1; sub(/:$/, "", made) }
        # A compiler cache may have made a path relative to the build, which is two levels down.
        /^    / { sub("^[.][.]/[.][.]/", root, $1); print $1, made }'
    ninja -C "$build" -t targets all | sed 's/: .*//' | xargs -d '\n' ninja -C "$build" -t query | awk '
        /^[^ ]/ { made = $1; sub(/:$/, "", made); of_this = 0 }
        /^  input:/ { of_this = 1; linked = /LINKER/ }
        /^  outputs:/ { of_this = 0 }
        # What a program must only find finished, it runs; an object would name everything that its library links.
        of_this && /^    / && ($1 != "||" || linked) { print $NF, made }'
}

# Of GoogleTest's, which get their labels by the program: seconds of processor time each, for size alone.
long_tests='ListsTwoThousandDevices|AuditsHundredsOfDevices|ShowsHundredsOfDevices|ATallStackAndOneOfManyWays'

# The number and the words of each command, for all tests but the long ones.
commands() {
    # Without -R in front, -E would number the rest anew.
    ctest --test-dir "$build" -N -V -LE '^long$' -R . -E "$long_tests" |
        sed -nE 's/^([0-9]+): Test command: (.*)/\1 \2/p' | tr -d '"'
}

awk -v root="$root/" -v build="$build/" -v files="$*" '
    FILENAME == ARGV[1] { needed_by[$1] = needed_by[$1] " " $2; next }
    { command[$1] = $0 }
    function reach(name, next_ones, count, i) {
        if (name in reached) return
        reached[name]
        count = split(needed_by[name], next_ones, " ")
        for (i = 1; i <= count; i++) reach(next_ones[i])
    }
    # A test names what was built, the file itself or a directory that it is in; the root of the tree tells nothing.
    function names(words, file, count, word, i) {
        count = split(words, word, " ")
        for (i = 2; i <= count; i++) {
            if (word[i] == root file || (index(root file, word[i] "/") == 1 && length(word[i]) >= length(root))) return 1
            if (index(word[i], build) == 1 && substr(word[i], length(build) + 1) in reached) return 1
        }
        return 0
    }
    END {
        count = split(files, file, " ")
        for (i = 1; i <= count; i++) {
            split("", reached)
            found = 0
            reach(root file[i])
            for (number in command) if (names(command[number], file[i])) { affected[number]; found = 1 }
            if (!found) print file[i] > "/dev/stderr"
        }
        for (number in affected) print number
    }' <(graph) <(commands) | sort -n
