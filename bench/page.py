#!/usr/bin/env python3
"""What the page of halcyon-tv serve costs: time, bytes and memory, measured in a real browser.

Prints a table in Markdown, or writes docs/bench/page.md with --write."""
import argparse
import concurrent.futures
import http.client
import os
import pathlib
import platform
import shutil
import sys
import threading
import time

ROOT = pathlib.Path(__file__).parents[1]
sys.path.insert(0, str(ROOT / "tests/stories"))
from browser import Page  # noqa: E402

CHANNELS = 50_000
MANY_TVS = 100
COMPARISONS = 100
READERS = 10
IDLE_SECONDS = 10
CHOOSE = """
const [key, done] = arguments;
const start = performance.now();
document.querySelector(`[data-key="${key}"]`).click();
const look = () => {
  const head = document.querySelector(".panel-head")?.innerText ?? "";
  if (!head.includes("50,000")) return requestAnimationFrame(look);
  const answer = performance.getEntriesByType("resource").filter((each) => each.name.includes("/channels")).at(-1);
  requestAnimationFrame(() => done([performance.now() - answer.responseEnd, performance.now() - start]));
};
look();
"""
FRAMES = """
const [pixels, done] = arguments;
const list = document.querySelector(".rows");
const frames = [];
let last = performance.now();
const step = (now) => {
  frames.push(now - last);
  last = now;
  list.scrollTop += pixels;
  if (frames.length < 300) requestAnimationFrame(step);
  else done(frames.slice(2).sort((a, b) => b - a));
};
requestAnimationFrame(step);
"""
MOVED = """return performance.getEntriesByType("resource").filter((each) => each.name.includes("/api/") &&
  !each.name.includes("/events")).map((each) => [each.name.split("/api/")[1], each.transferSize])"""


class Reader:
    """A reader of the server's events, which counts their bytes."""

    def __init__(self, page):
        self.bytes = 0
        self.connection = http.client.HTTPConnection("127.0.0.1", page.port)
        self.connection.request("GET", "/api/events", headers={"X-Halcyon-Token": page.token})
        self.response = self.connection.getresponse()
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        try:
            while block := self.response.read1(65536):
                self.bytes += len(block)
        except (http.client.HTTPException, OSError, ValueError, AttributeError):
            pass


class Costs(Page):
    def runTest(self):
        """Measured by main()."""

    def resident(self):
        status = pathlib.Path(f"/proc/{self.server.pid}/status").read_text()
        return int(status.split("VmRSS:")[1].split()[0]) / 1000

    def processor(self):
        fields = pathlib.Path(f"/proc/{self.server.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def moved(self, act):
        """The bytes that the page gets by what happens elsewhere, and the requests for the list of channels."""
        reader = Reader(self)
        time.sleep(1)
        self.browser.execute_script("performance.clearResourceTimings()")
        before = reader.bytes
        act()
        time.sleep(2)
        requests = self.browser.execute_script(MOVED)
        return (sum(size for _, size in requests) + reader.bytes - before,
                sum(1 for name, _ in requests if name.endswith("/channels")))

    def compare(self, _):
        connection = http.client.HTTPConnection("127.0.0.1", self.port)
        connection.request("GET", "/api/diff?left=tv:c&right=tv:b", headers={"X-Halcyon-Token": self.token})
        connection.getresponse().read()

    def long_tv(self):
        with open(self.folder / "long.conf", "w") as file:
            for i in range(CHANNELS):
                file.write(f"Channel {i}:{10_000 + i // 60}:HC23:S19.2E:22000:101=27:102:0:0:"
                           f"{i % 60 + 1}:1:{i // 60 + 1}:0\n")
        return self.make("c", self.folder / "long.conf")

    def measure(self, is_patient):
        tv = self.long_tv()
        self.until(lambda: self.all("[data-key='tv-c']"))
        view, whole = self.browser.execute_async_script(CHOOSE, "tv-c")
        yield f"{CHANNELS:,} channels: from the server's answer to the first view", view, 500, "ms"
        yield "the same from the click", whole, None, "ms"
        rounds = [[self.browser.execute_async_script(FRAMES, pixels) for pixels in (0, 997)] for _ in range(3)]
        still, scrolled = (min(each[i][0] for each in rounds) for i in (0, 1))
        yield "scrolling them: the longest of 298 frames, the best of 3 rounds", scrolled, 33, "ms"
        yield "the same while nothing scrolls", still, None, "ms"
        moved, _ = self.moved(lambda: tv.tv("set", "favname1", "Elsewhere"))
        yield "moved by a `set` elsewhere", moved / 1000, 10, "kB"
        tv.tv("run", "-q")
        moved, lists = self.moved(lambda: tv.tv("run", "operation=restore", "-q"))
        yield "lists of channels moved by a restore elsewhere", lists, 1, ""
        yield "bytes moved by it", moved / 1e6, None, "MB"
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            list(pool.map(self.compare, range(COMPARISONS)))
        yield f"memory of the server after {COMPARISONS} comparisons", self.resident(), 120, "MB"
        if is_patient:
            time.sleep(60)
        yield "a minute later" if is_patient else "at once", self.resident(), 60, "MB"
        for i in range(MANY_TVS):
            shutil.copytree(self.b.home, self.folder / f"lab/tv-{i:03}")
        readers = [Reader(self) for _ in range(READERS)]
        time.sleep(3)
        before = self.processor()
        time.sleep(IDLE_SECONDS)
        share = (self.processor() - before) / IDLE_SECONDS * 100
        yield f"idle, {len(readers)} readers and {MANY_TVS} TVs: of a core", share, 1, "%"
        files = sum(file.stat().st_size for file in (ROOT / "simulator/web/page").iterdir())
        yield "all files of the page", files / 1000, 160, "kB"


def table(rows):
    lines = ["| what | measured | target | |", "|---|---|---|---|"]
    for what, value, target, unit in rows:
        met = "" if target is None else "met" if value <= target else "missed"
        lines.append(f"| {what} | {value:.{0 if value >= 100 or not unit else 1}f} {unit} | "
                     f"{'' if target is None else f'≤ {target} {unit}'} | {met} |".replace(" |", " |"))
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("bin", help="folder of halcyon-tv")
    parser.add_argument("--write", action="store_true", help="write docs/bench/page.md")
    parser.add_argument("--impatient", action="store_true", help="do not wait a minute for the memory")
    arguments = parser.parse_args()
    os.environ["PATH"] = f"{pathlib.Path(arguments.bin).resolve()}:{os.environ['PATH']}"
    Costs.setUpClass()
    costs = Costs()
    try:
        costs.setUp()
        rows = list(costs.measure(not arguments.impatient))
    finally:
        costs.doCleanups()
        Costs.doClassCleanups()
    machine = f"{os.cpu_count()} cores, Linux {platform.release()}"
    text = (f"# The page, measured\n\nWritten by `./dev bench page --write`, in headless Chromium; {machine}.\n\n"
            f"{table(rows)}\n")
    if arguments.write:
        (ROOT / "docs/bench/page.md").write_text(text)
    print(text)


if __name__ == "__main__":
    main()
