#!/usr/bin/env python3
"""Plants defects in copies of the application, one each, and looks whether `halcyon-tv sweep --app` finds them.

usage: defects.py [NAME...]

The defects are in tests/defects.json: what replaces what in a source, and whether only two faults together show it.
Exit code 1 if one is not found, is found by less than it says, or its scenario does not fail with it alone. Works in
build/defects.
"""
import json
import os
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
PLACE = ROOT / "build/defects"
CASES = PLACE / "cases"


def plant(defect):
    """The application built with the defect."""
    copy = PLACE / "tree"
    files = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True, capture_output=True, text=True).stdout
    for file in filter(None, files.split("\0")):
        (copy / file).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / file, copy / file)
    for change in defect["changes"]:
        source = copy / change["file"]
        text = source.read_text(encoding="utf-8")
        if text.count(change["old"]) != 1:
            sys.exit(f"defects: {defect['name']}: {change['file']} has this {text.count(change['old'])} times, not "
                     f"once:\n{change['old']}")
        source.write_text(text.replace(change["old"], change["new"]), encoding="utf-8")
    subprocess.run(["cmake", "--preset", "debug", "-DBUILD_TESTING=OFF"], cwd=copy, check=True, capture_output=True)
    subprocess.run(["cmake", "--build", "--preset", "debug", "--target", "halcyon-lineup"], cwd=copy, check=True,
                   stdout=subprocess.DEVNULL)
    return copy / "build/debug/bin/halcyon-lineup"


def found(application, operation, *options):
    """The promises that the sweep finds broken, with the faults that do it; none if it finds nothing. Their scenarios
    are in CASES."""
    shutil.rmtree(CASES, ignore_errors=True)
    answer = subprocess.run(["halcyon-tv", "sweep", "--app", application, "--operation", operation, "--json",
                             "--scenarios", CASES, *options], capture_output=True, text=True, check=False)
    if not answer.stdout:
        return [answer.stderr.strip()]
    runs = json.loads(answer.stdout)["operations"][0]["runs"]
    return [f"{each['invariant']}: {' and '.join(fault['call'] + ' ' + fault['failure'] for fault in run['faults'])}: "
            f"{each['what']}" for run in runs for each in run["violations"]]


def replays(application):
    """Whether the first scenario fails with the application that has the defect, and passes with the sound one."""
    case = next(CASES.glob("*/001.yaml"))
    return [subprocess.run(["halcyon-tv", "play", case, "--app", each], capture_output=True, check=False).returncode
            for each in (application, ROOT / "build/release/bin/halcyon-lineup")] == [1, 0]


def main():
    defects = json.loads((ROOT / "tests/defects.json").read_text(encoding="utf-8"))
    wanted = [defect for defect in defects if not sys.argv[1:] or defect["name"] in sys.argv[1:]]
    os.environ["PATH"] = f"{ROOT / 'build/release/bin'}:{os.environ['PATH']}"
    missed = 0
    for defect in wanted:
        application = plant(defect)
        violations = found(application, defect["operation"])
        if defect["needsPairs"]:
            if violations:
                print(f"{defect['name']}: NOT HIDDEN from single faults: {violations[0]}")
                missed += 1
                continue
            violations = found(application, defect["operation"], "--pairs")
        is_found = bool(violations) and replays(application)
        print(f"{defect['name']}: {violations[0] if violations else 'NOT FOUND'}"
              f"{'' if is_found or not violations else ': its scenario DOES NOT TELL the defect'}", flush=True)
        missed += not is_found
    print(f"{len(wanted) - missed} of {len(wanted)} found")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
