#!/usr/bin/env python3
"""A thousand runs and a large bundle: nothing grows that should not.

usage: endure.py BIN [--runs N] [--megabytes N]

Backs one TV up and restores it N times (default 1,000), and looks at what that leaves. Then backs up and restores a
bundle of one megabyte, and one of N (default 1,024), and compares the application's peak memory. BIN is the folder of
the programs.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile

CHANNELS = "Eins:11361:HC23:S19.2E:22000:101:102:0:0:1001:1:1:0\n"


class Tv:
    """A TV in a folder, with a cloud beside it."""

    def __init__(self, bin_folder, folder):
        self.lineup = os.path.join(bin_folder, "halcyon-lineup")
        self.home = os.path.join(folder, "tv")
        self.runs = os.path.join(self.home, "runs")
        self.cloud = os.path.join(folder, "cloud")
        self.environment = dict(os.environ, HALCYON_TV_HOME=self.home, HALCYON_CLOUD=self.cloud)
        channels = os.path.join(folder, "channels.conf")
        with open(channels, "w", encoding="utf-8") as file:
            file.write(CHANNELS)
        words = [os.path.join(bin_folder, "halcyon-tv"), "--home", self.home, "init", "--channels", channels]
        subprocess.run(words, check=True, stdout=subprocess.DEVNULL)

    def run(self, *words):
        """Runs the application. Its peak memory in KiB."""
        process = subprocess.Popen([self.lineup, *words], env=self.environment, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = status
        if status != 0:
            sys.exit(f"endure: halcyon-lineup {' '.join(words)} ended with status {status}")
        return usage.ru_maxrss

    def backups(self):
        return sum(name == "bundle.zip" for _, _, names in os.walk(self.cloud) for name in names)

    def files(self):
        """Everything in the home except what is kept of runs: path and size."""
        paths = (os.path.join(folder, name) for folder, _, names in os.walk(self.home) for name in names
                 if not folder.startswith(self.runs))
        return sorted((os.path.relpath(path, self.home), os.path.getsize(path)) for path in paths)

    def records(self):
        return sum(os.path.getsize(os.path.join(folder, name)) for folder, _, names in os.walk(self.runs)
                   for name in names)


def live_long(tv, runs):
    seen = None
    for number in range(1, runs + 1):
        tv.run()
        tv.run("operation=restore")
        if number == min(runs, 150):  # the record holds as many runs as it ever will
            seen = (tv.files(), tv.records())
    if tv.files() != seen[0]:
        sys.exit(f"endure: the TV's files have changed from {seen[0]} to {tv.files()}")
    if tv.records() > 1.2 * seen[1]:
        sys.exit(f"endure: the records have grown from {seen[1]} to {tv.records()} bytes")
    if tv.backups() != runs:
        sys.exit(f"endure: {runs} backups were made, and the cloud has {tv.backups()}")
    print(f"{runs} backups and restores: records {seen[1] // 1024} KiB after {min(runs, 150)}, "
          f"{tv.records() // 1024} KiB at the end; {len(tv.files())} other files, unchanged; "
          f"{tv.backups()} backups in the cloud")


def peak_memory(tv, megabytes):
    """Of a backup and a restore with a CI file that cannot be compressed."""
    with open(os.path.join(tv.home, "ci", "ci_profile.bin"), "wb") as file:
        for _ in range(megabytes):
            file.write(os.urandom(1 << 20))
    peaks = tv.run(), tv.run("operation=restore")
    shutil.rmtree(tv.cloud)
    return max(peaks)


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("bin")
    parser.add_argument("--runs", type=int, default=1000)
    parser.add_argument("--megabytes", type=int, default=1024)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        tv = Tv(os.path.abspath(options.bin), folder)
        live_long(tv, options.runs)
        small, large = peak_memory(tv, 1), peak_memory(tv, options.megabytes)
        print(f"peak memory: {small} KiB with a bundle of 1 MB, {large} KiB with {options.megabytes} MB")
        if large > 1.1 * small:
            sys.exit("endure: the application's memory grows with the bundle")


if __name__ == "__main__":
    main()
