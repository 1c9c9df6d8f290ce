#!/usr/bin/env python3
"""Measures the programs beside their peers, in turns, and writes what came out to docs/bench/.

usage: run.py BIN [--rounds N] [--services N] [--most N] [--output FOLDER]

  --rounds N        how often each command takes its turn (5)
  --services N      at which the verbs of halcyon-tv are timed (50000)
  --most N          services of the largest list: 100000, or as many as a TV may have (1000000)
  --output FOLDER   where the table and the plots go (docs/bench, and then the README is told, too)

BIN is the folder of the programs, built with HALCYON_BENCH. Works in $TMPDIR, which should be in memory. Exits with 1
if a target is missed, after all has been written.
"""
import argparse
import json
import math
import os
import pathlib
import random
import re
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parents[1]
BENCH = ROOT / "bench"
MEGABYTE = 1 << 20
PLACE = ROOT / "docs/bench"
SMALL_FILES = 20_000
SIZES = (500, 10_000, 100_000, 1_000_000)  # services


def run(*words, **options):
    """Runs a command; what it prints on standard output."""
    process = subprocess.run([str(word) for word in words], capture_output=True, text=True, errors="replace", **options)
    if process.returncode != 0:
        sys.exit(f"bench: {' '.join(map(str, words))}: exit code {process.returncode}\n{process.stderr[-2000:]}")
    return process.stdout


def channel_list(path, services):
    """A list of that many satellite services, all of them different."""
    with open(path, "w", encoding="utf-8") as file:
        for i in range(services):
            if i % 1000 == 0:
                file.write(f":Group {i // 1000 + 1}\n")
            access = "1830,1843" if i % 3 else "0"
            pid = i % 8000 + 100
            file.write(f"Station {i + 1},S{i + 1};Provider {i % 97}:{11000 + i // 40 % 1700}:HC23M5O35S1:S19.2E:22000:"
                       f"{pid}=27:{pid + 1}=deu@3;{pid + 3}=deu@106:{pid + 4}:"
                       f"{access}:{i % 4000 + 1}:1:{i // 4000 + 1}:0\n")
    return path


def ratio(ours, others):
    """Of times that were taken in turns: what slows a machine down for a while slows both."""
    return statistics.median(one / other for one, other in zip(ours, others))


class Bench:
    def __init__(self, folder, rounds):
        self.folder = folder
        self.rounds = rounds

    def race(self, commands, prepare=None, runs=1, environment=None):
        """Times commands with hyperfine. Of each, in seconds: the median of its runs in each turn."""
        times = {name: [] for name in commands}
        report = self.folder / "hyperfine.json"
        for turn in range(self.rounds):
            words = ["hyperfine", "-N", "--style", "none", "--export-json", report,
                     "--warmup", 0 if turn else 1, "--runs", runs, *(["--prepare", prepare] if prepare else [])]
            order = list(commands) if turn % 2 == 0 else list(reversed(commands))
            run(*words, *(commands[name] for name in order), env=dict(os.environ, **(environment or {})))
            for name, result in zip(order, json.loads(report.read_text())["results"]):
                times[name].append(result["median"])
        return times

    def peak(self, command, prepare=None, environment=None):
        """The peak memory of a command and of those that it starts, each by itself, in MB."""
        return self.once(command, prepare, environment)[0]

    def once(self, command, prepare=None, environment=None):
        """That, and the seconds that one run took."""
        if prepare:
            run("sh", "-c", prepare)
        report = self.folder / "time.txt"
        run("time", "-f", "%M %e", "-o", report, "sh", "-c", f"exec {command} >/dev/null 2>&1",
            env=dict(os.environ, **(environment or {})))
        memory, seconds = report.read_text().split()[-2:]
        return int(memory) / 1024, float(seconds)

    def tv(self, name, services):
        """A TV in a folder of its own, with a cloud. What a command needs to find them."""
        place = self.folder / name
        place.mkdir()
        channels = channel_list(place / "list.conf", services)
        run("halcyon-tv", "--home", place / "tv", "init", "--channels", channels, "--serial", name)
        return place, {"HALCYON_TV_HOME": str(place / "tv"), "HALCYON_CLOUD": str(place / "cloud")}


