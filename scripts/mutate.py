#!/usr/bin/env python3
"""Breaks the code on purpose, one small change at a time, and lists the changes that no test notices.

usage: mutate.py [--most N] [--seed N] [--sweeps] [FILE...]

FILE: sources to break (default: src/*.cpp). --most N tries only N of the changes, chosen by --seed. --sweeps runs the
fault sweeps as well, which take most of the tests' time. It works in a copy of the tree in build/mutate/. Exit code 0,
whatever survives: a survivor is a place to look at.
"""
import argparse
import glob
import os
import random
import re
import shutil
import subprocess
import sys

COPY = "build/mutate"

# What replaces what. Strings and comments are left alone.
CHANGES = [
    (r" == ", " != "), (r" != ", " == "), (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "),
    (r" && ", " || "), (r" \|\| ", " && "), (r" \+ ", " - "), (r" - ", " + "), (r"\+\+", "--"), (r"if \(!", "if ("),
    (r"if \((?!!|const|auto|constexpr)", "if (!("), (r"return true;", "return false;"),
    (r"return false;", "return true;"), (r"\bDETAIL\b", "PROGRESS"), (r"\bPROGRESS\b", "FAILURE"),
    (r"\bFAILURE\b", "PROGRESS"), (r"\b0\b", "1"), (r"\b1\b", "0"),
    (r"^(\s+)[\w.>:*-]+\([^;{}]*\);$", r"\1;"), (r"^(\s+)(break|continue);$", r"\1;"),
]


def without_texts(line):
    """The line with its strings and comments blanked, at the same length."""
    line = re.sub(r'"(?:[^"\\]|\\.)*"', lambda text: '"' + " " * (len(text.group()) - 2) + '"', line)
    return re.sub(r"//.*", lambda comment: " " * len(comment.group()), line)


def mutants(path):
    """(line number, new line) for each change of a file."""
    with open(path, encoding="utf-8") as file:
        lines = file.read().split("\n")
    for number, line in enumerate(lines):
        bare = without_texts(line)
        if re.match(r"\s*(#|static_assert|template|using|namespace|//)", bare):
            continue
        for pattern, replacement in CHANGES:
            for match in re.finditer(pattern, bare):
                changed = line[:match.start()] + match.expand(replacement) + line[match.end():]
                if replacement == "if (!(":  # to the end of the condition
                    if not changed.endswith(") {"):
                        continue
                    changed = changed[:-3] + ")) {"
                yield number, changed


def run(words, **options):
    return subprocess.run(words, cwd=COPY, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options).returncode


def build():
    return run(["cmake", "--build", "build/debug"])


def is_noticed(sweeps):
    environment = dict(os.environ, GTEST_FAIL_FAST="1", GTEST_BRIEF="1")
    without_sweeps = ["--gtest_filter=-Calls/Sweep*"] if not sweeps else []
    for program in ["central-class-tests"], ["application-tests"], ["simulator-tests"] + without_sweeps:
        try:
            if run(["build/debug/bin/" + program[0]] + program[1:], env=environment, timeout=300) != 0:
                return True
        except subprocess.TimeoutExpired:
            return True
    return False


def copy_tree():
    tracked = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], capture_output=True, text=True,
                             check=True)
    for path in tracked.stdout.splitlines():
        if os.path.isfile(path):
            os.makedirs(os.path.dirname(os.path.join(COPY, path)) or COPY, exist_ok=True)
            shutil.copy2(path, os.path.join(COPY, path))


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("files", nargs="*")
    parser.add_argument("--most", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--sweeps", action="store_true")
    options = parser.parse_args()
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    files = options.files or sorted(glob.glob("src/*.cpp"))
    missing = [path for path in files if not os.path.isfile(path)]
    if missing:
        sys.exit(f"mutate: no file {missing[0]}; give paths from the project's root, such as src/FileUtil.cpp")
    copy_tree()
    if run(["cmake", "--preset", "debug", "-DBUILD_TESTING=ON"]) != 0 or build() != 0 or is_noticed(options.sweeps):
        sys.exit("mutate: the unchanged tree does not build, or its tests fail; see: ./dev test")
    changes = [(path, number, line) for path in files for number, line in mutants(path)]
    if options.most is not None and options.most < len(changes):
        changes = sorted(random.Random(options.seed).sample(changes, options.most))
    killed = survived = 0
    for path, number, line in changes:
        with open(path, encoding="utf-8") as file:
            lines = file.read().split("\n")
        was, lines[number] = lines[number], line
        with open(os.path.join(COPY, path), "w", encoding="utf-8") as file:
            file.write("\n".join(lines))
        if build() == 0:
            if is_noticed(options.sweeps):
                killed += 1
            else:
                survived += 1
                print(f"{path}:{number + 1}: survived\n  - {was.strip()}\n  + {line.strip()}", flush=True)
        shutil.copy(path, os.path.join(COPY, path))
    build()
    tried = killed + survived
    print(f"{len(changes)} changes, {tried} of them compile; {killed} noticed, {survived} survived: "
          f"{100 * killed // max(tried, 1)} %")


if __name__ == "__main__":
    main()
