"""What three users come for: a restore that was refused, a hundred faults by script, a customer's bundle."""
import concurrent.futures
import pathlib
import re
import shutil
import sqlite3
import unittest
import zipfile

from halcyon import DATA, Story, Tv

CHANNELS = DATA / "channels.conf"


class Refused(Story):
    def test_the_first_line_alone_leads_to_the_fix(self):
        Tv(self.folder, "a", channels=CHANNELS).tv("run")
        b = Tv(self.folder, "b")
        b.tv("set", "antenna", "0,2")
        why = b.tv("run", "-q", "operation=restore", code=5).text.splitlines()[0]
        self.assertRegex(why, r"terrestrial \(0\), and this TV has terrestrial \(0\), satellite \(2\)")
        command = re.search(r"halcyon-tv (set antenna \S+)", why)[1]
        b.tv(*command.split())
        b.tv("run", "operation=restore")
        b.tv("diff", self.folder / "a")


class Faults(Story):
    """Each run's verdict depends on the fault alone: not on the TV, the round or what ran beside it."""

    TVS = 8
    RUNS = 40

    def verdict(self, tv, fault):
        call, failure = fault
        tv.tv("reset")
        tv.tv("fault", "add", call, failure)
        answer = tv.tv("run", "operation=restore", "--backup", "000001", "--json", code=None)
        verdict = answer.json
        verdict["why"] = re.sub(r"/\S+", "PATH", verdict["why"])
        verdict.pop("backup")  # a request that cannot be read makes one more
        return answer.code, verdict

    def test_forty_in_parallel_twice_are_the_same(self):
        tvs = []
        for i in range(self.TVS):
            tv = Tv(self.folder, f"tv{i}", cloud=f"cloud{i}", serial="same")
            tv.tv("run", "-q")
            tv.tv("set", "favname1", "Mine")
            tv.tv("snapshot", "init")
            tvs.append(tv)
        calls = tvs[0].tv("fault", "calls", "--json").json["calls"]
        faults = [(each["call"], failure) for each in calls for failure in each["failures"]][:self.RUNS]
        self.assertEqual(len(faults), self.RUNS)

        def share(i, shift):
            return [self.verdict(tvs[(i + shift) % self.TVS], fault) for fault in faults[i::self.TVS]]

        with concurrent.futures.ThreadPoolExecutor(self.TVS) as pool:
            first = list(pool.map(lambda i: share(i, 0), range(self.TVS)))
            second = list(pool.map(lambda i: share(i, 3), range(self.TVS)))
        self.assertEqual(first, second)
        codes = [code for each in first for code, _ in each]
        self.assertGreater(len(set(codes)), 2)


