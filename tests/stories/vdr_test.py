"""TVs whose channel list a running VDR keeps: real ones, without a tuner.

usage: vdr_test.py [--kills N] [unittest's options]
"""
import argparse
import contextlib
import os
import pathlib
import re
import signal
import socket
import socketserver
import sqlite3
import subprocess
import sys
import threading
import time
import unittest

from halcyon import DATA, Story, Tv, halcyon_tv

EXAMPLES = pathlib.Path("/usr/share/vdr/channels.conf-examples")
SOURCES = pathlib.Path("/etc/vdr/sources.conf")
OWN = "Camera:10:S=1|P=IPTV|F=UDP|U=127.0.0.1|A=3000:I:0:11:12=deu:0:0:9:1:1:0"
kills = 8

# A VDR without a tuner needs a plugin that stands for a device. It takes seconds to end; that it is killed loses only
# edits, and those within seconds.
CONTROL = """#!/bin/bash
cd "$(dirname "$0")"
answers() { (exec 3<>"/dev/tcp/127.0.0.1/$(cat port)" && read -r <&3) 2>/dev/null; }
case $1 in
    start)
        setsid vdr --config=config --video=video --cachedir=cache --resdir=resources --lib=/usr/lib/vdr/plugins \\
            --port="$(cat port)" --no-kbd --watchdog=0 --user="$(id -un)" --plugin="satip -d 1" \\
            >log 2>&1 </dev/null &
        echo $! >pid
        while readlink -q "/proc/$!/exe" >/dev/null; do
            if answers; then exit; fi
            sleep 0.05
        done
        exit 1 ;;
    stop)
        kill -KILL "$(cat pid)" || exit
        while readlink -q "/proc/$(cat pid)/exe" >/dev/null || answers; do sleep 0.02; done ;;
esac
"""


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def wait_for(what, seconds=30):
    end = time.monotonic() + seconds
    while not what():
        if time.monotonic() > end:
            raise AssertionError(f"not in {seconds} seconds: {what}")
        time.sleep(0.02)


def text_of(line):
    """As halcyon-tv reads it: some of Debian's lists are in ISO 8859-1."""
    try:
        return line.decode()
    except UnicodeDecodeError:
        return line.decode("iso8859-1")


