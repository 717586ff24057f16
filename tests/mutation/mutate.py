#!/usr/bin/env python3
"""Mutation test of the claim library: ./dev mutate [FILE...].

Changes one statement, condition or constant of framework/, claim/ and modules/ at a time, links the changed source with
prepared objects, and runs the tests that can fail because of it. If none fails, the mutant survives; then it must be
listed in tests/mutation/survivors with the reason.

Results are kept in build/mutate/results, so a run that was stopped continues where it was. A killed mutant is tried
again only when its function changes, a survivor when a test changes. The sources are mixed, so a partial run is a
sample of all mutants.

Exit status: 0 when the survivors are exactly those in the list, 1 when not, 2 for wrong usage or when the tests fail
without any change.
"""

import argparse
import concurrent.futures
import hashlib
import pathlib
import re
import resource
import subprocess
import sys
import threading

from mutants import mutants_of

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build/mutate"
KEPT = ROOT / "tests/mutation/survivors"
WORKERS = 2
# Limits processor time, so that a busy machine kills no mutant; the other limit is for mutants that hang.
PROCESSOR_SECONDS = 10
TIMEOUT_SECONDS = 120
MEMORY_BYTES = 2 << 30

# One program: the library and its tests, first those that are most likely to fail.
LIBRARY = sorted(str(path.relative_to(ROOT)) for part in ("claim", "modules") for path in (ROOT / part).glob("*.cpp"))
TESTS = [
    "tests/trace_contract_test.cpp", "tests/claim_manager_test.cpp", "tests/claim_module_defaults_test.cpp",
    "tests/powerpath_test.cpp", "tests/nativepath_test.cpp", "tests/device_mapper_test.cpp",
    "tests/logical_volume_list_test.cpp", "tests/volume_manager_support_test.cpp",
    "tests/volume_manager_queries_test.cpp", "tests/volume_manager_retries_test.cpp", "tests/slot_order_test.cpp",
    "tests/claim_query_test.cpp",
    *sorted(str(path.relative_to(ROOT)) for path in (ROOT / "tests/faults").glob("*.cpp")),
]  # fmt: skip
PLAYED_HOST = [
    "testkit/recording_host.cpp", "testkit/recorded_calls.cpp", "testkit/recording_string_tool.cpp",
    "tests/recording_host_failures.cpp",
]

# Header code is in every object that includes it. The linker takes the first copy, so for a mutant of a header these
# sources are built again and linked first. For other headers, these are the library's sources that include them.
OF_HEADER = {
    "framework/cfitracelog.h": ["tests/trace_contract_test.cpp", "modules/kiv_linux_device_mapper_claim.cpp"],
    "framework/cfiexecpipe.h": ["modules/kiv_linux_device_mapper_claim.cpp", "tests/slot_order_test.cpp"],
    "claim/kiv_trace.h": ["modules/kiv_linux_device_mapper_claim.cpp"],
    "claim/kiv_claim_manager.h": ["tests/claim_manager_test.cpp"],
    "claim/kiv_claim_module_entry.h": ["tests/faults/module_entry_test.cpp"],
    "claim/kiv_manager_functions.h": ["claim/kiv_manager_functions.cpp", "tests/slot_order_test.cpp"],
    "claim/kiv_device_claim_base.h": [source for source in LIBRARY if source.startswith("modules/kiv_")],
    "modules/kiv_path_text.h": [source for source in LIBRARY if source.startswith("modules/kiv_")],
}
# Headers without statements and conditions.
WITHOUT_CODE = {"framework/ztfi_export.h", "claim/kiv_release.h"}

COMPILER = [
    "clang++", "-std=c++17", "-O0", "-Werror=return-type", "-DKIVCLAIM_OWN_STRING_TOOLS",
    f'-DKIVCLAIM_CAPTURED="{ROOT}/tests/captured"',
]  # fmt: skip
LIBRARIES = ["-lACE", "-lgmock_main", "-lgmock", "-lgtest", "-lpthread"]
# Headers are precompiled. Those for a mutant of a header must not contain that header.
SYSTEM_HEADERS = """
#include <ace/Malloc_Allocator.h>
#include <ace/OS_NS_Thread.h>
#include <ace/SString.h>
#include <ace/Thread_Mutex.h>
#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>
"""
TEST_HEADERS = SYSTEM_HEADERS + "#include <gtest/gtest.h>\n"
LIBRARY_HEADERS = SYSTEM_HEADERS + "".join(
    f'#include "{path.relative_to(ROOT)}"\n'
    for part in ("framework", "claim", "modules")
    for path in sorted((ROOT / part).glob("*.h"))
)


def run(command, **options):
    return subprocess.run(command, cwd=ROOT, capture_output=True, text=True, errors="replace", **options)