class Customer(Story):
    """A bundle from outside: its iss database is damaged, one channel has another name."""

    def make_bundle(self):
        a = Tv(self.folder, "a", channels=CHANNELS)
        a.tv("run", "-q")
        stored = next(self.folder.glob("cloud/*/*/000001"))
        work = self.folder / "work"
        with zipfile.ZipFile(stored / "bundle.zip") as bundle:
            bundle.extractall(work)
        with zipfile.ZipFile(work / "ServiceDB.zip") as archive:
            archive.extractall(work / "db")
        with sqlite3.connect(work / "db/services.db") as database:
            database.execute("UPDATE services SET name = 'Grandma TV' WHERE name = 'Hafen TV'")
        database.close()
        with zipfile.ZipFile(work / "ServiceDB.zip", "w") as archive:
            archive.write(work / "db/services.db", "services.db")
        shutil.rmtree(work / "db")
        (work / "issDB.zip").write_bytes(b"rubbish")
        with zipfile.ZipFile(self.folder / "customer.zip", "w") as bundle:
            for file in filter(pathlib.Path.is_file, work.rglob("*")):
                bundle.write(file, file.relative_to(work))
        shutil.copy(stored / "metadata.json", self.folder / "customer.zip.json")
        shutil.rmtree(self.folder / "cloud")

    def test_is_verified_compared_exported_imported_and_restored(self):
        self.make_bundle()
        b = Tv(self.folder, "b")
        verified = b.tv("bundle", "verify", "customer.zip", "--json", code=6).json
        self.assertEqual([part["item"] for part in verified["items"] if part["state"] == "damaged"], ["iss"])
        self.assertTrue(verified["restore"]["isPossible"])
        shown = b.tv("bundle", "verify", "customer.zip", code=6).text
        self.assertIn("A restore on this TV: done in part\n", shown)

        difference = b.tv("diff", "a", "customer.zip", "--json", code=6).json
        self.assertEqual([pair["right"]["name"] for pair in difference["services"]["renamed"]], ["Grandma TV"])
        self.assertIn("Grandma TV,Hafen;Küstenfunk:11523:", b.tv("export", "customer.zip", "--format", "vdr").text)

        b.tv("cloud", "import", "customer.zip", code=6)
        restored = b.tv("run", "-q", "operation=restore", "--json", code=4).json
        self.assertEqual(restored["outcome"], "done in part")
        self.assertEqual({item["item"] for item in restored["items"] if not item["isWell"]}, {"iss"})
        self.assertEqual(restored["items"], verified["restore"]["items"], "as it was foretold")
        names = [service["name"] for service in b.tv("status", "--services", "--json").json["channels"]]
        self.assertIn("Grandma TV", names)

    def test_whose_settings_crash_the_restore_is_foretold_to_do_so(self):
        self.make_bundle()
        name = '{"path":"db/menu/broadcasting/channel_manager/favname1","type":1,"value":"Oma"}'
        with zipfile.ZipFile(self.folder / "customer.zip", "a") as bundle:
            other = name.replace("favname1", "favname2")
            bundle.writestr("./vconf.json", '{"dataSize":5,"data":[%s,%s]}' % (name, other))
        b = Tv(self.folder, "b")
        verified = b.tv("bundle", "verify", "customer.zip", "--json", code=6).json
        foretold = verified["restore"]
        self.assertIn("vconf.json: dataSize is 5, and it holds 2 settings; the application ends there",
                      verified["problems"])
        self.assertEqual((foretold["isPossible"], foretold["outcome"]), (False, "crashed"))
        states = {item["item"]: item["state"] for item in foretold["items"]}
        self.assertEqual([states[item] for item in ("channels", "favname1", "favname3", "ci")],
                         ["restored", "restored", "damaged", "differs"])
        b.tv("cloud", "import", "customer.zip", code=6)
        run = b.tv("run", "-q", "operation=restore", "--json", code=6).json
        self.assertEqual((run["outcome"], run["items"]), (foretold["outcome"], foretold["items"]))

    def test_with_a_ci_file_that_cannot_be_read_has_no_ci_files(self):
        self.make_bundle()
        bundle = self.folder / "customer.zip"
        content = (self.folder / "a/ci/ci_profile.bin").read_bytes()
        bundle.write_bytes(bundle.read_bytes().replace(content, content[::-1]))
        verified = Tv(self.folder, "b").tv("bundle", "verify", bundle, "--json", code=6).json
        ci = next(part for part in verified["items"] if part["item"] == "ci")
        self.assertEqual((ci["state"], ci["problem"]),
                         ("damaged", "entry 'ci/ci_profile.bin': its data do not match their checksum"))

    def test_without_its_metadata_is_accepted_as_such(self):
        self.make_bundle()
        (self.folder / "customer.zip.json").unlink()
        b = Tv(self.folder, "b")
        self.assertIsNone(b.tv("bundle", "show", "customer.zip", "--json", code=6).json["metadata"])
        b.tv("set", "antenna", "Terrestrial,satellite")
        b.tv("cloud", "import", "customer.zip", code=6)
        shown = b.tv("bundle", "show", "000001", code=6)
        self.assertIn("watching   none saved: a restore leaves the TV's as it is", shown.text)
        self.assertNotRegex(shown.text + b.tv("diff", "1", code=6).text, r"[(/]-1|18446744073709551615|unknown \(")
        b.tv("run", "-q", "operation=restore", code=4)
        b.tv("cloud", "remove", "000001")
        b.tv("run", "-q", "operation=restore", code=7)