OTHERS = ["bare loop", "Info-ZIP", "bsdtar", "7z"]
PACKERS = {
    "ours": "zip-once pack {work}/set/ {work}/set.zip",
    "Info-ZIP": "sh -c 'cd {work}/set && zip -qrm ../set.zip .'",
    "bsdtar": "sh -c 'cd {work}/set && bsdtar --format zip -cf ../set.zip * && rm -rf {work}/set'",
    "7z": "sh -c 'cd {work}/set && 7z a -bd -tzip -sdel ../set.zip . >/dev/null'",
}
UNPACKERS = {
    "ours": "zip-once unpack {work}/set.zip {work}/out/",
    "Info-ZIP": "unzip -q {work}/set.zip -d {work}/out",
    "bsdtar": "sh -c 'mkdir {work}/out && bsdtar -xf {work}/set.zip -C {work}/out'",
    "7z": "7z x -bd -o{work}/out {work}/set.zip",
}


def make_sets(bench):
    sets = bench.folder / "sets"
    for name in "database", "small-files", "incompressible":
        (sets / name).mkdir(parents=True)
    place, _ = bench.tv("database", 200_000)
    shutil.move(place / "tv/service-db/services.db", sets / "database/services.db")
    shutil.rmtree(place)
    chance = random.Random(1)
    words = [f"word{i}" for i in range(500)]
    for i in range(SMALL_FILES):
        (sets / f"small-files/{i:05}.txt").write_text(" ".join(chance.choices(words, k=chance.randint(10, 200))))
    (sets / "incompressible/random.bin").write_bytes(chance.randbytes(40 * MEGABYTE))
    return sets


def bench_packing(bench):
    """By operation and set: the time of each archiver relative to ours, and its peak memory."""
    sets = make_sets(bench)
    work = bench.folder / "race"
    result = {}
    for each in sorted(sets.iterdir()):
        fresh = f"rm -rf {work} && mkdir {work}"
        copied = f"{fresh} && cp -r {each} {work}/set"
        run("sh", "-c", copied)
        run("zip-once", "pack", f"{work}/set/", f"{each}.zip")
        for operation, commands, made in (("pack", PACKERS, copied),
                                          ("unpack", UNPACKERS, f"{fresh} && cp {each}.zip {work}/set.zip")):
            prepare = f"sh -c '{made}'"
            commands = {name: words.format(work=work) for name, words in commands.items()}
            times = bench.race(commands, prepare)
            ratios = {name: ratio(times["ours"], other) for name, other in times.items()}
            ratios["bare loop"] = bare_ratio(bench, operation, prepare, work)
            peaks = {name: bench.peak(words, prepare) for name, words in commands.items()}
            result[operation, each.name] = {"seconds": statistics.median(times["ours"]), "ratio": ratios, "peak": peaks}
            print(operation, each.name, result[operation, each.name], flush=True)
    shutil.rmtree(sets)
    return result


def bare_ratio(bench, operation, prepare, work):
    """In turns, and each time in a process of its own."""
    report = bench.folder / "benchmark.json"
    times = {"ours": [], "bare": []}
    for kind in list(times) * (2 * bench.rounds + 1):
        run("sh", "-c", prepare)
        run("zip-benchmark", f"--benchmark_filter=^{operation}/{kind}", f"--benchmark_out={report}",
            "--benchmark_out_format=json", env=dict(os.environ, HALCYON_BENCH_FOLDER=str(work)))
        times[kind].append(json.loads(report.read_text())["benchmarks"][0]["real_time"])
    return ratio(times["ours"], times["bare"])


