"""What scripts rely on: exports, snapshots, equal TVs, exit codes, and messages that name the next command."""
import filecmp
import http.client
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import sqlite3
import subprocess
import time
import unittest

from halcyon import DATA, Answer, Story, Tv

CHANNELS = DATA / "channels.conf"
EXAMPLES = pathlib.Path("/usr/share/vdr/channels.conf-examples")


class Export(Story):
    def check_comes_back(self, channels):
        """The list after init, a backup, a restore on another TV, and an export has the lines of the list in their
        order, without as many as init skipped."""
        a = Tv(self.folder, "a", channels=channels)
        report = a.tv("init", "--channels", channels, "--home", self.folder / "again", "--json").json
        a.tv("run", "-q")
        b = Tv(self.folder, "b")
        b.tv("run", "-q", "operation=restore")
        text = pathlib.Path(channels).read_bytes()
        try:
            lines = text.decode()
        except UnicodeDecodeError:
            lines = text.decode("latin-1")
        lines = [line for line in lines.split("\n") if line.strip()]
        returned = b.tv("export", "--format", "vdr").text.splitlines()
        self.assertEqual(len(returned), len(lines) - report["skipped"])
        rest = iter(lines)
        for line in returned:
            self.assertIn(line, rest)

    def test_a_vdr_list_comes_back_line_by_line(self):
        self.check_comes_back(CHANNELS)

    @unittest.skipUnless(EXAMPLES.is_dir(), "Debian's vdr package is not there")
    def test_real_vdr_lists_come_back_line_by_line(self):
        for channels in sorted(EXAMPLES.iterdir()):
            with self.subTest(channels.name):
                self.folder = self.folder / channels.name
                self.folder.mkdir()
                self.check_comes_back(channels)

    def test_dvbv5_is_read_by_the_dvb_tools(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        (self.folder / "list").write_text(tv.tv("export", "--format", "dvbv5").text)
        subprocess.run(["dvb-format-convert", "-I", "dvbv5", "-O", "vdr", "list", "back"], cwd=self.folder, check=True,
                       capture_output=True)
        back = (self.folder / "back").read_text().splitlines()
        services = tv.tv("status", "--services", "--json").json["channels"]
        self.assertEqual(len(back), len(services))
        for line, service in zip(back, services):
            fields = line.rsplit(":", 12)
            self.assertEqual(int(fields[9]), service["sid"], line)
            self.assertEqual(fields[3][0], service["source"][0], line)
            self.assertIn(int(fields[1]) * (10**6 if service["source"][0] == "S" else 1),
                          [service["frequencyHz"], service["frequencyHz"] // 1000], line)
        self.assertTrue(re.match(r"Nordlicht Eins.*:11361:[A-Z0-9]*M5", back[0]), back[0])

    def test_vdr_gets_no_service_without_an_id(self):
        own = self.folder / "own.conf"
        lines = CHANNELS.read_text(encoding="utf-8").splitlines(keepends=True)
        lines.insert(2, "Nothing:11523:HC23M5S1:S19.2E:22000:1:2:0:0:0:1:1:0\n")
        own.write_text("".join(lines), encoding="utf-8")
        exported = Tv(self.folder, "a", channels=own).tv("export", "--format", "vdr")
        self.assertEqual(exported.errors, "2 Nothing: left out: VDR takes no service id 0\n")
        self.assertNotIn("Nothing", exported.text)
        self.assertIn(":@3\n", exported.text, "the services behind it keep their numbers")

    def test_m3u_names_each_service_by_its_uri(self):
        text = Tv(self.folder, "a", channels=CHANNELS).tv("export", "--format", "m3u").text
        self.assertTrue(text.startswith("#EXTM3U\n"))
        self.assertIn('group-title="Nordlicht",Nordlicht Eins\ndvb://1.3f3.2b5c\n', text)
        self.assertEqual(text.count("dvb://"), 15)


class Scripts(Story):
    def test_two_tvs_made_alike_give_equal_bundles(self):
        bundles = []
        for cloud in "one", "two":
            Tv(self.folder, cloud + "-tv", cloud=cloud, channels=CHANNELS, serial="SAME").tv("run")
            bundles.append(next(self.folder.glob(f"{cloud}/*/*/000001/bundle.zip")))
        self.assertTrue(filecmp.cmp(*bundles, shallow=False))

    def test_two_runs_are_compared(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        for day in "+1d", "+2d":  # names of bundles bear the time
            tv.tv("set", "clock", day)
            tv.tv("run")
        self.assertRegex(tv.tv("record", 1, 2).text, r"(?s)^- run 1 .*\+ run 2 .*\n +\d+ moments in both\n$")
        tv.tv("run", "operation=restore")
        tv.tv("fault", "add", "bnr_response", "delay=1000")
        tv.tv("fault", "add", "IUtil::RestoreIssDbArchive", "result=0")
        tv.tv("set", "favname1", "other")
        tv.tv("run", "operation=restore", "--backup", 1)
        lines = tv.tv("record", 3, 4, code=1).text.splitlines()
        self.assertEqual(lines[2:11], [
            "backup", "- 000002", "+ 000001", "faults", "- none", "+ rule 1 fired 1 time, first at call 1 of "
            "bnr_response; rule 2 fired 1 time, first at call 1 of IUtil::RestoreIssDbArchive", "favname1",
            "- already equal", "+ restored"])
        self.assertRegex("\n".join(lines[12:]), r"""^           \d+ moments in both
-    2.500  call  bnr_response\(102, .*\)
\+    3.500  call  bnr_response\(102, .*\)   \[fault rule 1\]
           \d+ moments in both
-    2.500  call  IUtil::RestoreIssDbArchive\(.*\) = 1
-    2.500  log 4 .*: Succesfully restored iss database!
\+    3.500  call  IUtil::RestoreIssDbArchive\(.*\) = 0   \[fault rule 2\]
\+    3.500  log 6 .*: Failed to restore iss database!
           \d+ moments in both$""")
        difference = tv.tv("record", 3, 4, "--calls", "--json", code=1).json
        self.assertEqual([list(each)[0] for each in difference["timeline"]],
                         ["both", "left", "right", "both", "left", "right", "both"])
        calls = tv.tv("record", 3, "--calls", "--json").json["timeline"]
        self.assertEqual(sum(each.get("both", "left" in each) for each in difference["timeline"]), len(calls))
        self.assertIn("no run 9", tv.tv("record", 1, 9, code=3).errors)

    def test_a_fleet_is_counted_and_what_failed_is_named(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        fleet = ["fleet", "run", "--tvs", 5, "--jobs", 2, "--json"]
        self.assertEqual(tv.tv(*fleet).json["outcomes"], {"done": 5})
        (self.folder / "fleet/tv-00003/service-db/services.db").unlink()
        tv.tv("--home", self.folder / "fleet/tv-00004", "set", "antenna", "2")
        report = tv.tv(*fleet, "operation=restore", code=1).json
        self.assertEqual(report["outcomes"], {"done": 4, "refused": 1})
        self.assertEqual([each["tv"] for each in report["failures"]], ["tv-00004"])
        accounts = {each["account"] for each in tv.tv("cloud", "list", "--json").json["backups"]}
        self.assertEqual(accounts, {f"tv-0000{i}" for i in range(1, 6)})
        failed = tv.tv("--cloud", "none", "fleet", "run", "--tvs", 7, "operation=restore", code=1).text
        self.assertRegex(failed, r"\n  tv-00001, (tv-\d+, ){3}tv-\d+ and others\n")

    def test_the_tvs_of_a_fleet_have_the_channels_of_this_one(self):
        own = self.folder / "own.conf"
        own.write_text(CHANNELS.read_text(encoding="utf-8") + ":Empty\n", encoding="utf-8")
        tv = Tv(self.folder, "a", channels=own)
        with sqlite3.connect(tv.home / "service-db/services.db") as database:  # as another maker's may count
            database.execute("UPDATE channel_groups SET number = number + 5")
            database.execute("UPDATE services SET channel_group = channel_group + 5")
        database.close()
        tv.tv("fleet", "run", "--tvs", 1)
        channels = tv.tv("export", "--format", "vdr").text
        self.assertEqual(tv.tv("export", self.folder / "fleet/tv-00001", "--format", "vdr").text, channels)
        self.assertEqual(channels, own.read_text(encoding="utf-8"))

    def test_an_interrupted_fleet_goes_on(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        fleet = ["fleet", "run", "--tvs", "40", "--jobs", "2", "--json"]
        environment = dict(os.environ, HALCYON_TV_HOME=str(tv.home), HALCYON_CLOUD=str(tv.cloud))
        process = subprocess.Popen(["halcyon-tv", *fleet], env=environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        self.addCleanup(process.kill)
        deadline = time.monotonic() + 60
        while not list(self.folder.glob("cloud/@*")):
            self.assertIsNone(process.poll())
            self.assertLess(time.monotonic(), deadline, "no TV is backed up")
        process.send_signal(signal.SIGINT)
        report = json.loads(process.communicate(timeout=60)[0])
        self.assertLess(report["runs"], 40)
        report = tv.tv(*fleet).json
        self.assertEqual((report["runs"], report["outcomes"]), (40, {"done": 40}))
        self.assertLess(report["runsNow"], 40)
        self.assertEqual(len(tv.tv("cloud", "list", "--json").json["backups"]), 40, "none has run twice")
        self.assertEqual(tv.tv(*fleet).json["runsNow"], 40, "the next round")

    def test_a_round_of_a_fleet_keeps_to_its_request(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        self.assertIn("did you mean 'restore'?", tv.tv("fleet", "run", "--tvs", 1, "operation=restor", code=2).errors)
        fleet = ["fleet", "run", "--tvs", 2, "--json"]
        tv.tv(*fleet)
        notes = self.folder / "fleet/.fleet.jsonl"
        lines = notes.read_text().splitlines()
        begun = [line for line in lines if "newest" not in line and "isComplete" not in line]
        notes.write_text("\n".join(begun) + '\n{"tv":"tv-0000')
        for words, named in [(["--cloud", self.folder / "other"], "other"),
                             (["operation=restore"], "operation=restore"),
                             (["--channels", CHANNELS], str(CHANNELS))]:
            errors = tv.tv(*fleet, *words, code=3).errors
            self.assertIn(named, errors)
            self.assertIn("the cloud " + str(tv.cloud), errors)
        answer = tv.tv("fleet", "run", "--tvs", 3, "--json")
        self.assertEqual((answer.json["runs"], answer.json["runsNow"]), (3, 1))
        self.assertIn("1 note cannot be read", answer.errors)
        self.assertEqual(tv.tv(*fleet).json["runsNow"], 2, "the next round")

    def test_a_fleet_knows_the_run_that_a_kill_has_cut_off(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        fleet = ["fleet", "run", "--tvs", 2, "--json"]
        tv.tv(*fleet)
        notes = self.folder / "fleet/.fleet.jsonl"
        title = notes.read_text().splitlines()[0]
        notes.write_text(title + '\n{"tv":"tv-00001","newest":0}\n{"tv":"tv-00002","newest":1}\n')
        self.assertEqual(tv.tv(*fleet).json["outcomes"], {"done": 2})
        accounts = [each["account"] for each in tv.tv("cloud", "list", "--json").json["backups"]]
        self.assertEqual(accounts, ["tv-00001", "tv-00002", "tv-00002"], "the first had run, the second had not")

    def test_what_failed_in_a_fleet_is_run_again_alone(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        fleet = ["fleet", "run", "--tvs", 3, "--json"]
        self.assertIn("no round has run", tv.tv(*fleet, "--failed", code=3).errors)
        tv.tv(*fleet)
        second = self.folder / "fleet/tv-00002"
        tv.tv("--home", second, "fault", "add", "bnr_backup", "result=-1")
        self.assertEqual(tv.tv(*fleet, code=1).json["outcomes"], {"done": 2, "failed": 1})
        report = tv.tv(*fleet, "--failed").json
        self.assertEqual((report["runsNow"], report["outcomes"]), (1, {"done": 3}))

    def test_a_snapshot_brings_everything_back(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        tv.tv("set", "favname1", "Mine")
        tv.tv("run", "-q")
        tv.tv("snapshot", "mine")
        mine = tv.tv("status", "--json").text
        tv.tv("fault", "add", "bnr_backup", "result=6", "--times", "0")
        tv.tv("set", "service", "3")
        tv.tv("reset")
        self.assertEqual(tv.tv("status", "--json").json["favourites"][0], "Favourites 1")
        self.assertEqual(tv.tv("fault", "list", "--json").json["rules"], [])
        tv.tv("record", code=3)
        tv.tv("reset", "mine")
        self.assertEqual(tv.tv("status", "--json").text, mine)
        self.assertEqual(tv.tv("record", "--json").json["outcome"], "done")
        self.assertEqual(tv.tv("snapshot", "--json").json["snapshots"], ["init", "mine"])
        self.assertIn("it has: init, mine", tv.tv("reset", "yours", code=3).errors)
        self.assertIn("is not a valid name for a snapshot", tv.tv("snapshot", "../up", code=3).errors)

    def test_exit_codes_say_what_became_of_a_run(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        for code, fault, words in [(7, None, "operation=restore"), (0, None, ""), (0, None, "operation=restore"),
                                   (1, "bnr_backup result=-1", ""), (7, "bnr_response result=503", ""),
                                   (4, "IUtil::GetIssDbArchive damage=corrupt", ""),
                                   (6, "bnr_response damage=truncate", "operation=restore --backup 000001"),
                                   (1, "bnr_response lost", "operation=restore --backup 000001")]:
            with self.subTest(code=code, fault=fault):
                tv.tv("fault", "clear")
                if fault:
                    tv.tv("fault", "add", *fault.split())
                answer = tv.tv("run", "-q", "--expect-faults", *words.split(), code=code)
                self.assertEqual(answer.text.startswith("run "), code == 0, "the why line leads")
                self.assertEqual(fault is None, "fault rule" not in answer.text)
        tv.tv("fault", "clear")
        tv.tv("fault", "add", "bnr_deinit", "result=-1")
        done = tv.tv("run", "--json").json
        self.assertEqual((done["outcome"], done["faults"]),
                         ("done", [{"rule": 1, "call": "bnr_deinit", "nth": 1, "fired": 1}]))
        self.assertIn("rule 1 fired 1 time, first at call 1 of bnr_deinit", tv.tv("record", "-q").text)
        tv.tv("fault", "add", "vconf_set_int", "throw")
        self.assertIn("did not fire", tv.tv("run", "-q", "--expect-faults", code=9).errors)

    def test_a_typing_error_is_not_a_backup(self):
        tv = Tv(self.folder, "a")
        for words, hint in [("run operation=resotre", "did you mean 'restore'?"),
                            ("run operatoin=restore", "did you mean 'operation'?"),
                            ("run --backup 000001", "means nothing for a backup"), ("stauts", "did you mean 'status'?"),
                            ("cloud lits", "did you mean 'list'?"), ("run --expct-faults", "'--expect-faults'?")]:
            with self.subTest(words):
                self.assertIn(hint, tv.tv(*words.split(), code=2).errors)
        for words, hint in [("fault add IUtil::GetServiceDB throw", "did you mean 'IUtil::GetServiceDb'?"),
                            ("fault add bnr_response los", "did you mean 'lost'?"),
                            ("set antena 0", "did you mean 'antenna'?")]:
            with self.subTest(words):
                self.assertIn(hint, tv.tv(*words.split(), code=3).errors)
        self.assertEqual(tv.tv("cloud", "list", "--json").json["backups"], [], "nothing was launched")
        tv.tv("run", "-q", "operation=resotre", "--as-is")

    def test_options_stand_anywhere_and_help_needs_no_tv(self):
        tv = Tv(self.folder, "a")
        first = tv.tv("--json", "cloud", "list").json
        self.assertEqual(first, tv.tv("cloud", "list", "--json", "--home", tv.home, "--cloud", tv.cloud).json)
        environment = dict(os.environ, HALCYON_TV_HOME="/nowhere")
        for program in "halcyon-tv", "halcyon-lineup":
            for option in "--help", "--version":
                answer = Answer(subprocess.run([program, option], env=environment, text=True, capture_output=True))
                self.assertEqual((answer.code, answer.errors), (0, ""))
        for words in "init status set apply snapshot reset run record fault cloud bundle diff export".split():
            self.assertIn("Example: ", tv.tv(words, "--help").text)

    def test_the_record_is_one_timeline(self):
        tv = Tv(self.folder, "a")
        tv.tv("run", "-q")
        tv.tv("set", "antenna", "1")
        tv.tv("run", "-q", "operation=restore", code=5)
        moments = tv.tv("record", "--json").json["timeline"]
        self.assertEqual([m["seq"] for m in moments], sorted(m["seq"] for m in moments))
        self.assertEqual(max(m["atMs"] for m in moments), 2500)
        decisive = [m["log"]["message"] for m in moments if m["isDecisive"]]
        self.assertEqual(decisive, ["Current antenna status=[0x2] != Backup antenna status=[0x1]"])
        once = [m["log"] for m in moments if m["log"]]
        self.assertEqual({log["sink"] for log in once}, {"both"})
        both = tv.tv("record", "--json", "--log", "--sinks").json["timeline"]
        self.assertEqual(len(both), 2 * len(once))
        failures = tv.tv("record", "--json", "--priority", "6").json["timeline"]
        self.assertEqual({m["log"]["priority"] for m in failures}, {6})
        replies = tv.tv("record", "--json", "--call", "bnr_report_failure").json["timeline"]
        self.assertEqual([m["call"]["name"] for m in replies], ["bnr_report_failure"])
        self.assertEqual(len(tv.tv("record", "--json", "--grep", "antenna status=").json["timeline"]), 1)


class Signals(Story):
    """What waits for a store that never answers ends by the first signal."""
    def setUp(self):
        super().setUp()
        self.store = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(self.store.close)
        self.store.settimeout(60)
        self.environment = dict(
            os.environ, HALCYON_TV_HOME=str(self.folder / "a"), HALCYON_CLOUD="s3://lab", HALCYON_CLOUD_STALL="600",
            AWS_ENDPOINT_URL=f"http://127.0.0.1:{self.store.getsockname()[1]}", AWS_ACCESS_KEY_ID="k",
            AWS_SECRET_ACCESS_KEY="s", AWS_REGION="r")
        self.tv = Tv(self.folder, "a")

    def begin(self, *words):
        process = subprocess.Popen(words, env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def wait_for_a_request(self):
        connection, _ = self.store.accept()
        self.addCleanup(connection.close)

    def test_a_signal_ends_the_verdict_too(self):
        tool, services, application = (self.folder / "bin" / name for name in ("tool", "halcyon-tv", "halcyon-lineup"))
        tool.parent.mkdir()
        shutil.copy(shutil.which(services.name), tool)
        application.symlink_to(shutil.which(application.name))
        # The verdict alone asks the store: the run is content with a folder.
        services.write_text(f'#!/bin/sh\nHALCYON_CLOUD={self.tv.cloud} exec {shutil.which(services.name)} "$@"\n')
        services.chmod(0o755)
        for end in signal.SIGINT, signal.SIGTERM:
            process = self.begin(tool, "run", "-q", "operation=restore")
            self.wait_for_a_request()
            process.send_signal(end)
            process.communicate(timeout=20)
            self.assertEqual(process.returncode, -end)
        self.assertEqual(self.tv.tv("record", "--json").json["cause"], "nothing stored", "it is judged now")

    def test_a_signal_ends_the_server_and_what_it_is_at(self):
        process = self.begin("halcyon-tv", "serve", "--port", "0")
        origin, token = process.stdout.readline().strip().split("/#")
        connection = http.client.HTTPConnection(origin.split("/")[-1])
        self.addCleanup(connection.close)
        connection.request("GET", "/api/cloud", headers={"X-Halcyon-Token": token})
        self.wait_for_a_request()
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=20)
        self.assertEqual(process.returncode, 0)


class Shrunk(Story):
    def test_a_newest_backup_with_few_of_the_channels_is_warned_of(self):
        tv = Tv(self.folder, "a", channels=CHANNELS)
        self.assertEqual(tv.tv("run", "--json").json["warning"], "")
        small = Tv(self.folder, "b")
        warning = small.tv("run", "--json").json["warning"]
        self.assertIn("backup 000002 has 2 channels, and 000001 before it had 15", warning)
        self.assertIn("warning: " + warning, small.tv("record", "-q").text)
        self.assertIn("warning: " + warning, tv.tv("cloud", "list").text)
        self.assertEqual(tv.tv("cloud", "list", "--json").json["warnings"], [warning])
        tv.tv("run", "-q")
        self.assertEqual(tv.tv("cloud", "list", "--json").json["warnings"], [], "the newest is whole again")


class Quiet(Story):
    def test_the_log_is_shown_if_asked_for_or_if_the_run_fails(self):
        tv = Tv(self.folder, "a")
        self.assertEqual(tv.tv("run").errors, "")
        self.assertIn("I/halcyon-lineup: ", tv.tv("run", "-v").errors)
        loose = tv.tv("run", "--no-sandbox").errors.splitlines()
        self.assertEqual(len(loose), 1, "what the TV complains of is no log")
        self.assertIn("it is not confined", loose[0])
        tv.tv("fault", "add", "bnr_backup", "result=-1")
        failed = tv.tv("run", code=1)
        self.assertTrue(failed.text.startswith("failed: "))
        self.assertIn("all of it: halcyon-tv record 4 --log\n", failed.errors)
        self.assertRegex(failed.errors, "log 6 .*bnr_backup")


class Kept(Story):
    def test_the_failure_folder_keeps_a_bundle_with_its_metadata(self):
        tv = Tv(self.folder, "a")
        tv.tv("fault", "add", "bnr_backup", "result=-1")
        tv.tv("run", "-q", code=1)
        bundle = next(tv.home.glob("tmp/halcyon-lineup/*.zip"))
        shown = tv.tv("bundle", "verify", bundle, "--json").json
        self.assertEqual(shown["metadata"]["version"], "0.3")
        self.assertTrue(shown["restore"]["isPossible"])
        tv.tv("set", "antenna", "4")
        self.assertIn("halcyon-tv set antenna 0", tv.tv("bundle", "verify", bundle, "--for", tv.home, code=5).text)

    def test_no_later_backup_gets_the_number_of_one_that_was_removed(self):
        tv = Tv(self.folder, "a")
        for expected in "000001", "000002":
            self.assertEqual(tv.tv("run", "--json").json["backup"], expected)
            tv.tv("cloud", "remove", expected)
        self.assertIn("holds no backup 000001", tv.tv("cloud", "remove", "000001", code=3).errors)


if __name__ == "__main__":
    unittest.main()