def digest_of(data):
    return hashlib.sha256(data).hexdigest()[:16]


def object_of(source):
    return WORK / "objects" / (source.replace("/", "_") + ".o")


def release_source():
    """The source with the release's text that CMake would generate."""
    path = WORK / "kiv_release.cpp"
    header = (ROOT / "claim/kiv_version.h").read_text()
    version = ".".join(re.findall(r"#define KIVCLAIM_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header))
    path.write_text((ROOT / "claim/kiv_release.cpp.in").read_text().replace("@PROJECT_VERSION@", version))
    return path


def compile_one(source, target, headers, directory=None):
    command = COMPILER + (["-I", str(directory)] if directory else []) + ["-I", str(ROOT)]
    return run(command + ["-include-pch", str(WORK / headers), "-c", str(source), "-o", str(target)])


def precompile(name, text, newest):
    header, target = WORK / (name + ".h"), WORK / name
    if not target.exists() or target.stat().st_mtime < newest or header.read_text() != text:
        header.write_text(text)
        command = COMPILER + ["-I", str(ROOT), "-x", "c++-header", str(header), "-o", str(target)]
        checked(run(command), name)


def prepare():
    """Builds everything unchanged; rebuilds only objects that are older than their sources."""
    (WORK / "objects").mkdir(parents=True, exist_ok=True)
    parts = ("framework", "claim", "modules", "testkit", "tests", "tests/faults")
    newest = max(path.stat().st_mtime for part in parts for path in (ROOT / part).glob("*.h"))
    precompile("test_headers", TEST_HEADERS, 0)
    precompile("library_headers", LIBRARY_HEADERS, newest)

    def build(source):
        target = object_of(source)
        if not target.exists() or target.stat().st_mtime < max(newest, (ROOT / source).stat().st_mtime):
            print(f"building {source}", file=sys.stderr)
            checked(compile_one(source, target, headers_for(source)), source)

    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        list(pool.map(build, LIBRARY + TESTS + PLAYED_HOST))
    checked(compile_one(release_source(), object_of("kiv_release"), "library_headers"), "kiv_release")


def headers_for(source):
    return "test_headers" if source.startswith("tests/") else "library_headers"


def checked(result, what):
    if result.returncode != 0:
        sys.exit(f"mutate: {what} does not build:\n{result.stderr}")


def link(program, first):
    """Links the program, with the objects `first` instead of those of the same sources."""
    rest = [source for source in LIBRARY + TESTS + PLAYED_HOST + ["kiv_release"] if source not in first]
    objects = [str(path) for path in first.values()] + [str(object_of(source)) for source in rest]
    return run(["clang++", "-fuse-ld=gold", "-o", str(program)] + objects + LIBRARIES)


def limit():
    resource.setrlimit(resource.RLIMIT_CPU, (PROCESSOR_SECONDS, PROCESSOR_SECONDS))
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def tests_pass(program):
    try:
        options = ["--gtest_brief=1", "--gtest_fail_fast", "--gtest_catch_exceptions=0"]
        return run([str(program)] + options, timeout=TIMEOUT_SECONDS, preexec_fn=limit).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def sources_of_header(header):
    if header in OF_HEADER:
        return OF_HEADER[header]
    return [source for source in LIBRARY if f'#include "{header}"' in (ROOT / source).read_text()]


def verdict(mutant, text, directory):
    """survived, died, or no mutant (it does not build)."""
    directory.mkdir(parents=True, exist_ok=True)
    mutated = mutant.apply(text)
    first = {}
    if mutant.file.endswith(".h"):
        path = directory / "overlay" / mutant.file
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(mutated)
        sources = {source: ROOT / source for source in sources_of_header(mutant.file)}
        headers = "test_headers"
    else:
        path = directory / "mutant.cpp"
        path.write_text(mutated)
        sources = {mutant.file: path}
        headers = "library_headers"
    try:
        for number, (source, place) in enumerate(sources.items()):
            first[source] = directory / f"{number}.o"
            compiled = compile_one(place, first[source], headers, directory / "overlay")
            if "precompiled" in compiled.stderr:
                sys.exit("mutate: a header has changed meanwhile; start again")
            if compiled.returncode != 0:
                return "no mutant"
        if link(directory / "tests", first).returncode != 0:
            return "no mutant"
        return "survived" if tests_pass(directory / "tests") else "died"
    finally:
        path.unlink()


class Results:
    """The verdicts so far, one a line: verdict, digest of the function, of the tests, mutant."""

    def __init__(self):
        self.path = WORK / "results"
        self.tests = digest_of(b"".join((ROOT / path).read_bytes() for path in TESTS + PLAYED_HOST))
        self.lock = threading.Lock()
        self.known = {}
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                verdict_, source, tests, key = line.split("\t")
                self.known[key] = (verdict_, source, tests)

    def of(self, mutant, source):
        verdict_, known_source, tests = self.known.get(mutant.key(), ("", "", ""))
        if known_source != source or (verdict_ == "survived" and tests != self.tests):
            return None
        return verdict_

    def add(self, mutant, source, verdict_):
        with self.lock, self.path.open("a") as file:
            self.known[mutant.key()] = (verdict_, source, self.tests)
            file.write(f"{verdict_}\t{source}\t{self.tests}\t{mutant.key()}\n")


def kept_survivors():
    """Maps keys to reasons. An entry is a mutant's line, then its reason in lines that begin with a blank."""
    kept = {}
    key = None
    for line in KEPT.read_text().splitlines() if KEPT.exists() else []:
        if line.startswith("#") or not line.strip():
            continue
        if line.startswith(" "):
            if key is None:
                sys.exit(f"mutate: {KEPT}: a reason without a mutant: {line.strip()}")
            kept[key] += line.strip() + " "
        else:
            key = line
            kept[key] = ""
    return kept


def mutable_files():
    names = [path for part in ("framework", "claim", "modules") for path in (ROOT / part).glob("*")]
    names = [str(path.relative_to(ROOT)) for path in names if path.suffix in (".h", ".cpp")]
    return sorted(name for name in names if name not in WITHOUT_CODE)


def arguments():
    parser = argparse.ArgumentParser(prog="./dev mutate", description="mutation test of the claim library")
    parser.add_argument("files", nargs="*", metavar="FILE", help="sources to mutate (default: all)")
    parser.add_argument("--at-most", type=int, metavar="N", help="try N more mutants, a sample of the rest")
    parser.add_argument("--list", action="store_true", help="print the mutants and their results so far; try none")
    options = parser.parse_args()
    for name in options.files:
        if name not in mutable_files():
            parser.error(f"'{name}' is none of the library's sources: {', '.join(mutable_files())}")
    return options


def tried(work, results):
    """Tries the mutants, and prints the progress."""
    workers = threading.local()
    counter = iter(range(WORKERS))
    lock = threading.Lock()
    done = [0]

    def one(item):
        mutant, text, source = item
        if not hasattr(workers, "directory"):
            with lock:
                workers.directory = WORK / f"worker{next(counter)}"
        result = verdict(mutant, text, workers.directory)
        results.add(mutant, source, result)
        with lock:
            done[0] += 1
            if result == "survived" or done[0] % 50 == 0:
                print(f"{done[0]}/{len(work)} {result}: {mutant.key()}", file=sys.stderr, flush=True)

    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        list(pool.map(one, work))


def report(mutants, results, partial):
    """Prints counts and problems; returns the exit status."""
    kept = kept_survivors()
    verdicts = {mutant.key(): results.of(mutant, source) for mutant, _, source in mutants}
    counts = {name: list(verdicts.values()).count(name) for name in ("died", "survived", "no mutant", None)}
    wrong = 0
    for key, verdict_ in sorted(verdicts.items()):
        if verdict_ == "survived" and not kept.get(key):
            print(f"survived without a reason: {key}")
            wrong += 1
        if key in kept and verdict_ not in ("survived", None):
            print(f"in the list of survivors, but {verdict_}: {key}")
            wrong += 1
    for key in sorted(set(kept) - set(verdicts)):
        if not partial or key.split(" | ")[0] in {mutant.file for mutant, _, _ in mutants}:
            print(f"in the list of survivors, but no such mutant: {key}")
            wrong += 1
    print(f"{counts['died'] + counts['survived']} mutants: {counts['died']} died, {counts['survived']} survived; "
          f"{counts['no mutant']} changes do not build, {counts[None]} were not tried")  # fmt: skip
    return 1 if wrong else 0


def main():
    options = arguments()
    names = options.files or mutable_files()
    prepare()
    results = Results()
    mutants = []
    for name in names:
        text = (ROOT / name).read_text()
        mutants += [(mutant, text, digest_of(mutant.around.encode())) for mutant in mutants_of(name, text)]
    if options.list:
        for mutant, _, source in mutants:
            print(results.of(mutant, source) or "not tried", mutant.key(), sep="\t")
        return 0
    work = [item for item in mutants if results.of(item[0], item[2]) is None]
    work.sort(key=lambda item: hashlib.sha256(item[0].key().encode()).hexdigest())
    checked(link(WORK / "unchanged", {}), "the program of the tests")
    if not tests_pass(WORK / "unchanged"):
        print("mutate: the tests fail without any change: build/mutate/unchanged", file=sys.stderr)
        return 2
    tried(work[: options.at_most], results)
    return report(mutants, results, bool(options.files))


if __name__ == "__main__":
    sys.exit(main())
