#!/usr/bin/env python3
"""Breaks the code on purpose, one small change at a time, and lists the changes that no test notices.

usage: mutate.py [--most N] [--seed N] [--sweeps] [FILE...]

FILE: sources to break (default: src/*.cpp). --most N tries only N of the changes, chosen by --seed. All C++ tests run
until one fails, and the stories that concern the source's folder; with --sweeps also the fault sweeps and crash points,
which take most of the tests' time. It works in a copy of the tree in build/mutate/. Exit code 0, whatever survives: a
survivor is a place to look at.
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

# The stories that a change in a folder concerns.
STORIES = {
    "simulator/base": ["stories", "tool"],
    "simulator/cli": ["bench", "cloud", "completion", "docs", "json", "play", "stories", "tool"],
    "simulator/cloud": ["cloud", "object_store", "tool", "wild_store"],
    "simulator/device": ["bench", "stories"],
    "simulator/launch": ["bench", "object_store", "play", "tool"],
    "simulator/lineup": ["json", "stories", "tool"],
    "simulator/reports": ["bench", "cloud", "docs", "json", "stories", "tool"],
    "simulator/tv": ["bench", "json", "stories", "tool"],
    "simulator/web": ["page", "server"],
}

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


def lines_of(path):
    with open(os.path.join(COPY, path), encoding="utf-8") as file:
        return file.read().split("\n")


def write(path, lines):
    with open(os.path.join(COPY, path), "w", encoding="utf-8") as file:
        file.write("\n".join(lines))


def mutants(path):
    """(line number, new line) for each change of a file."""
    lines = lines_of(path)
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


def is_noticed(path, sweeps):
    stories = {os.path.basename(story)[:-len("_test.py")] for story in glob.glob("tests/stories/*_test.py")}
    left_out = [f"^Stories\\.{story}$" for story in stories.difference(STORIES.get(os.path.dirname(path), []))]
    left_out += [] if sweeps else ["Sweep", "CrashPoint"]
    return run(["ctest", "--test-dir", "build/debug", "-j", str(os.cpu_count()), "--stop-on-failure",
                "--timeout", "300", "-E", "|".join(left_out)]) != 0


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
    folders = {os.path.dirname(path): path for path in files}.values()
    if run(["cmake", "--preset", "debug", "-DBUILD_TESTING=ON"]) != 0 or build() != 0 or any(
            is_noticed(path, options.sweeps) for path in folders):
        sys.exit("mutate: the unchanged tree does not build, or its tests fail; see: ./dev test")
    changes = [(path, number, line) for path in files for number, line in mutants(path)]
    if options.most is not None and options.most < len(changes):
        changes = sorted(random.Random(options.seed).sample(changes, options.most))
    killed = survived = 0
    for path, number, line in changes:
        lines = lines_of(path)
        was = lines[number]
        write(path, lines[:number] + [line] + lines[number + 1:])
        if build() == 0:
            if is_noticed(path, options.sweeps):
                killed += 1
            else:
                survived += 1
                print(f"{path}:{number + 1}: survived\n  - {was.strip()}\n  + {line.strip()}", flush=True)
        write(path, lines)
    build()
    tried = killed + survived
    print(f"{len(changes)} changes, {tried} of them compile; {killed} noticed, {survived} survived: "
          f"{100 * killed // max(tried, 1)} %")


if __name__ == "__main__":
    main()
