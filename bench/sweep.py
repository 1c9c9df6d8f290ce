#!/usr/bin/env python3
"""What it costs to try all faults of a run, and how many there are, alone and in pairs.

Prints tables; exits with 1 if a target is missed, or a promise is broken. Works in $TMPDIR, which should be in memory.
"""
import argparse
import json
import os
import pathlib
import platform
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).parents[1]
PAGE = ROOT / "docs/faults.md"


def swept(*options):
    """The operations of a sweep, by name."""
    answer = subprocess.run(["halcyon-tv", "sweep", "--json", *options], text=True, capture_output=True)
    if answer.returncode not in (0, 1):
        sys.exit(f"bench sweep: {answer.returncode}\n{answer.stderr}")
    return json.loads(answer.stdout)["operations"]


def row(operation):
    begin = operation["singles"] + operation["powerCuts"]
    both = sum(run["fired"] == len(run["faults"]) for run in operation["runs"][begin:])
    name = operation["operation"].replace("-with-", " during a ")
    return (f"| {name} | {operation['singles']} | {operation['powerCuts']} | {operation['more']:,} | {both:,} | "
            f"{operation['impossiblePairs']:,} | {operation['violated']} | {operation['seconds']:.1f} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("bin", help="folder of halcyon-tv")
    parser.add_argument("--write", action="store_true", help="write the table into docs/faults.md")
    arguments = parser.parse_args()
    os.environ["PATH"] = f"{pathlib.Path(arguments.bin).resolve()}:{os.environ['PATH']}"
    singles, pairs = swept(), swept("--pairs")
    seconds = sum(each["seconds"] for each in singles)
    cost = seconds / sum(len(each["runs"]) for each in singles) * 1000
    restore = next(each for each in pairs if each["operation"] == "restore")["seconds"]
    rows = "\n".join(map(row, pairs))
    text = f"""<!-- sweep -->
Measured by `./dev bench sweep --write`; {os.cpu_count()} cores, Linux {platform.release()}, files in memory.

| operation | under one fault | power cuts | under two | both happened | cannot both happen | broken | seconds |
|---|---|---|---|---|---|---|---|
{rows}

| what | measured | target |
|---|---|---|
| a run under one fault, or with a power cut | {cost:.1f} ms | ≤ 30 ms |
| all single faults and power cuts of the three operations | {seconds:.1f} s | ≤ 20 s |
| all pairs of a restore | {restore:.0f} s | ≤ 480 s |
<!-- /sweep -->"""
    print(text)
    if arguments.write:
        before = PAGE.read_text(encoding="utf-8")
        PAGE.write_text(re.sub("<!-- sweep -->.*<!-- /sweep -->", lambda _: text, before, flags=re.DOTALL),
                        encoding="utf-8")
    is_met = cost <= 30 and seconds <= 20 and restore <= 480
    return 0 if is_met and not any(each["violated"] for each in singles + pairs) else 1


if __name__ == "__main__":
    sys.exit(main())