def bench_whole(bench, sizes):
    """By operation and number of services."""
    result = {}
    for services in sizes:
        place, environment = bench.tv(f"whole-{services}", services)
        other = bench.folder / f"script-{services}"
        shutil.copytree(place / "tv", other / "tv")
        home, cloud = other / "tv", other / "cloud"
        for operation in "backup", "restore":
            commands = {"ours": f"halcyon-lineup operation={operation}",
                        "script": f"sh {BENCH}/{operation}.sh {home} {cloud}", "empty": "empty empty-tv"}
            times = bench.race(commands, runs=1 if services > 50_000 else 5, environment=environment)
            result[operation, services] = {
                "ratio": {name: ratio(times["ours"], each) for name, each in times.items()},
                "seconds": {name: statistics.median(each) for name, each in times.items()},
                "peak": {name: bench.peak(words, environment=environment) for name, words in commands.items()}}
            print(operation, services, result[operation, services], flush=True)
        run("halcyon-tv", "diff", place / "tv", home)  # both have come to the same
        shutil.rmtree(place)
        shutil.rmtree(other)
    return result


def exponent(result, operation, who, sizes):
    """Of the cost as a power of the number of services: a line fitted through the logarithms from 10,000 on,
    because starting counts below."""
    points = [(math.log(size), math.log(result[operation, size]["seconds"][who])) for size in sizes if size >= 10_000]
    return statistics.linear_regression(*zip(*points)).slope


# What each is given. Those that print what they read take the memory for it.
VERBS = {
    "init": "init --channels {place}/list.conf",
    "status": "", "status --services": "", "status --services --json": "",
    "set": "set scan off", "snapshot": "snapshot bench", "reset": "reset bench",
    "run": "run -q", "run operation=restore": "run -q operation=restore", "record": "", "record --all": "",
    "fault add": "fault add bnr_init result=-1 --nth 99", "fault list": "", "fault calls": "", "fault clear": "",
    "bundle show": "bundle show {bundle}", "bundle verify": "bundle verify {bundle}",
    "diff": "diff {bundle}", "diff --json": "diff {bundle} --json",
    "diff, each renumbered": "diff {place}/other; test $? -eq 1",
    "export --format vdr": "", "export --format m3u": "", "export --format dvbv5": "",
    "cloud create": "", "cloud list": "", "cloud import": "cloud import {bundle}",
    "cloud remove": "cloud remove $(ls {stored} | grep -v removed | tail -n 1)",
    "fleet run": "fleet run --tvs 2 --jobs 2 --lab {place}/new",
}
SERVE = "serve"


def serve(environment):
    """Starts the page and asks it for all that it shows but channels. How long that took, and the peak memory in MB."""
    begin = time.monotonic()
    with subprocess.Popen(["halcyon-tv", "serve", "--port", "0"], stdout=subprocess.PIPE, text=True,
                          env=dict(os.environ, **environment)) as server:
        def get(path):
            request = urllib.request.Request(f"{address}/api/{path}", headers={"X-Halcyon-Token": token})
            with urllib.request.urlopen(request) as response:
                return json.load(response)

        try:
            address, token = server.stdout.readline().strip().split("/#")
            tv = "tvs/tv"
            run = get(f"{tv}/runs")["runs"][0]["run"]
            for path in "cloud", "calls", "words", tv, f"{tv}/runs/{run}":
                get(path)
            seconds = time.monotonic() - begin
            status = pathlib.Path(f"/proc/{server.pid}/status").read_text(encoding="utf-8")
        finally:
            server.terminate()
    peak = int(re.search(r"VmHWM:\s*(\d+)", status)[1]) / 1024
    return seconds, peak