class Vdr:
    def __init__(self, folder, channels):
        self.folder = folder
        for name in ("config", "video", "cache", "resources"):
            (folder / name).mkdir(parents=True)
        self.port = free_port()
        (folder / "port").write_text(str(self.port))
        (folder / "config/sources.conf").write_bytes(SOURCES.read_bytes())
        (folder / "config/svdrphosts.conf").write_text("127.0.0.1\n")
        self.control = folder / "control"
        self.control.write_text(CONTROL)
        self.control.chmod(0o755)
        self.channels = folder / "config/channels.conf"
        self.channels.write_bytes(channels)
        self.start()

    @property
    def options(self):
        return ("--vdr", f"127.0.0.1:{self.port}", "--vdr-config", self.folder / "config",
                "--vdr-cache", self.folder / "cache", "--vdr-stop", f"{self.control} stop",
                "--vdr-start", f"{self.control} start")

    @property
    def pid(self):
        return int((self.folder / "pid").read_text())

    def start(self):
        subprocess.run([self.control, "start"], check=True)

    def stop(self):
        subprocess.run([self.control, "stop"], check=False, capture_output=True)

    def is_running(self):
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port), timeout=5) as connection:
            return connection.recv(3) == b"220"  # what is about to end may still accept
        return False

    def put(self, channels):
        self.stop()
        self.channels.write_bytes(channels)
        self.start()

    def ask(self, command):
        """The lines of the answer, the first with its code."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=20) as connection:
            stream = connection.makefile("rwb")
            stream.readline()
            stream.write(command.encode() + b"\r\nQUIT\r\n")
            stream.flush()
            lines = [text_of(line).rstrip("\r\n") for line in stream][:-1]
        return lines[:1] + [line[4:] for line in lines[1:]]

    def list(self):
        """Its channels and groups as it writes them itself: two lists of one text mean the same."""
        first, *others = self.ask("LSTC :ids :groups")
        return [first[4:]] + others

    def list_of_file(self):
        """The same of its file, which it reads when it starts."""
        self.stop()
        self.start()
        return self.list()


def without_numbers(lines):
    return [line.split(" ", 1)[1] for line in lines]


def is_own(line):
    return OWN.split(":")[0] in line


class Stories(Story):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        if not EXAMPLES.is_dir():
            raise unittest.SkipTest("the package vdr is missing")

    def vdr(self, name, channels):
        vdr = Vdr(self.folder / name, channels)
        self.addCleanup(vdr.stop)
        return vdr

    def tv(self, vdr, name=None):
        return Tv(self.folder, "tv-" + (name or vdr.folder.name), keeper=vdr.options)

    def test_debians_lists_go_from_one_vdr_to_another(self):
        own = DATA.joinpath("channels.conf").read_bytes() + f":Mine\n{OWN}\n".encode()
        source, target = self.vdr("source", own), self.vdr("target", own)
        b = self.tv(target)
        for example in sorted(EXAMPLES.iterdir()):
            with self.subTest(example.name):
                source.put(example.read_bytes())
                a = self.tv(source, example.name)
                before = (target.channels.stat().st_mode, target.channels.stat().st_uid)
                self.assertEqual(a.run().outcome, "done")
                self.assertEqual(b.run("operation=restore").outcome, "done")
                self.assertIsNone(a.differs_from(b))
                restored, wanted = target.list(), source.list()
                self.assertEqual(restored[:len(wanted)], wanted)
                self.assertTrue(restored[len(wanted)].endswith("Mine"))
                self.assertTrue(is_own(restored[-1]))
                self.assertEqual(target.list_of_file(), restored)
                self.assertEqual((target.channels.stat().st_mode, target.channels.stat().st_uid), before)
                self.assertIsNone(a.differs_from(b))

    def test_what_is_its_own_stays(self):
        lines = DATA.joinpath("channels.conf").read_text().splitlines(True)
        vdr = self.vdr("vdr", "".join(lines[:2] + [OWN + "\n"] + lines[2:]).encode())
        before = vdr.list()
        cam = vdr.folder / "cache/cam.data"
        cam.write_bytes(b"of the first set")
        tv = self.tv(vdr)
        self.assertIn("Camera", (tv.home / "service-db/ipsrv").read_text())
        self.assertNotIn("Camera", tv.tv("status", "--services").text)
        self.assertEqual(tv.run().items["ci"], "stored")
        simulated = Tv(self.folder, "simulated")
        self.assertEqual(simulated.run("operation=restore").outcome, "done")
        self.assertTrue(simulated.differs_from(tv)["services"]["isSame"])
        self.assertEqual((simulated.home / "ci/cam.data").read_bytes(), b"of the first set")
        cam.write_bytes(b"changed since")
        self.assertTrue(vdr.ask("DELC 4")[0].startswith("250"))
        restored = tv.tv("run", "operation=restore", "--json")
        self.assertEqual(vdr.list(), before)
        self.assertEqual(cam.read_bytes(), b"of the first set")
        self.assertIn("554 Error switching", restored.errors)
        # A list of another set, with a timer on a channel that it lacks.
        Tv(self.folder, "other", channels=DATA / "factory.conf").run()
        timed = next(line for line in before if "Hafen TV" in line)
        answer = vdr.ask(f"NEWT 1:{timed.split(' ')[1]}:2030-01-01:2015:2100:50:99:News:")
        self.assertTrue(answer[0].startswith("250"), answer)
        # VDR keeps its timers in a file, which it writes when it has time to.
        timers = vdr.folder / "config/timers.conf"
        wait_for(lambda: timers.is_file() and "News" in timers.read_text())
        restored = tv.tv("run", "operation=restore", "--json", code=4)
        self.assertIn("'Hafen TV', which a timer of VDR needs: it stays", restored.errors)
        self.assertIn("; 1 added", restored.json["items"][0]["detail"])
        self.assertIn("News", vdr.ask("LSTT")[0])
        names = [line.split(" ")[-1] if line.startswith("0 ") else re.split("[,:;]", line.split(" ", 2)[2])[0]
                 for line in vdr.list()]
        self.assertEqual(names, [":Factory", "Welcome Channel", "Test Card", ":Nordlicht", "", "Hafen TV", "Camera"])

    def test_what_the_owner_has_set_outlives_what_vdr_changes(self):
        vdr = self.vdr("vdr", DATA.joinpath("channels.conf").read_bytes())
        tv = self.tv(vdr)

        def in_database(sql):
            with contextlib.closing(sqlite3.connect(tv.home / "service-db/services.db")) as database, database:
                return database.execute(sql).fetchall()

        columns = "id, name, broadcast_name, locked, favourite1"
        in_database("UPDATE services SET favourite1 = number, locked = 1 WHERE number <= 3")
        in_database("UPDATE services SET renamed = 1, name = 'Kids', broadcast_name = '' WHERE number = 3")
        before = in_database(f"SELECT {columns} FROM services WHERE favourite1 > 0 ORDER BY favourite1")
        line = next(line for line in vdr.list() if line.startswith("3 ")).split(" ", 2)[2]
        for command in ("MODC 3 " + line.replace("Nordlicht Kultur", "Kultur"), "DELC 1"):
            self.assertTrue(vdr.ask(command)[0].startswith("250"), command)
        self.assertEqual(tv.run().outcome, "done")
        after = in_database(f"SELECT {columns} FROM services WHERE favourite1 > 0 ORDER BY favourite1")
        self.assertEqual(after, [before[1][:-1] + (1,), (before[2][0], "Kids", "Kultur", 1, 2)])

    def test_what_is_wrong_is_said(self):
        vdr = self.vdr("vdr", DATA.joinpath("channels.conf").read_bytes())
        config = vdr.folder / "config"
        silent = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(silent.close)

        def init(*words, code=3):
            return halcyon_tv("--home", self.folder / "wrong", "init", *words, folder=self.folder, code=code).errors

        nowhere = ("--vdr", f"127.0.0.1:{free_port()}", "--vdr-config", config)
        self.assertIn("VDR cannot be reached; start it, or give", init(*nowhere))
        self.assertIn("give the folder of VDR's configuration with --vdr-config",
                      init(*vdr.options[:2], "--vdr-config", self.folder))
        self.assertIn("--vdr requires --vdr-config", init(*vdr.options[:2], code=2))
        self.assertIn("is not HOST:PORT", init("--vdr", "localhost", "--vdr-config", config))
        self.assertIn("give both --vdr-stop and --vdr-start", init(*vdr.options[:4], "--vdr-stop", "true"))
        # Without the commands, a restore changes nothing.
        tv = Tv(self.folder, "tv", keeper=vdr.options[:6])
        tv.run()
        vdr.put(DATA.joinpath("factory.conf").read_bytes())
        before = vdr.list()
        restored = tv.tv("run", "operation=restore", code=1)
        self.assertIn("make the TV with --vdr-stop and --vdr-start", restored.errors)
        self.assertEqual(vdr.list(), before)
        # A list that VDR cannot read whole.
        vdr.put(DATA.joinpath("factory.conf").read_bytes() + b"No parameters:12187::S19.2E:27500:0:0:0:0:1:1:1:0\n")
        self.assertIn("VDR lists no channels", tv.tv("run", code=3).errors)
        (config / "svdrphosts.conf").write_text("192.0.2.1\n")
        vdr.put(DATA.joinpath("factory.conf").read_bytes())
        self.assertIn("add its address to VDR's svdrphosts.conf", tv.tv("run", code=3).errors)


def answers(lists=b"", greeting=b"220 vm SVDRP VideoDiskRecorder 2.6.0; now; UTF-8\r\n"):
    """A server that greets so and answers so to the first command, and that there is nothing to others."""
    class Handler(socketserver.StreamRequestHandler):
        def handle(self):
            with contextlib.suppress(OSError):
                self.wfile.write(greeting)
                for command in self.rfile:
                    self.wfile.write(lists if command.startswith(b"LSTC") else b"550 nothing\r\n")

    server = socketserver.ThreadingTCPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


class Hostile(Story):
    def test_an_answer_is_refused_and_shown_safely(self):
        (self.folder / "channels.conf").write_bytes(DATA.joinpath("factory.conf").read_bytes())
        line = DATA.joinpath("factory.conf").read_bytes().splitlines()[1]
        for server, words in [
                (answers(greeting=b"SSH-2.0-OpenSSH_9.2\r\n"), "what answers is no VDR: 'SSH-2.0-OpenSSH_9.2'"),
                (answers(greeting=b"Access denied!\n"), "svdrphosts.conf"),
                (answers(greeting=b"221 too many\r\n"), "does not let this machine in: 'too many'"),
                (answers(greeting=b"220 " + b"x" * 40000), "bytes of a line of VDR's"),
                (answers(b"250-1 S\r\n\x1b[2J\r\n"), "what answers is no VDR: '\\x1b[2J'"),
                (answers(b"250-\r\n250- \r\n250-0 \r\n250-0\r\n250 1\r\n"), "holds no service"),
                (answers(b"501 Unknown option\r\n"), "VDR lists no channels: 'Unknown option'"),
                (answers(b"250-99999999999 a \x1b[2J\r\n250 1 a " + line + b"\r\n"), "is not understood, and in no")]:
            self.addCleanup(server.server_close)
            self.addCleanup(server.shutdown)
            with self.subTest(words):
                answer = subprocess.run(["halcyon-tv", "--home", self.folder / str(server.server_address[1]), "init",
                                         "--vdr", f"127.0.0.1:{server.server_address[1]}", "--vdr-config",
                                         self.folder], text=True, capture_output=True, timeout=60, check=False)
                self.assertIn(words, answer.stderr)
                self.assertNotIn("\x1b", answer.stderr)
                self.assertEqual(answer.returncode, 0 if "understood" in words else 3)


class Kills(Story):
    """Whoever is killed, whenever: VDR's list is the old one or the new one, and no reply is false."""

    VICTIMS = "halcyon-lineup", "services", "halcyon-tv", "vdr"

    def processes(self):
        """Those of the run, by their names."""
        found = {}
        for place in pathlib.Path("/proc").iterdir():
            with contextlib.suppress(OSError):
                environment = (place / "environ").read_bytes() if place.name.isdigit() else b""
                if f"HALCYON_TV_HOME={self.b.home}\0".encode() in environment:
                    words = (place / "cmdline").read_bytes().split(b"\0")
                    name = pathlib.Path(os.fsdecode(words[0])).name
                    name = "services" if words[1:2] == [b"service"] else name
                    if name not in ("vdr", ""):
                        found[name] = int(place.name)
        return found

    def victim(self, name, run):
        """Its process. The application, which is confined, shows nobody its environment."""
        if name == "vdr":
            return self.target.pid
        if name != "halcyon-lineup":
            return self.processes().get(name)
        children = subprocess.run(["pgrep", "--parent", str(run), name], text=True, capture_output=True).stdout
        return int(children) if children else None

    def restore(self, victim, after):
        """Whether somebody was told of success."""
        process = subprocess.Popen(["halcyon-tv", "run", "-q", "operation=restore"], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, env=self.environment)
        time.sleep(after)
        if (pid := self.victim(victim, process.pid)) is not None:
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
                self.hits[victim] = self.hits.get(victim, 0) + 1
        process.wait()
        wait_for(lambda: not self.processes(), 100)
        newest = max(self.b.home.glob("runs/*.jsonl"), default=None)
        return newest is not None and newest.name != self.before and '"reply":0' in re.sub(
            r"\s", "", newest.read_text())

    def test_the_list_is_old_or_new(self):
        old, new = DATA.joinpath("channels.conf").read_bytes(), (EXAMPLES / "channels.conf.sat").read_bytes()
        vdr = Vdr(self.folder / "source", new)
        self.addCleanup(vdr.stop)
        Tv(self.folder, "a", keeper=vdr.options).run()
        new_list = vdr.list()
        self.target = Vdr(self.folder / "target", old)
        self.addCleanup(self.target.stop)
        old_list = self.target.list()
        self.b = Tv(self.folder, "b", keeper=self.target.options)
        self.environment = dict(os.environ, HALCYON_TV_HOME=str(self.b.home), HALCYON_CLOUD=str(self.b.cloud))
        self.hits, ends = {}, {"old": 0, "new": 0, "told": 0}
        self.before = ""
        began = time.monotonic()
        self.assertTrue(self.restore("nobody", 0))
        duration = time.monotonic() - began
        for point in range(kills):
            self.target.put(old)
            self.before = max(self.b.home.glob("runs/*.jsonl")).name
            victim = self.VICTIMS[point % len(self.VICTIMS)]
            after = duration * (point + 0.5) / kills
            told = self.restore(victim, after)
            if victim == "vdr" and not self.target.is_running():
                self.target.start()  # as an init system would
            with self.subTest(victim=victim, after=after):
                wait_for(self.target.is_running)
                now = self.target.list()
                self.assertIn(now, (old_list, new_list))
                self.assertEqual(self.target.list_of_file(), now)
                self.assertTrue(now == new_list or not told, "told of success, and the list is the old one")
                ends["told"] += told
                ends["new" if now == new_list else "old"] += 1
        print(f"\n{kills} kills over {duration:.1f} s {self.hits}: {ends}", file=sys.stderr)
        # Nothing stands in the way of the next one.
        self.assertEqual(self.b.run("operation=restore").outcome, "done")
        self.assertEqual(self.target.list(), new_list)
        self.assertEqual([path.name for path in (self.target.folder / "config").glob("halcyon*")], [])


if __name__ == "__main__":
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--kills", type=int, default=kills)
    options, words = parser.parse_known_args()
    kills = options.kills
    unittest.main(argv=sys.argv[:1] + words)
