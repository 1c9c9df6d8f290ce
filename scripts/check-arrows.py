#!/usr/bin/env python3
"""Lists each include of the simulator that breaks the order of its rooms or uses a library outside the files that may,
and each cycle of files or of the page's modules."""
import graphlib
import os
import pathlib
import re
import sys

# Which rooms a room may include; packaging/ has the program that writes the manuals.
MAY = {
    "base": "base",
    "wire": "wire base",
    "client": "client wire base",
    "lineup": "lineup base",
    "tv": "tv lineup wire base",
    "cloud": "cloud base",
    "device": "device tv cloud lineup wire base",
    "reports": "reports tv cloud lineup base",
    "launch": "launch reports device tv cloud lineup base",
    "web": "web launch reports tv cloud lineup base",
    "cli": "cli web launch device reports tv cloud lineup base",
    "packaging": "cli device base",
}
# The only rooms, or files without their suffix, that may include what begins so.
HOMES = {
    "<sqlite3.h": ["base/Database", "lineup/ReceivedDatabase"],
    "<curl/": ["cloud"],
    "<minizip/": ["lineup/Unpacking"],
    "<yaml-cpp/": ["launch"],
    '"platform/': ["client"],
}


def broken_rule(file, include):
    """The rule that a file, named from simulator/ and without its suffix, breaks by an include; None if it may."""
    room = file.split("/")[0]
    if "src/" in include or "../" in include:
        return "the simulator knows nothing of src/, and no room reaches around another"
    for library, homes in HOMES.items():
        if include.startswith(library):
            return None if file in homes or room in homes else f"it stays inside {' and '.join(homes)}"
    if own := re.match(r'"simulator/(\w+)/', include):
        may = MAY.get(room, "")
        return None if own[1] in may.split() else f"{room}/ may include of: {may or 'nothing'}"
    if re.match(r'"|<(simulator|platform)/', include):
        return 'own headers are named from the root, as "simulator/..."'
    return None


def sources():
    """Each source of the simulator; and its name from there without suffix, for a header is one with its source."""
    for path in sorted([*pathlib.Path("simulator").rglob("*"), *pathlib.Path("packaging").glob("*")]):
        if path.suffix in (".h", ".cpp", ".inc"):
            yield path, str(path.with_suffix("")).removeprefix("simulator/")


def check_includes():
    """What is wrong with them, and a graph of them."""
    problems, graph = [], {}
    for path, file in sources():
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            if not (directive := re.match(r"\s*#\s*include\s*(.*)", line)):
                continue
            include = directive[1]
            if rule := broken_rule(file, include):
                problems.append(f"{path}:{number} includes {include}; {rule}")
            if own := re.match(r'"simulator/(.*)\.\w+"', include):
                graph.setdefault(file, set()).add(own[1])
    return problems, graph


def imports_of_the_page():
    return {path.name: set(re.findall(r'from "\./(.*)"', path.read_text(encoding="utf-8")))
            for path in pathlib.Path("simulator/web/page").glob("*.js")}


def circle(graph):
    """One, if there is any. That a file includes its own header is none."""
    try:
        graphlib.TopologicalSorter({file: used - {file} for file, used in graph.items()}).prepare()
    except graphlib.CycleError as error:
        return [f"a circle, of which each includes the next: {' '.join(reversed(error.args[1]))}"]
    return []


def main():
    os.chdir(pathlib.Path(__file__).parents[1])
    problems, includes = check_includes()
    problems += circle(includes) + circle(imports_of_the_page())
    for problem in problems:
        print(f"check-arrows: {problem}", file=sys.stderr)
    if not problems:
        print("check-arrows: includes and imports run one way")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
