"""TVs whose cloud breaks: an object store of three storage daemons on the disk and two gateways. This takes minutes."""
import contextlib
import glob
import hashlib
import os
import random
import shutil
import socket
import subprocess
import threading
import unittest
import unittest.mock
import urllib.parse

from cluster import Cluster, TwoTvs
from halcyon import DATA

LARGE = 5_000_000
HALF = LARGE // 2


def setUpModule():
    global cluster
    cluster = Cluster("--osds", 3, "--gateways", 2, "--disk")
    unittest.addModuleCleanup(cluster.stop)
    os.environ.update(cluster.environment)
    cluster.create("lab")


class Proxy:
    """Stands before an endpoint. On the first connection where so many bytes go `way`, the byte HALF meets `fault`:
    what that gives goes on in its place, or nothing ever again if it gives None."""

    def __init__(self, endpoint, way, fault):
        self.target = "127.0.0.1", urllib.parse.urlsplit(endpoint).port
        self.way, self.fault = way, fault
        self.unused = threading.Lock()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"http://127.0.0.1:{self.listener.getsockname()[1]}"
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        with contextlib.suppress(OSError):
            while True:
                threading.Thread(target=self._connect, args=self.listener.accept()[:1], daemon=True).start()

    def _connect(self, client):
        with client, contextlib.suppress(OSError), socket.create_connection(self.target) as server:
            up = threading.Thread(target=self._forward, args=(client, server, "up"))
            up.start()
            self._forward(server, client, "down")
            up.join()

    def _forward(self, source, sink, way):
        passed = 0
        with contextlib.suppress(OSError):
            while chunk := source.recv(1 << 16):
                at = HALF - passed
                if way == self.way and 0 <= at < len(chunk) and self.unused.acquire(blocking=False):
                    sink.sendall(chunk[:at])
                    instead = self.fault(chunk[at])
                    if instead is None:
                        break
                    chunk = bytes([instead]) + chunk[at + 1:]
                    passed += at
                sink.sendall(chunk)
                passed += len(chunk)
        for each in source, sink:
            with contextlib.suppress(OSError):
                each.shutdown(socket.SHUT_RDWR)

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()


def cut(_byte):
    return None


def flip(byte):
    return byte ^ 1


def kill(name):
    def fault(_byte):
        cluster.run("kill", name)
    return fault


@contextlib.contextmanager
def started_again(name):
    try:
        yield
    finally:
        cluster.run("start", name)


def module_files(tv):
    return {file.name: hashlib.sha256(file.read_bytes()).hexdigest() for file in tv.home.glob("ci/*")}


def reached(*endpoints, **more):
    return unittest.mock.patch.dict(os.environ, AWS_ENDPOINT_URL=",".join(endpoints), **more)


