#!/usr/bin/env python3
"""What a fleet of TVs costs on each kind of cloud store, and what a backup costs if there are many already.

Prints tables in Markdown. Requests are counted by the store's own gateways."""
import argparse
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

REPEATS = 9
ROOT = pathlib.Path(__file__).parents[1]
sys.path.insert(0, str(ROOT / "tests/stories"))
from cluster import Cluster, object_key  # noqa: E402

STORES = [("folder", None), ("1 OSD in memory, 1 gateway", ()),
          ("3 OSDs on disk, 2 gateways", ("--osds", "3", "--gateways", "2", "--disk"))]


def tv(*words, check=True):
    answer = subprocess.run(["halcyon-tv", *map(str, words)], text=True, capture_output=True)
    if check and answer.returncode != 0:
        sys.exit(f"bench cloud: halcyon-tv {words}: {answer.returncode}\n{answer.stdout}{answer.stderr}")
    return answer.stdout


class Store:
    """A kind of store, empty."""

    def __init__(self, folder, options):
        self.cluster = None if options is None else Cluster(*options)
        self.place = folder / "cloud"
        if self.cluster:
            os.environ.update(self.cluster.environment)
            self.cluster.create("bench")
            self.place = "s3://bench"

    def requests(self):
        """Answered by the gateways so far."""
        if not self.cluster:
            return 0
        total = 0
        environment = dict(os.environ, CEPH_CONF=str(self.cluster.folder / "ceph.conf"))
        for socket in (self.cluster.folder / "run").glob("client.rgw.*.asok"):
            dump = subprocess.run(["ceph", "--admin-daemon", socket, "perf", "dump", "rgw"], check=True, text=True,
                                  capture_output=True, env=environment)
            total += json.loads(dump.stdout)["rgw"]["req"]
        return total

    def stop(self):
        if self.cluster:
            self.cluster.stop()


def bench_fleet(arguments):
    print(f"## {arguments.tvs} TVs, {arguments.jobs} at a time\n\n"
          "| store | operation | runs a second | half of them in | 90 % | 99 % | longest | requests a run |\n"
          "|---|---|---|---|---|---|---|---|")
    for name, options in STORES:
        with tempfile.TemporaryDirectory() as temporary:
            folder = pathlib.Path(temporary)
            store = Store(folder, options)
            try:
                for operation in "backup", "restore":
                    before = store.requests()
                    report = json.loads(tv("fleet", "run", "--tvs", arguments.tvs, "--jobs", arguments.jobs,
                                           "--lab", folder / "lab", "--cloud", store.place,
                                           "--channels", arguments.channels, "--json", f"operation={operation}"))
                    requests = (store.requests() - before) / arguments.tvs
                    times = [report["secondsOfARun"][each] for each in ("p50", "p90", "p99", "longest")]
                    cells = [name, operation, f"{report['runsNow'] / report['seconds']:.1f}",
                             *(f"{seconds * 1000:.0f} ms" for seconds in times),
                             f"{requests:.2f}" if store.cluster else "none"]
                    print(f"| {' | '.join(cells)} |", flush=True)
            finally:
                store.stop()
    print("\nOf the requests, one a run is the verdict's, which reads the backup back.\n")


def fill(cluster, key, count):
    """Copies of the first backup under the numbers up to `count`, which keys count down."""
    with tempfile.NamedTemporaryFile() as body:
        body.write(cluster.read(key))
        body.flush()
        user = f"{os.environ['AWS_ACCESS_KEY_ID']}:{os.environ['AWS_SECRET_ACCESS_KEY']}"
        folder = key.rsplit("/", 1)[0]
        keys = f"v2-[{99999999 - count:08}-99999997]-0badcafe"
        subprocess.run(["curl", "--silent", "--show-error", "--fail", "--aws-sigv4", "aws:amz:default:s3",
                        "--user", user, "--header", "x-amz-content-sha256: UNSIGNED-PAYLOAD",
                        "--upload-file", body.name, f"{cluster.endpoints[0]}/{folder}/{keys}"],
                       check=True, stdout=subprocess.DEVNULL)


def bench_growth(arguments):
    print("## A backup where there are many already (1 OSD in memory)\n\n"
          "| backups before | time | requests |\n"
          "|---|---|---|")
    for count in 10, 100, 1_000, 10_000:
        with tempfile.TemporaryDirectory() as temporary:
            folder = pathlib.Path(temporary)
            store = Store(folder, ())
            try:
                def run():
                    begin = time.monotonic()
                    tv("run", "-q", "--home", folder / "tv", "--cloud", store.place)
                    return time.monotonic() - begin

                tv("init", "--home", folder / "tv", "--channels", arguments.channels)
                run()
                backup = json.loads(tv("cloud", "list", "--json", "--cloud", store.place))["backups"][0]
                fill(store.cluster, object_key("bench", backup), count)
                before = store.requests()
                times = [run() for _ in range(REPEATS)]
                requests = (store.requests() - before) / REPEATS
                print(f"| {count:,} | {statistics.median(times) * 1000:.0f} ms | {requests:.1f} |", flush=True)
            finally:
                store.stop()
    print("\nOf the requests, one is the verdict's. The time is that of `halcyon-tv run`, verdict included, the median "
          f"of {REPEATS}.")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("bin", help="folder of the programs")
    parser.add_argument("--tvs", type=int, default=1000, help="how many (default: 1000)")
    parser.add_argument("--jobs", type=int, default=8, help="runs at a time (default: 8)")
    parser.add_argument("--channels", default=ROOT / "data/channels.conf", help="the TVs' channel list")
    arguments = parser.parse_args()
    os.environ["PATH"] = f"{pathlib.Path(arguments.bin).resolve()}:{os.environ['PATH']}"
    bench_fleet(arguments)
    bench_growth(arguments)


if __name__ == "__main__":
    main()
