"""A store that misbehaves: what each command makes of it, and that it costs neither the TV nor the machine."""
import concurrent.futures
import hashlib
import os
import pathlib
import tempfile
import unittest
import unittest.mock

from halcyon import Tv
from wild_store import WildStore, environment_of

VERBS = {"backup": "run -q", "restore": "run -q operation=restore", "list": "cloud list", "remove": "cloud remove {id}",
         "verify": "bundle verify {id}"}

# The exit code of each command, and words of its message.
CASES = {
    "standing-list": {"list": (7, "its list does not move on: the key 'p/default/"), "remove": (7, "does not move on")},
    "empty-pages": {"list": (7, "it has more, and shows nothing"), "restore": (7, "and shows nothing")},
    "endless-list": {"list": (7, "has no end: it")},
    "key-outside": {"list": (7, "the key 'z/of/somebody/else', which was not asked for"),
                    "backup": (7, "which was not asked for"), "restore": (7, "which was not asked for")},
    "key-shorter": {"restore": (7, "the key '', which was not asked for")},
    "no-number-left": {"backup": (7, "is full: no number follows that of backup 99999999-0000000a; remove it")},
    "list-cut": {"list": (7, "the response is not a list of objects"), "restore": (7, "not a list of objects")},
    "list-nothing": {"list": (7, "not a list of objects, but nothing"), "backup": (7, "objects, but nothing")},
    "portal": {"list": (7, "but \"Guests Please log in\"; check that AWS_ENDPOINT_URL"),
               "backup": (7, "Guests Please log in")},
    "wrong-account": {"list": (6, "stored for the account 'another', and lies in that of 'default'"),
                      "restore": (6, "it was stored for the account 'another'"), "verify": (6, "another")},
    "endless-body": {"list": (7, "the store does not say how long the object is"),
                     "restore": (7, "does not say how long"), "verify": (7, "does not say how long")},
    "range-ignored": {"list": (6, "the object has 1000000000000000000 bytes, and should have")},
    "range-endless": {"list": (0, "channels")},
    "range-unsaid": {"list": (7, "the store does not say how long the object is")},
    "size-huge": {"list": (6, "1000000000000000000, and the limit is"), "restore": (6, "and the limit is")},
    "size-lies": {"list": (6, "bytes, and should have"), "restore": (6, "bytes, and should have")},
    "body-cut": {"list": (7, "Transferred a partial file (3 tries)"), "restore": (7, "Transferred a partial file")},
    "page-missing": {"list": (7, "status 404, with \"Not Found\""), "restore": (7, "with \"Not Found\"")},
    "redirect": {"list": (7, "\"Use the other one.\"; 's3.other.example' has it: set AWS_ENDPOINT_URL"),
                 "backup": (7, "s3.other.example")},
    "reset-list": {"list": (7, "(3 tries)"), "backup": (7, "Server returned nothing")},
    "reset-get": {"restore": (7, "Server returned nothing"), "verify": (7, "(3 tries)")},
    "reset-put": {"backup": (7, "Server returned nothing")},
    "silent": {"list": (7, "it did not answer in time"), "restore": (7, "it did not answer in")},
    "drip": {"restore": (7, "it did not answer in time"), "list": (7, "it did not answer in time")},
    "retry-much-later": {"list": (7, "Reduce your rate.\"; it asks for a pause of 3600 s (1 try)"),
                         "backup": (7, "it asks for a pause of 3600 s")},
    "busy-at-first": {"backup": (0, ""), "restore": (0, ""), "list": (0, "channels")},
    "broken": {"list": (7, "'InternalError' (status 500): \"We are sorry.\" (3 tries)"),
               "backup": (7, "We are sorry.")},
    "skewed": {"restore": (7, "set this machine's (RequestTimeTooSkewed): \"Too far from the server's time.\"")},
    "region": {"list": (7, "the bucket is in the region 'eu-north-9': set AWS_REGION")},
    "token-expired": {"backup": (7, "AWS_SESSION_TOKEN has expired; get a new one (ExpiredToken)")},
    "full": {"backup": (7, "the quota is used up; remove backups with: halcyon-tv cloud remove (QuotaExceeded)")},
}
MOST_REQUESTS = {"endless-list": 2_000, "busy-at-first": 40}  # else 12 for each command


def digest(tv):
    """Of what a restore changes."""
    files = [tv.home / "service-db/services.db", tv.home / "iss.db"]
    return [hashlib.sha256(file.read_bytes()).digest() for file in files]