class Stories(TwoTvs):
    def setUp(self):
        super().setUp()
        (self.a.home / "ci/module.bin").write_bytes(random.Random(1).randbytes(LARGE))

    def proxy(self, endpoint, way, fault):
        proxy = Proxy(endpoint, way, fault)
        self.addCleanup(proxy.close)
        return proxy.address

    def silent(self):
        """An endpoint that accepts connections and never answers."""
        listener = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(listener.close)
        return f"http://127.0.0.1:{listener.getsockname()[1]}"

    def backup(self, code=0):
        return self.a.tv("run", "-q", "--json", code=code).json

    def restore(self, *words, code=0):
        return self.b.tv("run", "-q", "--json", "operation=restore", *words, code=code).json

    def tries(self, tv):
        """The requests of the last run, and which of them failed."""
        calls = tv.tv("record", "--calls", "--json").json["timeline"]
        calls = [moment["call"] for moment in calls if moment["call"]["name"] == "cloud_request"]
        return [call["arguments"].split()[0] + ("" if call["result"] == "200" else " failed") for call in calls]

    def assert_unreachable(self, report, words=""):
        self.assertEqual((report["outcome"], report["response"]["code"]), ("failed", 503))
        self.assertIn(words, report["why"])

    def assert_stored(self, *ids):
        """There are these backups and no others, and each is whole. Gives their objects' digests."""
        backups = self.a.tv("cloud", "list", "--json").json["backups"]
        self.assertEqual([(each["id"], each["damage"]) for each in backups], [(each, "") for each in ids])
        digests = []
        for backup in backups:
            self.assertIn("whole", self.a.tv("bundle", "verify", backup["id"]).text)
            body = cluster.read(self.key(backup))
            head, rest = body.split(b"\n", 1)
            self.assertEqual(head.split()[-1].decode(), hashlib.sha256(rest).hexdigest())
            digests.append(hashlib.sha256(body).hexdigest())
        return digests

    def assert_restored(self):
        self.b.tv("diff", self.a.home)
        self.assertEqual(module_files(self.b), module_files(self.a))

    def test_a_gateway_dies_in_the_middle(self):
        first, second = cluster.endpoints
        with started_again("rgw.0"), reached(self.proxy(first, "up", kill("rgw.0")), second):
            one = self.backup()["backup"]
            self.assertEqual(self.tries(self.a), ["LIST", "PUT failed", "PUT"])
        with started_again("rgw.0"), reached(self.proxy(first, "down", kill("rgw.0")), second):
            self.assertEqual(self.restore()["backup"], one)
            self.assertEqual(self.tries(self.b), ["LIST", "GET failed", "GET"])
        self.assert_restored()
        with started_again("rgw.0"), reached(self.proxy(first, "up", kill("rgw.0"))):
            self.assert_unreachable(self.backup(code=7), "try 3: ")
            with reached(second):
                self.assertEqual(len(self.a.tv("cloud", "list", "--json").json["backups"]), 1)
        self.assert_stored(one)

    def test_a_storage_daemon_dies_and_another_after_its_return(self):
        ids = [self.backup()["backup"]]
        with started_again("osd.0"):
            cluster.run("kill", "osd.0")
            ids.append(self.backup()["backup"])
            self.restore("--backup", ids[0])
            self.assert_restored()
            saved = self.assert_stored(*ids)
        with started_again("osd.1"):
            cluster.run("kill", "osd.1")
            self.assertEqual(self.assert_stored(*ids), saved)
            ids.append(self.backup()["backup"])
        self.assertEqual(self.assert_stored(*ids)[:2], saved)

    def test_a_power_cut_loses_nothing_that_was_acknowledged(self):
        ids = [self.backup()["backup"] for _ in range(3)]
        saved = self.assert_stored(*ids)
        first, second = cluster.endpoints
        with started_again("all"):
            with reached(self.proxy(first, "up", kill("all")), second):
                self.assert_unreachable(self.backup(code=7))
            self.assert_unreachable(self.backup(code=7), "Couldn't connect to server")
            self.assert_unreachable(self.restore(code=7), "Couldn't connect to server")
        self.assertEqual(self.assert_stored(*ids), saved)
        self.restore()
        self.assert_restored()
        ids.append(self.backup()["backup"])
        self.assertEqual(self.assert_stored(*ids)[:3], saved)

    def test_a_silent_endpoint_is_given_up(self):
        with reached(self.silent(), HALCYON_CLOUD_STALL="1"):
            self.assert_unreachable(self.backup(code=7), "it did not answer in time")
        self.assertEqual(self.tries(self.a), ["LIST failed"] * 3)
        self.assert_stored()
        with reached(self.silent(), cluster.endpoints[0], HALCYON_CLOUD_STALL="1"):
            one = self.backup()["backup"]
        self.assertEqual(self.tries(self.a), ["LIST failed", "LIST", "PUT"])
        self.assert_stored(one)

    def test_what_stops_or_is_cut_in_the_middle_is_tried_again(self):
        ended = threading.Event()
        self.addCleanup(ended.set)
        ids = []
        for fault, is_slow in (lambda _byte: ended.wait() and None, True), (cut, False):
            self.b = self.make("b" + str(len(ids)), DATA / "factory.conf")
            with reached(self.proxy(cluster.endpoints[0], "up", fault), HALCYON_CLOUD_STALL="1"):
                ids.append(self.backup()["backup"])
            with reached(self.proxy(cluster.endpoints[1], "down", fault), HALCYON_CLOUD_STALL="1"):
                self.assertEqual(self.restore()["backup"], ids[-1])
            for tv, request in (self.a, "PUT"), (self.b, "GET"):
                self.assertEqual(self.tries(tv), ["LIST", request + " failed", request])
                self.assertEqual("it did not answer in time" in tv.tv("record", "--calls").text, is_slow)
            self.assert_restored()
        self.assert_stored(*ids)

    def test_a_flipped_bit_is_never_stored_and_never_restored(self):
        with reached(*(self.proxy(cluster.endpoints[0], "up", flip) for _ in range(3))):
            self.assertIn("what arrived is not what was sent (XAmzContentSHA256Mismatch)", self.backup(code=7)["why"])
        self.assert_stored()
        with reached(self.proxy(cluster.endpoints[0], "up", flip)):
            one = self.backup()["backup"]
        self.assertEqual(self.tries(self.a), ["LIST", "PUT failed", "PUT"])
        self.assertIn("XAmzContentSHA256Mismatch", self.a.tv("record", "--calls").text)
        self.assert_stored(one)
        before = shutil.copytree(self.b.home, self.folder / "before")
        files = module_files(self.b)
        with reached(self.proxy(cluster.endpoints[0], "down", flip)):
            report = self.restore(code=6)
            self.assertEqual(report["outcome"], "failed")
            self.assertIn("its bytes are not those that were stored", report["why"])
            self.b.tv("diff", before)
            self.assertEqual(module_files(self.b), files)
            self.restore()
        self.assert_restored()

    def test_refusals_are_told_apart_and_nothing_is_stored(self):
        clock = glob.glob("/usr/lib/*/faketime/libfaketime.so.1")
        self.assertTrue(clock, "the package libfaketime is missing")
        for change, words in [({"AWS_SECRET_ACCESS_KEY": "wrong"}, "SignatureDoesNotMatch"),
                              ({"AWS_ACCESS_KEY_ID": "UNKNOWNKEY"}, "InvalidAccessKeyId"),
                              # Sanitizers want to come first, and need not.
                              ({"LD_PRELOAD": clock[0], "FAKETIME": "-20m", "ASAN_OPTIONS": "verify_asan_link_order=0"},
                               "RequestTimeTooSkewed")]:
            with self.subTest(words):
                with unittest.mock.patch.dict(os.environ, change):
                    report = self.backup(code=7)
                self.assertEqual((report["outcome"], report["response"]["code"]), ("failed", 500))
                self.assertIn(words, report["why"])
                self.assertEqual(self.tries(self.a), ["LIST failed"])
        self.assert_stored()

    def test_an_encrypted_store_is_trusted_for_its_authority_alone(self):
        signed = "-CA authority.pem -CAkey authority.key -addext subjectAltName=IP:127.0.0.1"
        for name, options in ("authority", ""), ("stranger", ""), ("store", signed):
            files = f"-keyout {name}.key -out {name}.pem"
            words = f"openssl req -x509 -newkey rsa:2048 -nodes -subj /CN={name} {files} {options}"
            subprocess.run(words.split(), cwd=self.folder, check=True, capture_output=True)
        both = self.folder / "both.pem"
        both.write_bytes(b"".join((self.folder / name).read_bytes() for name in ("store.pem", "store.key")))
        encrypted = Cluster("--certificate", both)
        self.addCleanup(encrypted.stop)
        authority = str(self.folder / "authority.pem")
        with unittest.mock.patch.dict(os.environ, encrypted.environment, AWS_CA_BUNDLE=authority):
            encrypted.create("lab")
            one = self.backup()["backup"]
            with unittest.mock.patch.dict(os.environ, AWS_CA_BUNDLE=str(self.folder / "stranger.pem")):
                self.assert_unreachable(self.backup(code=7), "its certificate is not trusted: SSL certificate problem")
            self.assertEqual(self.restore()["backup"], one)
            self.assertIn("whole", self.a.tv("bundle", "verify", one).text)
        self.assert_restored()


