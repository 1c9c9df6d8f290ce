"""Scenarios: the examples are what they say; what is not as expected and what is wrong with a file is named by its
place."""
import json
import os
import re
import unittest
import xml.etree.ElementTree

from halcyon import DATA, Story, Tv, halcyon_tv

EXAMPLES = sorted((DATA / "scenarios").glob("*.yaml"))
TVS = f"tvs: {{a: {{channels: {DATA}/channels.conf}}}}\n"


class Play(Story):
    def play(self, text, *words, code):
        file = self.folder / "case.yaml"
        file.write_text(text)
        return halcyon_tv("play", "case.yaml", *words, folder=self.folder, code=code)

    def test_the_examples_pass(self):
        answer = halcyon_tv("play", *EXAMPLES, "--jobs", 2, "--junit", "report.xml", folder=self.folder)
        self.assertEqual([line.split()[0] for line in answer.text.splitlines()[:-1]], ["passed"] * 3)
        self.assertEqual([line.split()[1] for line in answer.text.splitlines()[:-1]], [f"{e}:" for e in EXAMPLES])
        suite = xml.etree.ElementTree.parse(self.folder / "report.xml").getroot()[0]
        self.assertEqual((suite.get("tests"), suite.get("failures"), suite.get("errors")), ("3", "0", "0"))
        self.assertEqual({case.get("classname") for case in suite}, {str(each) for each in EXAMPLES})

    def test_the_example_in_the_documentation_is_what_it_says(self):
        page = (DATA.parent / "docs/scenarios.md").read_text()
        text, shown = re.search(r"```yaml\n(.*?)```.*?\$ halcyon-tv play case.yaml\n(.*?)```", page, re.DOTALL).groups()
        for name in "channels.conf", "factory.conf":
            (self.folder / name).symlink_to(DATA / name)
        self.assertEqual(self.play(text, code=1).text, shown)

    def test_a_clock_stands_if_the_file_says_so(self):
        """Then a second backup has the bytes of the first."""
        for still, response in ("true", "duplicated data"), ("false", "backup completed"):
            with self.subTest(still=still):
                tvs = TVS.replace("conf}", f"conf, now: 2026-12-31T23:59:59Z, still: {still}}}")
                run = f"  - run: a\n    refuse_duplicates: true\n    expect: {{response: {response}}}\n"
                self.play(tvs + "steps:\n  - run: a\n" + run, code=0)

    def test_a_bundle_has_the_metadata_beside_it(self):
        tv = Tv(self.folder, "tv")
        tv.run()
        stored = next(self.folder.glob("cloud/*/*/000001"))
        (self.folder / "b.zip").write_bytes((stored / "bundle.zip").read_bytes())
        metadata = (stored / "metadata.json").read_text()
        text = TVS + """steps:
  - bundle: b.zip
  - run: a
    operation: restore
    expect: {outcome: %s}
"""
        self.play(text % "done", code=0)  # made up
        (self.folder / "b.zip.json").write_text(metadata.replace("0.3", "0.2"))
        self.play(text % "refused", code=0)

    def test_everything_that_is_not_as_expected_is_named(self):
        text = TVS + """steps:
  - run: a
    expect:
      outcome: failed
      cause: cloud
      reply: 0
      response: error
      ended: reclaimed
      items: {iss: restored, channels: stored}
      calls: [bnr_restore, bnr_backup, {call: bnr_backup, count: 2}]
      log: ["never said", "bnr init success"]
      faults: [1]
      store: 2
  - run: a
    operation: restore
    backup: 7
  - run: a
"""
        answer = self.play(text, "--junit", "report.xml", code=2)
        self.assertEqual(answer.text.splitlines(), [
            "broken  case.yaml: case",
            "  case.yaml:5:16: outcome: expected failed, and it was done",
            "  case.yaml:6:14: cause: expected cloud, and it was none",
            "  case.yaml:7:14: reply: expected 0, and it was none",
            "  case.yaml:8:17: response: expected error, and it was backup completed",
            "  case.yaml:9:14: ended: expected reclaimed, and it was exit",
            "  case.yaml:10:20: items iss: expected restored, and it was stored",
            "  case.yaml:11:15: calls bnr_restore: expected at least one, and it was 0",
            "  case.yaml:11:47: calls bnr_backup: expected 2, and it was 1",
            "  case.yaml:12:13: log never said: expected at least one, and it was none",
            "  case.yaml:13:15: faults: expected 1, and it was none",
            "  case.yaml:14:14: store: expected 2, and it was 1",
            answer.text.splitlines()[-1]])
        self.assertRegex(answer.text, r"\n  case.yaml:17:13: .* holds no backup 7")
        suite = xml.etree.ElementTree.parse(self.folder / "report.xml").getroot()[0]
        self.assertEqual((suite.get("failures"), suite.get("errors")), ("0", "1"))
        self.assertEqual(suite[0][0].tag, "error")
        self.assertEqual(len(suite[0][0].text.splitlines()), 12)

    def test_a_fault_is_for_one_run_and_a_restored_tv_is_the_same(self):
        tvs = TVS.replace("conf}", f"conf, set: {{favname2: Kids}}}}, b: {{channels: {DATA}/factory.conf}}")
        text = tvs + """steps:
- run: a
- {fault: b, call: vconf_set_str, failure: result=-1, in_run: 2, times: 0}
- {run: b, operation: restore, expect: {same_as: a, broken: [], faults: []}}
- {set: b, to: {favname2: Mine}}
- {run: b, operation: restore, expect: {same_as: a, broken: [log, end], faults: [1]}}
- {run: b, operation: restore, expect: {same_as: a}}
"""
        self.assertEqual(self.play(text, code=1).text.splitlines()[1:], [
            "  case.yaml:7:50: same_as: expected a, and it was different: favname2",
            "  case.yaml:7:61: broken: expected end, log, and it was none"])
        self.assertIn("4:12: 'al' is no promise; one of: end, old or new",
                      self.play(tvs + "steps:\n- {run: a, expect: {same_as: c,\n  broken: [al]}}\n", code=2).errors)

    def test_a_failed_one_can_be_looked_at(self):
        text = TVS + "steps:\n- {set: a, to: {scan: on}}\n- {run: a, expect: {store: 2}}\n"
        self.assertEqual(self.play(text, "--json", code=1).json["scenarios"][0]["folder"], None)
        played = self.play(text, "--json", "--keep", "kept", code=1).json["scenarios"][0]
        self.assertEqual((played["state"], len(played["findings"])), ("failed", 1))
        record = halcyon_tv("--home", played["folder"] + "/a", "record", "--json", folder=self.folder).json
        self.assertEqual(record["backup"], "000001")
        self.assertIn("is there already", self.play(text, "--keep", "kept", code=3).errors)

    def test_a_run_without_expectations_must_be_done(self):
        steps = "steps:\n- {fault: a, call: bnr_backup, failure: result=-1}\n- run: a\n"
        self.assertIn("case.yaml:4:3: outcome: expected done, and it was failed: the application says",
                      self.play(TVS + steps, code=1).text)

    def test_what_is_wrong_with_a_file_is_named_by_its_place(self):
        for text, problems in [
                ("tvs: [", ["1:1: this is no YAML: end of sequence flow not found"]),
                ("", ["1:1: pairs of a name and a value belong here"]),
                ("tvs: {}\nstep: []\n", [r"2:1: a scenario has no key 'step' \(did you mean 'steps'\?\); its keys are: "
                                         "name, cloud, tvs, steps", "1:1: a scenario lacks the key 'steps'"]),
                ("tvs: {a: {}, cloud: {channels: no.conf, still: yes}}\nsteps: []\n",
                 ["1:10: a TV has either 'channels'", r"1:32: there is no channel list no\.conf",
                  "1:48: 'yes' is no truth value; one of: true, false", "1:14: a TV cannot be called 'cloud'"]),
                (TVS + "steps: [{}, {run: b}, {set: a}, {run: a, run: a}, {fault: a, call: x, failure: null}]\n",
                 ["2:9: a step begins with one of: run, fault, set, bundle", "2:23: a setting lacks the key 'to'",
                  "2:42: 'run' is there twice", "2:80: a text belongs here",
                  "2:68: the platform has no call 'x'",
                  "2:19: there is no TV 'b'"]),
                (TVS + "steps:\n- fault: a\n  call: bnr_backup\n  failure: [result=-1, damage=emty]\n  nth: one\n",
                 ["6:8: 'one' is not a number that fits here", "5:12: no failure 'damage=emty'"]),
                (TVS + "steps:\n- run: a\n  operation: restor\n  expect: {outcome: dun, items: {tv: x}, calls: [{}]}\n",
                 [r"4:14: 'restor' is no operation \(did you mean 'restore'\?\); one of: backup, restore",
                  r"5:21: 'dun' is no outcome.*; one of: open, done, done in part, refused", "5:34: 'tv' is no item",
                  "5:50: a call lacks the key 'call'; its keys are: call, count"])]:
            with self.subTest(text):
                lines = self.play(text, code=2).errors.removeprefix("halcyon-tv: ").splitlines()
                self.assertEqual(len(lines), len(problems), lines)
                for line, problem in zip(lines, problems):
                    self.assertRegex(line, "^case.yaml:" + problem)

    def test_a_value_that_the_tv_does_not_take_is_named_by_its_place(self):
        text = TVS + "steps:\n- set: a\n  to: {antenna: 0, favname9: x}\n- run: a\n"
        self.assertRegex(self.play(text, code=2).text, r"\n  case.yaml:4:30: cannot set 'favname9' to 'x'")


