#!/usr/bin/env python3
"""Lists each path of this tree that does not exist, in documents, scripts and the comments of C++ and JavaScript, and
each broken link of a document."""
import os
import pathlib
import re
import subprocess
import sys

TOP = "bench|cmake|data|docs|fuzz|packaging|platform|scripts|simulator|src|tests"
ROOMS = "base|cli|cloud|device|launch|lineup|reports|tv|web"
# A path, and in a document one from simulator/ on: "cli/Side", "web/*Routes.cpp".
PATH = rf"(?<![\w./~$}}*-])((?:{TOP})/[\w./*-]*[\w*])"
ROOM_PATH = rf"(?<![\w./~$}}*-])((?:{TOP}|{ROOMS})/[\w./*-]*[\w*])"
LINK = re.compile(r"\]\(([^)#:]+)(?:#[^)]*)?\)")
COMMENTED = (".cpp", ".h", ".inc", ".js")
ELSEWHERE = "src/halcyon-lineup"  # of an installed source package
ANY = re.compile(r"/[A-Z]+(/|$)")  # a name in capitals stands for any


def is_there(path):
    """As it stands, from simulator/ on, or without its suffix."""
    return any(True for start in (".", "simulator") for end in ("", ".*") for _ in pathlib.Path(start).glob(path + end))


def problems(file):
    path = pathlib.Path(file)
    is_document = path.suffix == ".md"
    pattern = re.compile(ROOM_PATH if is_document else PATH)
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if path.suffix in COMMENTED:
            line = line.partition("//")[2]
        for named in pattern.findall(line):
            if not is_there(named) and not named.startswith(ELSEWHERE) and not ANY.search(named):
                yield f"{file}:{number}: there is no {named}"
        for target in LINK.findall(line) if is_document else ():
            if not (path.parent / target).exists():
                yield f"{file}:{number}: the link to {target} is broken"


def main():
    os.chdir(pathlib.Path(__file__).parents[1])
    listed = subprocess.run(["git", "grep", "-lI", "", "--", ":!data", ":!tests/data"], check=True, text=True,
                            capture_output=True)
    found = [problem for file in listed.stdout.splitlines() for problem in problems(file)]
    for problem in found:
        print(f"check-paths: {problem}", file=sys.stderr)
    if not found:
        print("check-paths: each path that is named is there")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