class Tokens(TwoTvs):
    def test_a_key_of_one_account_reaches_no_other(self):
        tokens = Cluster("--tokens")
        self.addCleanup(tokens.stop)
        with unittest.mock.patch.dict(os.environ, tokens.environment):
            tokens.create("lab")
            for tv, account in (self.a, "alice"), (self.b, "bob"):
                tv.tv("set", "account", account)
            self.b.tv("run", "-q")
            lines = tokens.run("token", "alice", self.cloud).splitlines()
            os.environ.update(line.removeprefix("export ").split("=", 1) for line in lines)
            self.a.tv("run", "-q")
            self.a.tv("run", "-q", "operation=restore")
            self.assertEqual(len(self.a.tv("cloud", "list", "--account", "alice", "--json").json["backups"]), 1)
            for tv, words in ((self.b, "run -q"), (self.b, "run -q operation=restore"),
                              (self.a, "cloud list --account bob"), (self.a, "cloud list")):
                answer = tv.tv(*words.split(), code=7)
                self.assertIn("AccessDenied", answer.text + answer.errors)


class Contract(unittest.TestCase):
    def test_the_store_keeps_the_contract(self):
        cluster.create("contract")
        with unittest.mock.patch.dict(os.environ, HALCYON_TEST_CLOUD="s3://contract"):
            answer = subprocess.run(["cloud-tests", "--gtest_brief=1"], text=True, capture_output=True)
        self.assertEqual(answer.returncode, 0, answer.stdout + answer.stderr)


if __name__ == "__main__":
    unittest.main()
