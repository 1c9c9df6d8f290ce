"""TVs whose cloud is an object store: a real one, in memory, which is started once for all tests."""
import json
import os
import subprocess
import unittest
import urllib.request

from cluster import Cluster, TwoTvs
from halcyon import Tv


def setUpModule():
    global cluster
    cluster = Cluster()
    unittest.addModuleCleanup(cluster.stop)
    os.environ.update(cluster.environment)
    cluster.create("lab")


class Contract(unittest.TestCase):
    def test_the_store_keeps_the_contract(self):
        cluster.create("contract")
        answer = subprocess.run(["cloud-tests", "--gtest_brief=1"], text=True, capture_output=True,
                                env=dict(os.environ, HALCYON_TEST_CLOUD="s3://contract"))
        self.assertEqual(answer.returncode, 0, answer.stdout + answer.stderr)


class Stories(TwoTvs):
    def backups(self, tv):
        return tv.tv("cloud", "list", "--json").json["backups"]

    def requests(self, tv):
        calls = tv.tv("record", "--calls", "--json").json["timeline"]
        return [moment["call"]["arguments"].split()[0] for moment in calls if moment["call"]["name"] == "cloud_request"]

    def test_what_one_tv_backs_up_another_restores(self):
        self.assertEqual(self.a.tv("run", "-q", "--json").json["outcome"], "done")
        self.assertEqual(self.requests(self.a), ["LIST", "PUT"])
        self.assertEqual(self.b.tv("run", "-q", "--json", "operation=restore").json["outcome"], "done")
        self.assertEqual(self.requests(self.b), ["LIST", "GET"])
        self.a.tv("diff", self.b.home)
        self.a.tv("set", "favname1", "Family")
        self.a.tv("run", "-q")
        first, second = self.backups(self.a)
        self.assertIn("Family", self.a.tv("diff", first["id"], second["id"], code=1).text)
        self.b.tv("run", "-q", "operation=restore", "--backup", first["id"])
        self.assertIn("whole", self.a.tv("bundle", "verify", first["id"]).text)
        self.a.tv("run", "-q", "--refuse-duplicates", code=7)
        self.a.tv("cloud", "remove", second["id"])
        self.assertEqual([each["id"] for each in self.backups(self.b)], [first["id"]])
        self.assertEqual(list((self.a.home / "spool").iterdir()), [])

    def test_accounts_are_kept_apart(self):
        self.b.tv("set", "account", "neighbours")
        self.a.tv("run", "-q")
        answer = self.b.tv("run", "-q", "operation=restore", code=7)
        self.assertIn("there is no backup of the account neighbours", answer.text)
        self.b.tv("run", "-q")
        self.b.tv("run", "-q", "operation=restore")
        self.assertEqual([each["account"] for each in self.backups(self.a)], ["default", "neighbours"])

    def test_what_is_foreign_or_damaged_is_named_and_the_rest_is_there(self):
        for name in "1", "2", "3":
            self.a.tv("set", "favname1", name)
            self.a.tv("run", "-q")
        first, second, third = self.backups(self.a)
        bucket, prefix = self.cloud.removeprefix("s3://").split("/")
        for name in "notes.txt", "default/x", "default/c/k/00000001-nothexad":
            cluster.write(f"{bucket}/{prefix}/{name}", b"of somebody else")
        body = cluster.read(self.key(third))
        cluster.write(self.key(third), body[:-30] + bytes([body[-30] ^ 1]) + body[-29:])
        cluster.write(self.key(second), b"")
        cluster.write(self.key(first), body[:400].replace(b"halcyon", b"another"))
        listed = self.a.tv("cloud", "list", "--json", "-v", code=6).json
        self.assertEqual([bool(each["damage"]) for each in listed["backups"]], [True, True, False])
        self.assertEqual(sorted(listed["foreign"]), sorted(f"{prefix}/{name}" for name in
                                                           ("default/c/k/00000001-nothexad", "default/x", "notes.txt")))
        answer = self.b.tv("run", "-q", "operation=restore", code=6).text
        self.assertIn("its bytes are not those that were stored", answer)
        self.assertIn("its bytes are not those", self.a.tv("bundle", "verify", third["id"], code=6).errors)

    def test_a_refusal_says_what_the_store_said_and_no_secret(self):
        secret = os.environ["AWS_SECRET_ACCESS_KEY"]
        cases = [({"AWS_SECRET_ACCESS_KEY": "wrong"}, 500, "SignatureDoesNotMatch"),
                 ({"AWS_ACCESS_KEY_ID": "UNKNOWNKEY"}, 500, "InvalidAccessKeyId"),
                 ({"HALCYON_CLOUD": "s3://nowhere/x"}, 500, "halcyon-tv --cloud s3://nowhere cloud create"),
                 ({"AWS_ENDPOINT_URL": "http://127.0.0.1:1"}, 503, "http://127.0.0.1:1: Couldn't connect to server")]
        for change, code, words in cases:
            with self.subTest(words):
                before = dict(os.environ)
                self.addCleanup(os.environ.update, before)
                cloud = change.pop("HALCYON_CLOUD", self.cloud)
                os.environ.update(change)
                tv = Tv(self.folder, "tv" + str(len(list(self.folder.iterdir()))), cloud=cloud)
                report = tv.tv("run", "-q", "--json", code=7).json
                os.environ.update(before)
                self.assertEqual(report["response"]["code"], code)
                self.assertIn(words, report["why"])
                record = tv.tv("record", "--calls").text
                self.assertIn(words, record)
                kept = b"".join(file.read_bytes() for file in tv.home.rglob("*") if file.is_file())
                self.assertIn(words.encode(), kept)
                self.assertNotIn(secret.encode(), kept + record.encode())

    def test_a_dead_endpoint_is_passed_over(self):
        self.addCleanup(os.environ.update, cluster.environment)
        os.environ["AWS_ENDPOINT_URL"] = "http://127.0.0.1:1," + cluster.endpoints[0]
        self.assertEqual(self.a.tv("run", "-q", "--json").json["outcome"], "done")
        self.assertEqual(self.requests(self.a)[-2:], ["LIST", "PUT"])

    def test_what_is_no_place_is_told_before_anything_is_done(self):
        for place, words in [("s3://", "a bucket's name is"), ("s3://A_B", "a bucket's name is"),
                             ("s3://lab//x", "empty part"), ("http://lab/x", "its scheme is not s3")]:
            answer = Tv.tv(self.a, "--cloud", place, "run", code=3)
            self.assertIn(words, answer.errors)
            self.assertIn("give a folder, or s3://BUCKET[/PREFIX]", answer.errors)
        self.addCleanup(os.environ.update, cluster.environment)
        del os.environ["AWS_ENDPOINT_URL"]
        self.assertIn("AWS_ENDPOINT_URL is not set", self.a.tv("run", code=3).errors)

    def test_the_page_shows_it(self):
        self.a.tv("run", "-q")
        server = subprocess.Popen(["halcyon-tv", "serve", "--home", "a", "--cloud", self.cloud, "--port", "0"],
                                  cwd=self.folder, text=True, stdout=subprocess.PIPE)
        self.addCleanup(lambda: (server.terminate(), server.communicate()))
        origin, token = server.stdout.readline().strip().split("/#")

        def ask(path):
            request = urllib.request.Request(origin + path, headers={"X-Halcyon-Token": token})
            return json.load(urllib.request.urlopen(request))

        backup, = ask("/api/cloud")["backups"]
        self.a.tv("set", "favname1", "Family")
        self.a.tv("run", "-q")
        self.assertEqual(ask("/api/cloud")["backups"], self.backups(self.b))
        first, second = self.backups(self.b)
        cluster.write(self.key(second), b"of somebody else")
        self.assertEqual([bool(each["damage"]) for each in ask("/api/cloud")["backups"]], [False, True])
        self.a.tv("cloud", "remove", second["id"])
        self.assertEqual(ask("/api/cloud")["backups"], [backup])
        path = "/".join(backup[part] for part in ("account", "clientId", "category", "id"))
        self.assertTrue(ask(f"/api/cloud/{path}?tv=a")["isWhole"])


if __name__ == "__main__":
    unittest.main()