def bench_verbs(bench, services, most):
    """By verb: seconds at `services`, and there and at `most` the peak memory and the seconds of one run."""
    result = {name: {} for name in (*VERBS, SERVE)}
    for count in services, most:
        place, environment = bench.tv(f"verbs-{count}", count)
        run("halcyon-tv", "run", "-q", env=dict(os.environ, **environment))
        stored = next((place / "cloud").glob("*/*/000001"))
        bundle = shutil.copytree(stored, place / "customer") / "bundle.zip"
        channels = (place / "list.conf").read_text().splitlines(keepends=True)
        (place / "other.conf").write_text("".join(channels[2:]))  # without the first group and service
        run("halcyon-tv", "--home", place / "other", "init", "--channels", place / "other.conf")
        served = [serve(environment) for _ in range(bench.rounds if count == services else 1)]
        result[SERVE]["seconds"] = result[SERVE].get("seconds", statistics.median(seconds for seconds, _ in served))
        result[SERVE][count] = max(peak for _, peak in served), served[0][0]
        for name, words in VERBS.items():
            words = (words or name).format(place=place, bundle=bundle, stored=stored.parent)
            command = f"halcyon-tv {words}" if name != "init" else f"halcyon-tv --home {place}/new {words}"
            command = f"sh -c '{command}'" if "$" in command else command
            prepare = f"rm -rf {place}/new"
            result[name][count] = bench.once(command, prepare, environment)
            if count == services:
                times = bench.race({name: command}, prepare, environment=environment)[name]
                result[name]["seconds"] = statistics.median(times)
            print(name, count, result[name], flush=True)
        shutil.rmtree(place)
    return result


def alone(operation, environment, **more):
    """Runs the application with services of its own, and variables for itself alone. What it prints as errors, and its
    peak memory in MB."""
    ours, theirs = socket.socketpair()
    with ours, theirs, tempfile.TemporaryFile() as errors, tempfile.NamedTemporaryFile() as peak:
        services = subprocess.Popen(["halcyon-tv", "service", "--socket", str(theirs.fileno())],
                                    pass_fds=[theirs.fileno()], stderr=subprocess.DEVNULL,
                                    env=dict(os.environ, **environment))
        words = ["time", "-f", "%M", "-o", peak.name, "halcyon-lineup", f"operation={operation}"]
        application = subprocess.Popen(words, pass_fds=[ours.fileno()], stderr=errors,
                                       env=dict(os.environ, **environment, **more,
                                                HALCYON_TV_SOCKET=str(ours.fileno())))
        ours.close()
        theirs.close()
        if application.wait() != 0 or services.wait() != 0:
            sys.exit(f"bench: {operation} failed")
        errors.seek(0)
        return errors.read().decode(errors="replace"), int(peak.read()) / 1024


def bench_heap(bench):
    """The most heap that the application has had, in MB: by operation, with a CI file of 1 MB and of 1 GB that cannot
    be compressed. And the peak memory of its process, with the latter."""
    place, environment = bench.tv("heap", 500)
    result = {}
    for megabytes in 1, 1024:
        with open(place / "tv/ci/ci_profile.bin", "wb") as file:
            for _ in range(megabytes):
                file.write(os.urandom(MEGABYTE))
        for operation in "backup", "restore":
            errors, _ = alone(operation, environment, LD_PRELOAD="libmemusage.so")
            result[operation, megabytes] = int(re.search(r"heap peak: (\d+)", errors)[1]) / MEGABYTE
            result[operation, "peak"] = alone(operation, environment)[1]
    shutil.rmtree(place)
    print(result, flush=True)
    return result


def bench_records(bench):
    """By operation, with many CI files: the time of the application, without records of the run, and without a log as
    well."""
    place, environment = bench.tv("records", 500)
    for i in range(SMALL_FILES):
        (place / f"tv/ci/{i:05}.bin").write_text(f"file {i}\n")
    result = {}
    for operation in "backup", "restore":
        programs = {"ours": "halcyon-lineup"}
        for variant in "unrecorded", "unlogged":
            programs[variant] = pathlib.Path(shutil.which("halcyon-tv")).parent / variant / "halcyon-lineup"
        commands = {name: f"{program} operation={operation}" for name, program in programs.items()}
        times = bench.race(commands, environment=environment)
        ours = times["ours"]
        result[operation] = {name: (statistics.median(each), ratio(each, ours)) for name, each in times.items()}
    shutil.rmtree(place)
    print(result, flush=True)
    return result


