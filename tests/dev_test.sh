#!/usr/bin/env bash
# What ./dev makes of its arguments: dev_test.sh CASE [BUILD]. The commands that install, build and test are played here.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"
touch "$work/output" "$work/errors"

# plays NAME COMMANDS: a program of this name, found before the real one.
plays() {
    printf '#!/bin/bash\n%s\n' "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

wrong() {
    printf '%s\n' "$@"
    cat "$work/output" "$work/errors"
    exit 1
}

# runs STATUS COMMAND...: the command's output goes to $work/output and $work/errors.
runs() {
    local expected=$1 status=0
    shift
    PATH=$work/bin:$PATH "$@" >"$work/output" 2>"$work/errors" || status=$?
    [ "$status" = "$expected" ] || wrong "$*: the status is $status, not $expected"
}

# says TEXT: the last line on standard error.
says() {
    [ "$(tail -n 1 "$work/errors")" = "$1" ] || wrong "expected as last line: $1"
}

# a_tree: a copy of the tree's own scripts without anything built, and nothing that could be installed or built.
a_tree() {
    mkdir "$work/tree"
    cp -r "$root/dev" "$root/portability" "$root/lab" "$root/CMakePresets.json" "$work/tree"
    mkdir -p "$work/tree/tests"
    cp -r "$root/tests/mutation" "$work/tree/tests"
    mkdir "$work/tree/packaging"
    cp "$root/packaging/release.sh" "$work/tree/packaging"
    git -C "$work/tree" init -q
    git -C "$work/tree" -c user.name=t -c user.email=t@t.invalid commit -q --allow-empty -m empty
    plays dpkg-query 'echo -n installed'
    plays cmake "echo \"cmake \$*\" >>'$work/calls'"
    touch "$work/calls"
}

# plays_tests: a ctest that knows two tests, and notes what it was to run.
plays_tests() {
    plays ctest "
        if [ \"\$3\" = -N ]; then
            count=0
            for name in Table.HasRows Table.HasColumns; do [[ \$name =~ \$5 ]] && count=\$((count + 1)); done
            echo \"Total Tests: \$count\"
        else
            echo \"ctest \$*\" >>'$work/calls'
            echo '100% tests passed, 0 tests failed out of 1'
        fi"
}

case $1 in
    arguments)
        a_tree
        # Arguments of `run` are those of the command that it runs.
        mapfile -t commands < <("$root/dev" help | sed -nE 's/^  ([a-z]+) .*/\1/p' | grep -vx run)
        [ ${#commands[@]} -ge 17 ] || wrong "only these commands are in the usage: ${commands[*]}"
        for command in "${commands[@]}" help; do
            runs 2 "$work/tree/dev" "$command" --no-such-option
            tail -n 1 "$work/errors" | grep -q -- --no-such-option || wrong "$command does not name its argument"
            [ ! -s "$work/calls" ] || wrong "$command has begun to build: $(cat "$work/calls")"
        done
        ;;
    further)
        a_tree
        runs 2 "$work/tree/dev" contract --accept all
        says "./dev: contract: 'all' is not understood; the only option is --accept"
        runs 2 "$work/tree/dev" fuzz 5 6
        says "./dev: fuzz: '6' is not understood; it takes one number of seconds: ./dev fuzz 60"
        runs 2 "$work/tree/dev" check HEAD all
        says "./dev: check: 'all' is not understood; it takes one COMMIT"
        runs 2 "$work/tree/dev" test --preset
        says "./dev: test: '' is no preset: take one of release asan tsan"
        runs 2 "$work/tree/dev" bench claim
        says "./dev: bench: 'claim' is not understood; options are --benchmark_filter=REGEX and the like"
        [ ! -s "$work/calls" ] || wrong "something was built: $(cat "$work/calls")"
        ;;
    names)
        a_tree
        plays_tests
        runs 0 "$work/tree/dev" test Table.HasRows Columns
        grep -qx "ctest --test-dir build/release .* -R Table.HasRows|Columns" "$work/calls" || wrong "$(cat "$work/calls")"
        [ "$(grep -c ^ctest "$work/calls")" = 1 ] || wrong "$(cat "$work/calls")"
        runs 0 "$work/tree/dev" test Rows --preset asan
        tail -n 1 "$work/calls" | grep -qx "ctest --test-dir build/asan .* -R Rows" || wrong "$(cat "$work/calls")"
        runs 0 "$work/tree/dev" test
        [ "$(tail -n 8 "$work/calls" | grep -c '^ctest [^R]*$')" = 3 ] || wrong "$(cat "$work/calls")"
        ;;
    unknown_name)
        a_tree
        plays_tests
        runs 2 "$work/tree/dev" test --preset tsan Rows Cells
        says "./dev: test: no test of tsan matches 'Cells': ctest --test-dir build/tsan -N lists them"
        ! grep ^ctest "$work/calls" || wrong 'tests were run'
        ;;
    affected)
        # What the build knows: the names of the tests that belong to a file.
        belongs() {
            "$root/tests/affected.sh" "$2" "$1" >"$work/numbers" 2>"$work/errors"
            ctest --test-dir "$root/$2" -N | sed -nE 's/^ *Test +#([0-9]+): (.*)/\1 \2/p' |
                awk 'NR == FNR { wanted[$1]; next } $1 in wanted { print $2 }' "$work/numbers" - >"$work/output"
        }
        build=${2#"$root/"}
        belongs tools/table.cpp "$build"
        for name in List.ShowsClaimedDevicesInATable Completion.BashOffersTheWordsOfTheHelp; do
            grep -qx "$name" "$work/output" || wrong "tools/table.cpp: $name is missing"
        done
        ! grep -E '^(ExecPipe|ClaimManager|Contract|Lab)\.|Completion.Zsh' "$work/output" || wrong 'these are too much'
        belongs claim/kiv_trace.h "$build"
        grep -q '^ClaimManager\.' "$work/output" || wrong 'a header: ClaimManager is missing'
        belongs tests/lab_test.sh "$build"
        [ "$(cat "$work/output")" = Lab.UnknownReleasesAndScenesAreRefused ] || wrong 'a script: not its test alone'
        belongs CHANGELOG.md "$build"
        [ "$(cat "$work/errors")" = CHANGELOG.md ] || wrong 'a file without a test is not named'
        ;;
    *) echo "'$1' is no case" && exit 2 ;;
esac