class Recorded(Story):
    def repeats(self, tv, number):
        """Whether a run's scenario passes, and gives the same verdict and the same timeline."""
        made = self.folder / f"{tv.home.name}-{number}"
        file = tv.tv("record", number, "--as-scenario", made, "--json").json["scenario"]
        kept = self.folder / f"{tv.home.name}-{number}-kept"
        played = halcyon_tv("play", file, "--keep", kept, "--json", folder=self.folder).json
        home = played["scenarios"][0]["folder"] + "/tv"
        again = halcyon_tv("--home", home, "record", "--json", folder=self.folder).text.replace(home, str(tv.home))
        was, new = tv.tv("record", number, "--json").json, json.loads(again)
        self.assertEqual((made / "scenario.yaml").read_text().count("expect:"), 1)
        self.assertEqual({**new, "run": 0, "started": ""}, {**was, "run": 0, "started": ""})
        return was

    def test_a_run_is_repeated_with_the_same_verdict_and_timeline(self):
        old, new = (Tv(self.folder, name, channels=DATA / f"{name}.conf") for name in ("channels", "factory"))
        old.tv("run")
        old.tv("set", "favname1", "Family")
        old.tv("run", "--refuse-duplicates")
        new.tv("fault", "add", "GetTvMode", "result=-1", "--times", 0)
        new.tv("fault", "add", "RestoreIssDbArchive", "result=0", "works", "throw")
        new.tv("set", "favname2", "Oops")
        for words, code in [("--backup 1 --no-reply", 4), ("other=a scan_activated=0", 0), ("", 5), ("", 1)]:
            new.tv("set", "antenna", "2" if code == 5 else "0")
            new.tv("run", "operation=restore", *words.split(), code=code)
        self.assertEqual([self.repeats(old, number)["backup"] for number in (1, 2)], ["000001", "000002"])
        verdicts = [self.repeats(new, number) for number in (1, 2, 3, 4)]
        self.assertEqual([each["outcome"] for each in verdicts], ["done in part", "done", "refused", "crashed"])
        self.assertEqual([{fault["rule"] for fault in each["faults"]} for each in verdicts],
                         [{1, 2}, {1}, {1}, {1, 2}])

    def test_what_a_run_was_is_not_there_any_more(self):
        tv = Tv(self.folder, "a", channels=DATA / "channels.conf")
        for _ in range(11):
            tv.tv("run")
        self.assertIn("what the TV at", tv.tv("record", 1, "--as-scenario", "gone", code=3).errors)
        self.assertFalse((tv.home / "runs/000001.before").exists())
        self.assertTrue(os.path.samefile(tv.home / "runs/000002.before/iss.db", tv.home / "iss.db"))
        tv.tv("run", "operation=restore")
        tv.tv("cloud", "remove", 11)
        self.assertIn("no backup", tv.tv("record", "--as-scenario", "gone", code=3).errors)
        self.assertFalse((self.folder / "gone").exists())
        self.repeats(tv, 11)
        self.assertIn("is something at", tv.tv("record", 11, "--as-scenario", self.folder / "a-11", code=3).errors)


if __name__ == "__main__":
    unittest.main()