def machine():
    def first(path, pattern):
        return re.search(pattern, pathlib.Path(path).read_text(encoding="utf-8"), re.MULTILINE)[1]

    memory = int(first("/proc/meminfo", r"^MemTotal: *(\d+)")) / MEGABYTE
    return (f"{first('/proc/cpuinfo', r'^model name.*: (.*)$')}, {os.cpu_count()} cores, {memory:.0f} GB of memory, "
            f"{first('/etc/os-release', r'^PRETTY_NAME=.(.*).$')}, Linux {os.uname().release}")


def table(head, rows):
    yield ""
    yield "| " + " | ".join(head) + " |"
    yield "|" + "---|" * len(head)
    for row in rows:
        yield "| " + " | ".join(row) + " |"


def duration(seconds):
    return f"{seconds * 1000:.0f} ms" if seconds < 1 else f"{seconds:.2f} s"


class Targets:
    def __init__(self):
        self.rows = []
        self.missed = 0

    def check(self, what, value, limit, form="{:.2f}"):
        is_met = value <= limit
        self.missed += not is_met
        self.rows.append((what, form.format(value), "≤ " + form.format(limit), "met" if is_met else "**missed**"))


def check_targets(packing, whole, verbs, heap, sizes):
    targets, most = Targets(), sizes[-1]
    for operation in "pack", "unpack":
        ratios = [value["ratio"] for key, value in packing.items() if key[0] == operation]
        for other, limit in ("bare loop", 1.03), ("Info-ZIP", 1):
            targets.check(f"{operation}, beside {other}, the worst set", max(each[other] for each in ratios), limit)
    for operation in "backup", "restore":
        targets.check(f"whole {operation}, beside the script, the worst size",
                      max(whole[operation, size]["ratio"]["script"] for size in sizes), 1)
    targets.check(f"backup of {sizes[0]} services, beside two empty processes",
                  whole["backup", sizes[0]]["ratio"]["empty"], 4)
    for operation in "backup", "restore":
        targets.check(f"{operation}: exponent of the cost", exponent(whole, operation, "ours", sizes), 1.05)
        targets.check(f"{operation}: heap with 1 GB, beside 1 MB", heap[operation, 1024] / heap[operation, 1], 1.05)
    worst = max((value[most][0], name) for name, value in verbs.items())
    targets.check(f"memory of a verb at {most:,} services, MB (the most: {worst[1]})", worst[0], 50, "{:.1f}")
    targets.check(f"diff of {most:,} services that are the same, seconds", verbs["diff"][most][1], 6, "{:.1f}")
    return targets


