"""What the server answers to whom, without a browser."""
import base64
import concurrent.futures
import fcntl
import http.client
import json
import os
import subprocess
import unittest

from halcyon import DATA, Story, Tv

JSON = "application/json"


class Server(Story):
    def setUp(self):
        super().setUp()
        (self.folder / "lab").mkdir()
        self.tv = Tv(self.folder, "lab/a", channels=DATA / "channels.conf", serial="A")
        self.server = subprocess.Popen(["halcyon-tv", "serve", "--lab", "lab", "--cloud", "cloud", "--port", "0"],
                                       cwd=self.folder, text=True, stdout=subprocess.PIPE)
        self.addCleanup(self.stop)
        origin, self.token = self.server.stdout.readline().strip().split("/#")
        self.port = int(origin.rsplit(":", 1)[1])

    def stop(self):
        self.server.terminate()
        self.server.communicate(timeout=20)
        self.assertEqual(self.server.returncode, 0)

    def ask(self, path, method="GET", body=None, token=True, type=JSON, **headers):
        """Status and answer. A header of None is left out."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        self.addCleanup(connection.close)
        sent = {"Host": f"localhost:{self.port}", "X-Halcyon-Token": self.token if token is True else token,
                "Content-Type": type if method == "POST" else None, **headers}
        if isinstance(body, dict):
            body = json.dumps(body)
        connection.request(method, path, body, {name: value for name, value in sent.items() if value is not None})
        response = connection.getresponse()
        self.headers = response.headers
        text = response.read()
        return response.status, json.loads(text) if response.headers["Content-Type"] == JSON else text

    def refused(self, status, *words, **more):
        code, answer = self.ask(*words, **more)
        self.assertEqual(code, status, answer)
        self.assertTrue(answer["error"])

    def test_only_this_machines_own_page_is_answered(self):
        for host in ("localhost", "127.0.0.1", f"127.0.0.1:{self.port}", "127.8.9.1", "[::1]", f"[::1]:{self.port}"):
            self.assertEqual(self.ask("/api/lab", Host=host)[0], 200, host)
        for host in ("localhost.evil.example", "127.0.0.1.evil.example", "evil.example", "0.0.0.0", "192.168.1.1",
                     "localhost:1", "", "::1", "[::1", "127.1", "2130706433"):
            self.refused(403, "/api/lab", Host=host)
            self.refused(403, "/", Host=host)
        self.assertEqual(self.ask("/api/lab", Origin=f"http://localhost:{self.port}")[0], 200)
        for origin in ("null", "http://evil.example", f"https://localhost:{self.port}", "http://localhost:1",
                       "file://"):
            self.refused(403, "/api/tvs/a/runs", "POST", {"operation": "backup"}, Origin=origin)

    def test_data_is_for_who_has_the_token(self):
        for token in (None, "", "x", self.token[:-1], self.token + "0", self.token.upper() + " "):
            self.refused(401, "/api/lab", token=token)
            self.refused(401, "/api/events", token=token)
            self.refused(401, "/api/tvs/a/set", "POST", {"name": "favname1", "value": "x"}, token=token)
        status, page = self.ask("/", token=None)
        self.assertEqual(status, 200)
        self.assertNotIn(self.token.encode(), page)
        self.assertIn("default-src 'none'", self.headers["Content-Security-Policy"])
        self.assertEqual(self.headers["X-Content-Type-Options"], "nosniff")
        self.assertEqual(os.stat(self.folder / "lab/.halcyon-tv.token").st_mode & 0o777, 0o600)

    def test_bodies_are_json_within_limits(self):
        wanted = {"name": "favname1", "value": "Mine"}
        self.refused(400, "/api/tvs/a/set", "POST", json.dumps(wanted), type="text/plain")
        self.refused(400, "/api/tvs/a/set", "POST", json.dumps(wanted), type="application/x-www-form-urlencoded")
        for body in ("", "{", "[]", "null", '"x"', '{"name": 1, "value": "x"}', '{"name": "favname1"}', "[" * 100_000,
                     '{"a": ' * 3000):
            self.refused(400, "/api/tvs/a/set", "POST", body)
        self.refused(413, "/api/tvs/a/set", "POST", "x" * ((32 << 20) + 1))
        for zip in ("%%%%", "abc", base64.b64encode(b"no zip").decode()):
            status, answer = self.ask("/api/bundles/import", "POST", {"name": "x.zip", "zip": zip, "tv": "a"})
            self.assertIn(status, (400, 422), answer)
        self.assertEqual(self.ask("/api/tvs/a/set", "POST", wanted)[0], 200)
        self.assertEqual(self.tv.tv("status", "--json").json["favourites"][0], "Mine")

    def test_tvs_and_files_are_named_never_reached_for(self):
        for path in ("/api/tvs/b", "/api/tvs/..", "/api/tvs/%2e%2e", "/api/tvs/..%2flab%2fa", "/api/tvs/a%00",
                     "/api/tvs//", "/api/tvs/a/runs/1", "/api/tvs/a/runs/x", "/api/nothing", "/api/cloud/a/b/000001",
                     "/style.css/..", "/../../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/index.html%00",
                     "/page/index.html"):
            self.refused(404, path)
        for query in ("one=tv:a", "one=tv:a&other=tv:../lab/a", "one=tv:a&other=/etc", "one=tv:a&other=backup:../.."):
            self.assertIn(self.ask("/api/diff?" + query)[0], (400, 404), query)
        status, _ = self.ask("/api/bundles/inspect", "POST", {
            "name": "../../escape.zip", "tv": "a", "zip": base64.b64encode(b"x").decode()})
        self.assertIn(status, (200, 422))
        self.assertEqual(list(self.folder.rglob("escape.zip")), [])

    def test_the_values_are_those_of_the_commands(self):
        status, run = self.ask("/api/tvs/a/runs", "POST", {"operation": "backup", "reply": True})
        self.assertEqual((status, run["outcome"]), (200, "done"))
        self.assertEqual(run, self.tv.tv("record", "--json").json)
        self.assertEqual(self.ask("/api/cloud")[1]["backups"], self.tv.tv("cloud", "list", "--json").json["backups"])
        words, viewing = self.ask("/api/words")[1], self.ask("/api/tvs/a")[1]["viewing"]
        for part in "antennaMode", "serviceMode", "sort":
            self.assertEqual(words[part + "s"][viewing[part]["code"]], viewing[part]["name"])
        self.ask("/api/tvs/a/channels", **{"Accept-Encoding": "gzip, br"})
        self.assertIsNone(self.headers["Content-Encoding"], "compressing takes longer than this machine's own way")
        shown = self.ask("/api/cloud/Qr7tLw2ZkA/OOBERFChannelList/000001?tv=a")[1]
        verified = self.tv.tv("bundle", "verify", "--json").json
        verified.pop("bundle")
        self.assertEqual(shown, verified)
        self.refused(400, "/api/tvs/a/runs", "POST", {"operation": "resotre"})
        self.refused(404, "/api/tvs/a/runs", "POST", {"operation": "restore", "backup": "000009"})

    def test_a_busy_tv_says_so(self):
        home = os.open(self.tv.home, os.O_RDONLY | os.O_DIRECTORY)
        fcntl.flock(home, fcntl.LOCK_EX)
        self.addCleanup(os.close, home)
        self.refused(409, "/api/tvs/a/runs", "POST", {"operation": "backup"})
        self.refused(409, "/api/tvs/a/reset", "POST", {})

    def test_two_hundred_readers_during_runs(self):
        with concurrent.futures.ThreadPoolExecutor(200) as pool:
            runs = pool.submit(lambda: [self.ask("/api/tvs/a/runs", "POST", {"operation": "backup"})[0]
                                        for _ in range(3)])
            readers = [pool.submit(self.ask, path) for _ in range(50)
                       for path in ("/api/tvs/a", "/api/tvs/a/channels", "/api/tvs/a/runs", "/")]
            self.assertEqual({reader.result()[0] for reader in readers}, {200})
            self.assertEqual(runs.result(), [200, 200, 200])


if __name__ == "__main__":
    unittest.main()
