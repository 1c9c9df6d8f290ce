"""Care for the backups of a store, whatever kind it is: a folder, or an object store."""
import os
import unittest
import unittest.mock

from halcyon import Story, Tv
from wild_store import WildStore, environment_of


def setUpModule():
    global store
    store = WildStore()
    unittest.addModuleCleanup(store.stop)


class Care(Story):
    def setUp(self):
        super().setUp()
        patch = unittest.mock.patch.dict(os.environ, environment_of(store))
        patch.start()
        self.addCleanup(patch.stop)

    def clouds(self):
        """A TV with four backups in each kind of store: the second is pinned, the last damaged."""
        bucket = self._testMethodName[-20:].replace("_", "-").strip("-")
        for cloud, other in ("cloud", "other"), (f"s3://{bucket}/p", f"s3://{bucket}/other"):
            tv = Tv(self.folder, "of-" + cloud[:2], cloud=cloud)
            ids = [self.back_up(tv) for _ in range(4)]
            tv.tv("cloud", "pin", ids[1])
            self.damage(cloud, ids[3])
            yield tv, ids, self.folder / other if other == "other" else other

    def back_up(self, tv):
        tv.tv("set", "clock", "+1d")
        return tv.tv("run", "--json").json["backup"]

    def damage(self, cloud, backup):
        if cloud == "cloud":
            bundle = next(self.folder.glob(f"cloud/*/*/{backup}/bundle.zip"))
            bundle.write_bytes(bundle.read_bytes()[:-100])
        else:
            objects = store.bucket(cloud.split("/")[2])[0]
            key = next(key for key in objects if "/v2-" in key and key.endswith(backup.partition("-")[2]))
            objects[key] = objects[key][:-9] + b"x" + objects[key][-8:]

    def listed(self, tv, *words, code=None):
        return [each["id"] for each in tv.tv("cloud", "list", "--json", *words, code=code).json["backups"]]

    def test_backups_are_listed_written_to_files_and_verified(self):
        for tv, ids, _ in self.clouds():
            self.assert_lists(tv, ids)
            self.assert_files(tv, ids)
            self.assert_verified(tv, ids)

    def assert_lists(self, tv, ids):
        self.assertEqual(self.listed(tv, "--last", 2), ids[2:])
        self.assertEqual(self.listed(tv, "--account", "default", "--last", 9), ids)
        self.assertEqual(self.listed(tv, "--account", "nobody", code=0), [])
        pinned = [each["id"] for each in tv.tv("cloud", "list", "--json", code=None).json["backups"]
                  if each["isPinned"]]
        self.assertEqual(pinned, [ids[1]])
        self.assertEqual(tv.tv("cloud", "list", code=None).text.count(" pinned\n"), 1)
        self.assertEqual(tv.tv("cloud", "list", "-v", "--json", code=None).json["foreign"], [])

    def assert_files(self, tv, ids):
        file = tv.home.with_suffix(".zip")
        tv.tv("cloud", "get", ids[0], file)
        self.assertIn("from " + str(file) + ".json", tv.tv("bundle", "show", file).text)
        tv.tv("diff", file, ids[0])
        self.assertIn("is there already", tv.tv("cloud", "get", ids[1], file, code=3).errors)
        tv.tv("cloud", "get", ids[3], "damaged.zip", code=6 if ids[3].count("-") else None)

    def assert_verified(self, tv, ids):
        found = tv.tv("cloud", "verify", "--json", code=6).json
        self.assertEqual((found["verified"], [each["backup"].split("/")[-1] for each in found["damaged"]]),
                         (1, [ids[3]]))
        self.assertEqual(found["damaged"][0]["whole"].split("/")[-1], ids[2])
        self.assertEqual(tv.tv("cloud", "verify", ids[0], ids[1], "--json").json["verified"], 2)
        parts = [tv.tv("cloud", "verify", "--all", "--part", f"{n}/3", "--json", code=None) for n in (1, 2, 3)]
        self.assertEqual((sum(part.json["verified"] for part in parts), sorted(part.code for part in parts)),
                         (4, [0, 0, 6]))

    def test_what_is_forgotten_is_never_the_last_whole_one_nor_a_pinned_one(self):
        for tv, ids, _ in self.clouds():
            words = ["cloud", "forget", "--keep-last", 1]
            self.assertIn("Give --account NAME", tv.tv(*words, code=2).errors)
            words += ["--account", "default"]
            foretold = tv.tv(*words, "--dry-run", "--json").json
            self.assertEqual([each["why"] for each in foretold["kept"]],
                             ["pinned", "the newest whole one", "among the newest 1"])
            self.assertEqual(self.listed(tv), ids, "a dry run")
            self.assertEqual(tv.tv(*words, "--json").json["forgotten"], foretold["forgotten"])
            self.assertEqual(self.listed(tv), ids[1:])
            self.assertIn("is pinned", tv.tv("cloud", "remove", ids[1], code=3).errors)
            tv.tv("cloud", "pin", ids[1], "--off")
            tv.tv("cloud", "remove", ids[1])
            tv.tv("cloud", "forget", "--all-accounts", "--keep-within", "99999d")
            self.assertEqual(self.listed(tv), ids[2:])

    def test_another_store_gets_what_it_lacks(self):
        for tv, ids, other in self.clouds():
            copied = tv.tv("cloud", "copy", other, "--json", code=6).json
            self.assertEqual((copied["copied"], copied["there"], len(copied["damaged"])), (3, 0, 1))
            tv.tv("cloud", "remove", ids[3])
            again = tv.tv("cloud", "copy", other, "--json").json
            self.assertEqual((again["copied"], again["there"]), (0, 3))
            there = tv.tv("--cloud", other, "cloud", "list", "--json").json["backups"]
            here = tv.tv("cloud", "list", "--json").json["backups"]
            self.assertEqual([{**each, "id": ""} for each in there], [{**each, "id": ""} for each in here])
            tv.tv("--cloud", other, "run", "-q", "operation=restore")
            fifth = self.back_up(tv)
            tv.tv("set", "clock", "+1d")
            tv.tv("--cloud", other, "run", "-q")
            self.assertEqual([each.split("/")[-1] for each in
                              tv.tv("cloud", "copy", other, "--json", code=1).json["late"]], [fifth])


if __name__ == "__main__":
    unittest.main()