def report(arguments, targets, packing, whole, verbs, heap, records, sizes):
    services, most = arguments.services, sizes[-1]
    yield from f"""# Speed and memory, measured

Written by `./dev bench`; nothing in it is typed. Ratios are our time by the other's: below 1 we are faster.

- Machine: {machine()}; files in memory (tmpfs).
- Build: the release preset, with its means against memory errors.
- {arguments.rounds} rounds, in each of which all took their turn. Times are medians; ratios are medians of those within
  a round.
- Memory is the peak of the resident set, libraries included, of the largest process.

## Targets
""".splitlines()
    yield from table(["what", "measured", "target", ""], targets.rows)
    yield from """
## Packing and unpacking

The application's archiver as a process, beside the usual ones, each with its defaults; the sources are removed after
packing, as a backup does. The bare loop is minizip and the C library's files with the same calls; it and ours are
functions of one program there, each time in a new process.

![Our time by that of others, a group of bars for each operation and set](packing.svg)
""".splitlines()
    yield from table(["", "set", "ours", *OTHERS, "peak memory: ours", *OTHERS[1:]],
                     [[operation, name, duration(value["seconds"]),
                       *(f"{value['ratio'][other]:.2f}" for other in OTHERS), f"{value['peak']['ours']:.1f} MB",
                       *(f"{value['peak'][other]:.1f} MB" for other in OTHERS[1:])]
                      for (operation, name), value in packing.items()])
    yield from f"""
The application's calls hand on 512 bytes at a time. Who unpacks faster hands on more; with the same calls, the bare
loop cannot.

database: an SQLite database of 200,000 services, about 40 MB; small-files: {SMALL_FILES:,} texts; incompressible: 40 MB
of chance.

## Whole backups and restores

From the start of the process to its end, beside a shell script of the same steps (`bench/backup.sh`,
`bench/restore.sh`: Info-ZIP, cp, sqlite3), which keeps no record of what it does, and beside two empty processes,
of which one starts the other, with the libraries of the application and of the TV's services.

![Seconds by services, of the application and of the script](whole.svg)
""".splitlines()
    yield from table(["", "services", "ours", "script", "empty processes", "peak memory: ours", "script"],
                     [[operation, f"{size:,}", duration(value["seconds"]["ours"]), f"{value['ratio']['script']:.2f}",
                       f"{value['ratio']['empty']:.1f}",
                       f"{value['peak']['ours']:.1f} MB", f"{value['peak']['script']:.1f} MB"]
                      for (operation, size), value in whole.items()])
    yield ""
    exponents = ("{} {:.3f} (script {:.3f})".format(operation, *(exponent(whole, operation, who, sizes)
                                                                 for who in ("ours", "script")))
                 for operation in ("backup", "restore"))
    yield f"The cost as a power of the number of services, fitted from 10,000 on: {'; '.join(exponents)}."
    yield from f"""
## The verbs of halcyon-tv

At {services:,} services, the median time; and one run at {most:,}. The memory does not depend on what they print.
""".splitlines()
    yield from table(["verb", "time", "memory", f"time at {most:,}", "memory"],
                     [[name, duration(value["seconds"]), f"{value[services][0]:.1f} MB", duration(value[most][1]),
                       f"{value[most][0]:.1f} MB"] for name, value in verbs.items()])
    yield from """
## The application's heap

The most that was allocated at a time, with a CI file of that size that cannot be compressed, as the C library's
`libmemusage` counts it.
""".splitlines()
    yield from table(["", "1 MB", "1 GB", "the process, with 1 GB"],
                     [[operation, f"{heap[operation, 1]:.2f} MB", f"{heap[operation, 1024]:.2f} MB",
                       f"{heap[operation, 'peak']:.1f} MB"]
                      for operation in ("backup", "restore")])
    yield from f"""
## What recording costs

With {SMALL_FILES:,} CI files: the application, the same without records of the run (calls and log), and without a
log as well.
""".splitlines()
    yield from table(["", "as it is", "without records", "without a log", "share of the records",
                      "share of records and log"],
                     [[operation, *(duration(seconds) for seconds, _ in each.values()),
                       *(f"{1 - each[less][1]:.0%}" for less in ("unrecorded", "unlogged"))]
                      for operation, each in records.items()])


