#!/usr/bin/env python3
"""Runs the tests of a build, except those that passed before with the very same files.

usage: run-tests.py [--all | --quick] BUILD [FILTER]

FILTER: a regular expression; all tests whose names match it are run. --all, or CI=true, runs all; --quick leaves out
what takes long, a browser or an object store. What a test depends on is listed below; one that is not listed there
always runs. BUILD/passed.json keeps a digest of it for each test that has passed.
"""
import argparse
import collections
import hashlib
import json
import os
import platform
import re
import subprocess
import sys
import xml.etree.ElementTree

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# What the tests of a program read besides the program: paths in the project, or in the build if they begin with "bin/".
FLOWS = ["bin/halcyon-lineup", "bin/halcyon-tv", "bin/careless-lineup", "tests/data", "tests/lsan.supp"]
READS = {
    "cloud-tests": [],
    "application-tests": FLOWS,
    "central-class-tests": FLOWS,
    "simulator-tests": FLOWS,
    "python3": FLOWS + ["bin/halcyon-manual", "tests/stories", "kit", "data", "docs", "scripts", "packaging/completion",
                        "simulator/base/Environment.h", "simulator/web/page", "CHANGELOG.md", "CONTRIBUTING.md",
                        "README.md", "SECURITY.md"],
}

SLOW = (r"^Stories\.(bench|json|object_store|page|play|server|site|stories|tool|wild_store)$"
        r"|CrashPoint|EndlessFile|MutatedArchive|Sweep")


def files_of(path):
    """The file, or all files below the folder."""
    if not os.path.isdir(path):
        return [path]
    return sorted(os.path.join(folder, name) for folder, _, names in os.walk(path) for name in names)


class Digests:
    """SHA-256 of tests with all that they depend on."""

    def __init__(self, build):
        self.build = build
        self.known = {}
        # The installed packages stand for the libraries, Python, the browser and the object store.
        self.machine = [self.of_file("/var/lib/dpkg/status"), platform.release(), str(os.getuid()),
                        os.environ.get("TMPDIR", "")]

    def of_file(self, path):
        if path not in self.known:
            with open(path, "rb") as file:
                self.known[path] = hashlib.sha256(file.read()).hexdigest()
        return self.known[path]

    def of_test(self, test):
        """None if it is not known what the test depends on."""
        reads = READS.get(os.path.basename(test["command"][0]))
        if reads is None:
            return None
        paths = [os.path.join(self.build if path.startswith("bin/") else ROOT, path) for path in reads]
        files = [file for path in [test["command"][0]] + paths for file in files_of(path)]
        content = [[file, self.of_file(file)] for file in files]
        return hashlib.sha256(json.dumps([self.machine, test, content]).encode()).hexdigest()


def digests_of(tests, build):
    digests = Digests(build)
    return {test["name"]: digests.of_test(test) for test in tests}


def passed_in(report):
    """The names of the tests that passed, none of them skipped."""
    cases = xml.etree.ElementTree.parse(report).getroot().iter("testcase")
    return [case.get("name") for case in cases if case.get("status") == "run"]


def print_sums(log):
    """Adds up what the sweeps and the crash tests say of themselves."""
    sums = collections.Counter()
    with open(log, encoding="utf-8", errors="replace") as file:
        for count, what in re.findall(r"^swept (\d+) (.*)$", file.read(), re.MULTILINE):
            sums[what] += int(count)
    for what, count in sorted(sums.items()):
        print(f"{count} {what}")


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("build")
    parser.add_argument("filter", nargs="?")
    options = parser.parse_args()
    build = os.path.abspath(options.build)
    ctest = ["ctest", "--test-dir", build]
    listed = subprocess.run(ctest + ["--show-only=json-v1"], check=True, capture_output=True, text=True)
    tests = json.loads(listed.stdout)["tests"]
    memory = os.path.join(build, "passed.json")
    passed = {}
    if os.path.exists(memory):
        with open(memory, encoding="utf-8") as file:
            passed = json.load(file)

    digests = digests_of(tests, build)
    known = {name for name, digest in digests.items() if digest is not None and passed.get(name) == digest}
    if options.all or options.filter or os.environ.get("CI") == "true":
        known = set()
    chosen = [number for number, test in enumerate(tests, 1)
              if test["name"] not in known and re.search(options.filter or "", test["name"])]
    slow = [number for number in chosen if options.quick and re.search(SLOW, tests[number - 1]["name"])]
    chosen = [number for number in chosen if number not in slow]
    if not chosen and not known and not slow:
        sys.exit(f"run-tests: no test matches {options.filter}; see: ctest --test-dir {options.build} -N")
    code = 0
    if chosen:
        report = os.path.join(build, "passed.xml")
        numbers = ",".join(str(number) for number in chosen)
        code = subprocess.run(ctest + ["--output-on-failure", "-j", str(os.cpu_count()), "--output-junit", report,
                                       "-I", f"{chosen[0]},{chosen[0]},1,{numbers}"], check=False).returncode
        after = digests_of(tests, build)
        passed.update({name: after[name] for name in passed_in(report) if after[name] == digests[name]})
        with open(memory + ".new", "w", encoding="utf-8") as file:
            json.dump(passed, file, indent=1)
        os.replace(memory + ".new", memory)
        print_sums(os.path.join(build, "Testing/Temporary/LastTest.log"))
    if slow:
        print(f"left out: {len(slow)} tests that take long, a browser or an object store; ./dev test runs them")
    if known:
        print(f"{len(known)} tests passed before with the same files; ./dev test --all runs them again")
    sys.exit(code)


if __name__ == "__main__":
    main()