class Damaged(Story):
    """One bundle in each state that support receives it in: each command says the same first, with one exit code."""

    def commands(self, bundle):
        return [("bundle", "verify", bundle), ("bundle", "show", bundle), ("diff", bundle), ("cloud", "import", bundle),
                ("export", bundle, "--format", "vdr")]

    def test_files_are_named_for_what_they_are(self):
        a = Tv(self.folder, "a")
        a.tv("run", "-q")
        good = next(self.folder.glob("cloud/*/*/000001/bundle.zip")).read_bytes()
        files = {
            "empty.zip": (b"", "no zip archive, but empty"),
            "zeros.zip": (bytes(5000), "no zip archive, but nothing but zeros"),
            "page.zip": (b"<!DOCTYPE html><p>Sign in", "no zip archive, but a web page (HTML)"),
            "cut.zip": (good[:-600], "cut off: the directory at its end is missing; still whole in it: 'issDB.zip', "),
        }
        for name, (content, expected) in files.items():
            (self.folder / name).write_bytes(content)
            for words in self.commands(name):
                with self.subTest(name=name, words=words):
                    answer = a.tv(*words, code=6)
                    said = (answer.text + answer.errors).splitlines()
                    self.assertIn(expected, said[0])
                    self.assertNotIn("entry  ", answer.text, "no table of guesses")
        self.assertEqual(len(a.tv("cloud", "list", "--json").json["backups"]), 1, "none was imported")

    def test_archives_are_named_for_how_they_were_packed(self):
        a = Tv(self.folder, "a")
        a.tv("run", "-q")
        good = next(self.folder.glob("cloud/*/*/000001/bundle.zip"))
        with zipfile.ZipFile(good) as source, zipfile.ZipFile(self.folder / "deep.zip", "w") as deep:
            for name in source.namelist():
                deep.writestr("backup/" + name, source.read(name))
        with zipfile.ZipFile(self.folder / "outer.zip", "w") as outer:
            outer.write(good, "customer.zip")
        with zipfile.ZipFile(self.folder / "other.zip", "w") as other:
            other.writestr("photo.jpg", "")
        for name, expected in [("deep.zip", "packed with its folder 'backup'"),
                               ("outer.zip", "it holds the archive 'customer.zip', which may be the bundle"),
                               ("other.zip", "a zip archive with nothing of a bundle in it")]:
            for words in self.commands(name):
                with self.subTest(words):
                    answer = a.tv(*words, code=6)
                    self.assertIn(expected, (answer.text + answer.errors).splitlines()[0])

    def test_metadata_belong_to_a_bundle_by_name(self):
        a = Tv(self.folder, "a")
        a.tv("run", "-q")
        stored = next(self.folder.glob("cloud/*/*/000001"))
        shutil.copy(stored / "bundle.zip", self.folder / "good.zip")
        same = a.tv("diff", "good.zip", "good.zip").text
        self.assertIn("viewing    same       (the backup's metadata is not known)", same)
        shutil.copy(stored / "metadata.json", self.folder)
        self.assertIn("metadata   not known", a.tv("bundle", "show", "good.zip").text)
        shutil.copy(stored / "metadata.json", self.folder / "good.zip.json")
        self.assertIn("metadata   version 0.3, from good.zip.json", a.tv("bundle", "show", "good.zip").text)
        self.assertIn("from " + str(stored), a.tv("bundle", "show", stored / "bundle.zip").text)
        (self.folder / "good.zip.json").write_text("{")
        for words in self.commands("good.zip"):
            self.assertIn("good.zip.json: the metadata of good.zip, but no JSON text", a.tv(*words, code=3).errors)
        self.assertIn("is a folder; give the bundle file in it", a.tv("bundle", "show", stored, code=3).errors)


if __name__ == "__main__":
    unittest.main()