def plot(output, packing, whole, sizes):
    bars = "\n".join(f'"{operation}\\n{name}" ' + " ".join(str(value["ratio"][other]) for other in OTHERS)
                     for (operation, name), value in packing.items())
    columns = [(operation, who) for operation in ("backup", "restore") for who in ("ours", "script")]
    lines = "\n".join(f"{size} " + " ".join(str(whole[operation, size]["seconds"][who]) for operation, who in columns)
                      for size in sizes)
    script = f"""
set terminal svg size 800,420 font "sans-serif,13" background "white"
set grid ytics lc rgb "#dddddd"
set border 3 lc rgb "#888888"
set tics nomirror
set output "{output}/packing.svg"
set title "Our time by that of others (below 1: we are faster)"
set style data histograms
set style histogram clustered gap 1.5
set style fill solid
set yrange [0:*]
set key above
set bmargin 4
$packing << EOD
{bars}
EOD
plot 1 lc rgb "#888888" notitle, \\
    $packing using 2:xtic(1) title "bare loop" lc rgb "#4477aa", "" using 3 title "Info-ZIP" lc rgb "#66ccee", \\
    "" using 4 title "bsdtar" lc rgb "#ccbb44", "" using 5 title "7z" lc rgb "#bbbbbb"
set output "{output}/whole.svg"
set title "Whole runs"
set logscale xy
set xrange [300:2000000]
set format x "%.0f"
set yrange [0.005:*]
set xlabel "services"
set ylabel "seconds"
$whole << EOD
{lines}
EOD
set style data linespoints
plot $whole using 1:2 title "backup" lw 2 pt 7 lc rgb "#4477aa", \\
    "" using 1:3 title "backup by script" dt 2 pt 6 lc rgb "#4477aa", \\
    "" using 1:4 title "restore" lw 2 pt 7 lc rgb "#ee6677", \\
    "" using 1:5 title "restore by script" dt 2 pt 6 lc rgb "#ee6677"
"""
    run("gnuplot", "-", input=script)


def quote(packing, whole, sizes):
    """Puts the ratios into the README, between its marks."""
    pack, unpack = packing["pack", "database"]["ratio"], packing["unpack", "database"]["ratio"]
    last, start = sizes[-1], whole["backup", sizes[0]]["ratio"]["empty"]
    packed, unpacked, backup = pack["Info-ZIP"], unpack["Info-ZIP"], whole["backup", last]["ratio"]["script"]
    text = f"""<!-- bench -->
Packing a channel database takes {packed:.2f} × the time of Info-ZIP, and unpacking it {unpacked:.2f} ×. A whole backup
of {last:,} services takes {backup:.2f} × the time of a shell script of the same steps; one of {sizes[0]} services
takes {start:.1f} × that of two empty processes with the same libraries. [docs/bench](docs/bench/README.md) has all
figures, also where others are faster; `./dev bench` measures again.
<!-- /bench -->"""
    readme = ROOT / "README.md"
    before = readme.read_text(encoding="utf-8")
    readme.write_text(re.sub("<!-- bench -->.*<!-- /bench -->", text, before, flags=re.DOTALL), encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(usage=__doc__.partition("usage: ")[2])
    parser.add_argument("bin")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--services", type=int, default=50_000)
    parser.add_argument("--most", type=int, default=1_000_000, choices=SIZES[2:])
    parser.add_argument("--output", type=pathlib.Path, default=PLACE)
    arguments = parser.parse_args()
    os.environ["PATH"] = f"{pathlib.Path(arguments.bin).resolve()}:{os.environ['PATH']}"
    sizes = [size for size in SIZES if size <= arguments.most]
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(pathlib.Path(folder), arguments.rounds)
        packing = bench_packing(bench)
        whole = bench_whole(bench, sizes)
        verbs = bench_verbs(bench, arguments.services, sizes[-1])
        heap = bench_heap(bench)
        records = bench_records(bench)
    targets = check_targets(packing, whole, verbs, heap, sizes)
    arguments.output.mkdir(parents=True, exist_ok=True)
    lines = report(arguments, targets, packing, whole, verbs, heap, records, sizes)
    (arguments.output / "README.md").write_text("\n".join(lines) + "\n", encoding="utf-8")
    plot(arguments.output, packing, whole, sizes)
    if arguments.output == PLACE:
        quote(packing, whole, sizes)
    for what, value, limit, verdict in targets.rows:
        print(f"{verdict.strip('*'):<7}{what}: {value} {limit}")
    return 1 if targets.missed else 0


if __name__ == "__main__":
    sys.exit(main())