class Misbehaving(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(temporary.cleanup)
        cls.folder = pathlib.Path(temporary.name)
        cls.store = WildStore()
        cls.addClassCleanup(cls.store.stop)
        patch = unittest.mock.patch.dict(os.environ, environment_of(cls.store))
        patch.start()
        cls.addClassCleanup(patch.stop)
        maker = Tv(cls.folder, "maker", cloud="s3://good/p")
        cls.backup = maker.tv("run", "--json").json["backup"]
        cls.store.template = dict(cls.store.bucket("good")[0])

    def test_every_command_names_the_cause_and_changes_nothing(self):
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            for name, problems in zip(CASES, pool.map(self.problems_of, CASES)):
                with self.subTest(name):
                    self.assertEqual(problems, [])
        self.assertLess(self.store.poured, 32 << 20, "no body without an end is read")

    def problems_of(self, name):
        tv = Tv(self.folder, name, cloud=f"s3://{name}/p")
        before = digest(tv)
        objects, log = self.store.bucket(name)
        kept = dict(objects)
        problems = []
        for verb, (code, words) in CASES[name].items():
            answer = tv.tv(*VERBS[verb].format(id=self.backup).split(), code=None)
            if answer.code != code or words not in answer.text + answer.errors:
                problems.append((verb, answer.code, answer.text + answer.errors))
        if len(log) > MOST_REQUESTS.get(name, 12 * len(CASES[name])):
            problems.append(("requests", log))
        if digest(tv) != before:
            problems.append("the TV has changed")
        if name not in ("wrong-account", "size-lies", "busy-at-first") and objects != kept:
            problems.append("the store has changed")
        return problems

    def test_a_run_whose_verdict_cannot_be_read_back_has_an_outcome_of_its_own(self):
        for name, words in [("verdict-lost", "Later.\" (3 tries)"),
                            ("backup-removed", "s3://backup-removed/p holds no backup")]:
            with self.subTest(name):
                tv = Tv(self.folder, name, cloud=f"s3://{name}/p")
                report = tv.tv("run", "--json", "operation=restore", code=10)
                self.assertEqual((report.json["outcome"], report.errors), ("unchecked", ""))
                self.assertIn(words, report.json["why"])
                with unittest.mock.patch.dict(os.environ, AWS_ENDPOINT_URL=""):
                    self.assertIn("AWS_ENDPOINT_URL is not set", tv.tv("record", "--json").json["why"])
                    self.assertIn("unchecked", tv.tv("record", "--all").text)
                again = tv.tv("--cloud", "s3://good/p", "record", "--json").json
                self.assertEqual(again["outcome"], "done", "it is judged as soon as the store is there")

    def test_what_is_damaged_names_what_is_whole(self):
        for cloud in "s3://rotten/p", "folder":
            with self.subTest(cloud):
                tv = Tv(self.folder, f"of-{cloud[:6]}".rstrip(":/"), cloud=cloud)
                first, second = (tv.tv("run", "--json").json["backup"] for _ in range(2))
                if cloud == "folder":
                    rotten = next(self.folder.glob(f"{cloud}/*/*/{second}/bundle.zip"))
                    rotten.write_bytes(rotten.read_bytes()[:-100])
                else:
                    objects = self.store.bucket("rotten")[0]
                    key = min(key for key in objects if second.partition("-")[2] in key)
                    objects[key] = objects[key][:-9] + b"x" + objects[key][-8:]
                answer = tv.tv("run", "-q", "operation=restore", code=6)
                self.assertIn(f"halcyon-tv run operation=restore --backup {first}", answer.text)
                tv.tv("bundle", "verify", second, code=6)
                tv.tv("run", "-q", "operation=restore", "--backup", first)

    def test_a_fleet_groups_equal_refusals(self):
        tv = Tv(self.folder, "fleets", cloud="s3://full/p")
        answer = tv.tv("fleet", "run", "--tvs", 3, "--lab", self.folder / "fleet", code=1)
        self.assertRegex(answer.text, r"3 TVs: .*p/TV/.*v2-ID: .*QuotaExceeded")

    def test_an_address_that_is_down_is_passed_over_by_the_next_process(self):
        tv = Tv(self.folder, "two-addresses", cloud="s3://two/p")
        with unittest.mock.patch.dict(os.environ, AWS_ENDPOINT_URL=f"http://127.0.0.1:1,{self.store.address}"):
            for number in range(30):  # each account has an order of its own
                tv.tv("cloud", "list", "--account", f"account-{number}")
                if (tv.home / "down-addresses").exists():
                    break
            self.assertIn(" http://127.0.0.1:1\n", (tv.home / "down-addresses").read_text())
            tv.tv("run", "-q")
            calls = tv.tv("record", "--call", "cloud_request", "--json").json["timeline"]
            self.assertEqual([call["call"]["arguments"].split()[0] for call in calls], ["LIST", "PUT"])

    def test_an_overloaded_store_is_not_asked_again_by_each_of_many_requests(self):
        objects, log = self.store.bucket("overloaded")
        (key, body), = objects.items()
        objects.update({key.replace("v2-99999998", f"v2-{number:08}"): body for number in range(100)})
        Tv(self.folder, "overloaded", cloud="s3://overloaded/p").tv("cloud", "list", code=7)
        self.assertLessEqual(log.count("HEAD"), 8 + 10 + 8 // 5, "eight at a time, ten tries again, and one for five")

    def test_a_temporary_key_is_sent_and_signed(self):
        with unittest.mock.patch.dict(os.environ, AWS_SESSION_TOKEN="a+b/c="):
            Tv(self.folder, "temporary", cloud="s3://temporary/p").tv("cloud", "list")
        self.assertEqual(self.store.headers["x-amz-security-token"], "a+b/c=")
        self.assertRegex(self.store.headers["Authorization"], "SignedHeaders=[^,]*x-amz-security-token")

    def test_a_proxy_that_is_down_is_named(self):
        with unittest.mock.patch.dict(os.environ, AWS_ENDPOINT_URL="http://store.invalid", no_proxy="", NO_PROXY="",
                                      http_proxy="http://127.0.0.1:1"):
            answer = Tv(self.folder, "proxy", cloud="s3://proxy/p").tv("cloud", "list", code=7)
        self.assertIn("by way of the proxy that http_proxy names", answer.errors)

    def test_what_is_set_in_vain_is_said_once(self):
        tv = Tv(self.folder, "vain", cloud="s3://vain/p")
        with unittest.mock.patch.dict(os.environ, AWS_ROLE_ARN="r"):
            said = tv.tv("diff", self.backup, self.backup).errors
            self.assertEqual(said, "set, but not used: AWS_ROLE_ARN\n")
            self.assertEqual(tv.tv("run", "-q").errors, "")


if __name__ == "__main__":
    unittest.main()
