"""The test bench: a clock, faults in order, another build of the application, all faults of a run."""
import contextlib
import os
import shutil
import subprocess
import unittest
import xml.etree.ElementTree

from halcyon import DATA, Story, Tv


class Clock(Story):
    def setUp(self):
        super().setUp()
        self.tv = Tv(self.folder, "a", channels=DATA / "channels.conf")

    def backup(self):
        """The moments of the run and of what it stored, and the name of its bundle."""
        run = self.tv.tv("run", "--json").json
        stored = self.tv.tv("cloud", "list", "--json").json["backups"][-1]
        return run["started"], stored["time"], stored["name"]

    def test_names_records_and_store_have_the_time_of_the_tv(self):
        for zone, time, name in [
                ("UTC", "2026-12-31T23:59:59Z", "31122026_235959.zip"),
                ("Europe/Berlin", "2026-12-31T23:59:59Z", "01012027_005959.zip"),
                ("UTC", "2028-02-29", "29022028_000000.zip"),
                ("UTC", "2038-01-19T03:14:08Z", "19012038_031408.zip"),
                ("Europe/Berlin", "2026-10-25T00:30:00Z", "25102026_023000.zip"),
                ("Europe/Berlin", "2026-10-25T01:30:00Z", "25102026_023000.zip"),  # that hour comes twice
                ("CET-1CEST", "2026-07-01T12:00:00Z", "01072026_140000.zip")]:
            with self.subTest(zone=zone, time=time):
                self.tv.tv("set", "zone", zone)
                self.tv.tv("set", "clock", time, "--still")
                moment = time if "T" in time else time + "T00:00:00Z"
                self.assertEqual(self.backup(), (moment, moment, name))
                self.assertEqual(self.tv.tv("status", "--json").json["now"], moment)

    def test_it_goes_on_by_what_a_run_takes_unless_it_stands(self):
        self.assertEqual([self.backup()[0] for _ in range(2)], ["2026-01-31T18:00:00Z"] * 2)
        self.assertIn("duplicated data", self.tv.tv("run", "--refuse-duplicates", code=7).text)
        self.tv.tv("set", "clock", "+1d")
        self.tv.tv("fault", "add", "bnr_response", "delay=1h")
        self.assertEqual(self.backup()[:2], ("2026-02-01T18:00:00Z", "2026-02-01T18:00:00Z"))
        self.assertRegex(self.backup()[0], "2026-02-01T19:00:0[1-9]Z")
        self.tv.tv("set", "clock", "machine")
        self.assertIsNone(self.tv.tv("status", "--json").json["now"])
        self.assertGreater(self.backup()[0], "2026-11")

    def test_a_wrong_time_or_zone_is_refused(self):
        for name, value, hint in [("clock", "2026-02-30", "is no time such as"), ("clock", "+1", "is no time such as"),
                                  ("clock", "+9999999w", "is no time such as"),
                                  ("zone", "Europe/Brelin", "no time zone"), ("zone", "../../etc/passwd", "no time")]:
            with self.subTest(value):
                self.assertIn(hint, self.tv.tv("set", name, value, code=3).errors)
        self.assertIn("makes a clock stand", self.tv.tv("set", "antenna", "0", "--still", code=2).errors)


class Faults(Story):
    def test_they_happen_in_order_and_in_the_run_that_they_are_for(self):
        tv = Tv(self.folder, "a")
        tv.tv("fault", "add", "bnr_response", "result=503", "result=500", "delay=5s", "works")
        responses = [tv.tv("run", "--json", code=None).json["response"]["code"] for _ in range(5)]
        self.assertEqual(responses, [503, 500, 101, 101, 101])
        late = tv.tv("record", "3", "--json").json["timeline"]
        response = next(each for each in late if each["call"] and each["call"]["name"] == "bnr_response")
        self.assertGreaterEqual(response["atMs"], 5000)
        self.assertEqual(tv.tv("fault", "list", "--json").json["rules"][0]["fired"], 4)
        tv.tv("fault", "clear")
        tv.tv("fault", "add", "GetServiceDb", "result=0", "--run", "2", "--times", "0")
        tv.tv("run", "-q", "--expect-faults")
        tv.tv("run", "-q", "--expect-faults", code=1)
        tv.tv("run", "-q")
        tv.tv("fault", "add", "vconf_set_int", "throw", "--run", "1")
        self.assertIn("did not fire: 2 (vconf_set_int throw)", tv.tv("run", "-q", "--expect-faults", code=9).errors)
        self.assertIn("in run 7,", tv.tv("fault", "list").text.replace("of run", "in run"))

    def test_what_is_no_failure_is_refused(self):
        tv = Tv(self.folder, "a")
        for words, hint in [("bnr_response delay=5parsecs", "a number of milliseconds, or one with a unit"),
                            ("bnr_init result=-1 lost", "cannot fail with 'lost'"), ("Destroy result=1", "no call")]:
            with self.subTest(words):
                self.assertIn(hint, tv.tv("fault", "add", *words.split(), code=3).errors)


class OtherBuild(Story):
    def test_any_build_is_launched_also_by_another_program(self):
        tv = Tv(self.folder, "a")
        own = self.folder / "my-build"
        which = subprocess.run(["which", "halcyon-lineup"], check=True, capture_output=True, text=True).stdout.strip()
        shutil.copy(which, own)
        self.assertEqual(tv.tv("run", "--app", own, "--json").json["outcome"], "done")
        wrapped = tv.tv("run", "--app", own, "--wrap", "env 'MINE=a b'", "-v")
        self.assertIn("it is not confined", wrapped.errors)
        self.assertIn("No such file", tv.tv("run", "--wrap", "no-such-debugger", code=3).errors)
        self.assertIn("does not exist", tv.tv("run", "--app", self.folder / "none", code=2).errors)


class Terminal(Story):
    def test_what_takes_long_tells_a_terminal_how_far_it_is_and_no_file(self):
        tv = Tv(self.folder, "a")
        words = ["fleet", "run", "--tvs", "2"]
        self.assertNotIn("\x1b[K", tv.tv(*words).errors)
        screen, terminal = os.openpty()
        environment = dict(os.environ, HALCYON_TV_HOME=str(tv.home), HALCYON_CLOUD=str(tv.cloud))
        with subprocess.Popen(["halcyon-tv", *words], env=environment, cwd=self.folder, stdout=subprocess.DEVNULL,
                              stderr=terminal):
            os.close(terminal)
            shown = b""
            with contextlib.suppress(OSError):  # the end of a terminal
                while piece := os.read(screen, 4096):
                    shown += piece
        os.close(screen)
        self.assertRegex(shown, rb"\d+ of \d+ .*\x1b\[K")
        self.assertTrue(shown.endswith(b"\r\x1b[K"), "it is wiped away")


class Sweep(Story):
    def test_a_run_is_tried_under_each_fault(self):
        tv = Tv(self.folder, "a")
        report = self.folder / "sweep.xml"
        swept = tv.tv("sweep", "--operation", "restore", "--sequences", "3", "--json", "--junit", report).json
        restore, = swept["operations"]
        self.assertEqual(len(restore["runs"]), restore["singles"] + restore["powerCuts"] + 3)
        self.assertEqual(restore["violated"], 0)
        lost = [run for run in restore["runs"] if run["faults"][0]["call"] == "IUtil::RestoreIssDbArchive"]
        self.assertEqual([(run["told"], run["truth"], run["lost"]) for run in lost[:1]], [("done", "new", ["iss"])])
        suite = xml.etree.ElementTree.parse(report).getroot().find("testsuite")
        self.assertEqual(int(suite.get("tests")), len(restore["runs"]))
        self.assertIn("did not start", tv.tv("sweep", "--app", "/bin/true", code=3).errors)


if __name__ == "__main__":
    unittest.main()
