"""What the server answers to whom, without a browser."""
import concurrent.futures
import fcntl
import http.client
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import time
import unittest
import zipfile

from halcyon import DATA, Story, Tv

JSON = "application/json"
ZIP = "application/zip"
CLOUD = "/api/cloud/Qr7tLw2ZkA/OOBERFChannelList/"


class Server(Story):
    def setUp(self):
        super().setUp()
        (self.folder / "lab").mkdir()
        self.tv = Tv(self.folder, "lab/a", channels=DATA / "channels.conf", serial="A")
        self.start()

    def start(self):
        self.server = subprocess.Popen(["halcyon-tv", "serve", "--lab", "lab", "--cloud", "cloud", "--port", "0"],
                                       cwd=self.folder, text=True, stdout=subprocess.PIPE)
        self.addCleanup(self.stop, self.server)
        origin, self.token = self.server.stdout.readline().strip().split("/#")
        self.port = int(origin.rsplit(":", 1)[1])

    def stop(self, server):
        if server.poll() is None:
            server.terminate()
            server.communicate(timeout=20)
            self.assertEqual(server.returncode, 0)

    def raw(self, request):
        """A connection on which these bytes were sent."""
        connection = socket.create_connection(("127.0.0.1", self.port), timeout=20)
        self.addCleanup(connection.close)
        connection.sendall(request.encode())
        return connection

    def head(self, path, *lines, method="POST"):
        return "\r\n".join([f"{method} {path} HTTP/1.1", f"Host: localhost:{self.port}", *lines, "", ""])

    def bomb(self):
        """A small zip that takes long to unpack."""
        file = self.folder / "bomb.zip"
        with zipfile.ZipFile(file, "w", zipfile.ZIP_DEFLATED) as bomb:
            with bomb.open("ServiceDB.zip", "w") as entry:
                for _ in range(300):
                    entry.write(bytes(1_000_000))
        return file.read_bytes()

    def peak(self):
        """Of the server's memory, in kB."""
        return int(re.search(r"VmHWM:\s+(\d+)", pathlib.Path(f"/proc/{self.server.pid}/status").read_text())[1])

    def jobs(self):
        """The processes that answer for the server."""
        children = pathlib.Path(f"/proc/{self.server.pid}/task")
        return [child for task in children.iterdir() for child in (task / "children").read_text().split()]

    def until(self, condition, message):
        deadline = time.monotonic() + 20
        while not condition():
            self.assertLess(time.monotonic(), deadline, message)
            time.sleep(0.01)

    def events(self, after=""):
        """The names and data of events as they come, with the place behind the last that was sent with them."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        self.addCleanup(connection.close)
        connection.request("GET", f"/api/events?after={after}", headers={"X-Halcyon-Token": self.token})
        response = connection.getresponse()
        name = data = place = None
        while line := response.readline().decode():
            key, _, value = line.strip().partition(": ")
            if key == "event":
                name = value
            elif key == "data":
                data = json.loads(value)
            elif key == "id":
                place = value
            elif not key and name:
                yield name, data, place
                name = None

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
            self.assertEqual(self.ask("/api/words", Host=host)[0], 200, host)
        for host in ("localhost.evil.example", "127.0.0.1.evil.example", "evil.example", "0.0.0.0", "192.168.1.1",
                     "localhost:1", "", "::1", "[::1", "127.1", "2130706433", "127.0.0.1%00.evil.example"):
            self.refused(403, "/api/words", Host=host)
            self.refused(403, "/", Host=host)
        self.assertEqual(self.ask("/api/words", Origin=f"http://localhost:{self.port}")[0], 200)
        for origin in ("null", "http://evil.example", f"https://localhost:{self.port}", "http://localhost:1",
                       "file://"):
            self.refused(403, "/api/tvs/a/runs", "POST", {"operation": "backup"}, Origin=origin)

    def test_data_is_for_who_has_the_token(self):
        for token in (None, "", "x", self.token[:-1], self.token + "0", self.token.upper() + " "):
            self.refused(401, "/api/words", token=token)
            self.refused(401, "/api/events", token=token)
            self.refused(401, "/api/tvs/a/set", "POST", {"name": "favname1", "value": "x"}, token=token)
        status, page = self.ask("/", token=None)
        self.assertEqual(status, 200)
        self.assertNotIn(self.token.encode(), page)
        self.assertIn("default-src 'none'", self.headers["Content-Security-Policy"])
        self.assertEqual(self.headers["X-Content-Type-Options"], "nosniff")
        self.assertEqual(os.stat(self.folder / "lab/.halcyon-tv.token").st_mode & 0o777, 0o600)

    def test_the_interface_has_a_version_and_is_documented_whole(self):
        self.assertEqual(self.ask("/api/words", **{"X-Halcyon-Api": "1"})[0], 200)
        self.assertEqual(self.headers["X-Halcyon-Api"], "1")
        self.refused(400, "/api/words", **{"X-Halcyon-Api": "2"})
        page = (DATA.parent / "docs/http.md").read_text()
        documented = set(re.findall(r"^\| (GET|POST|DELETE) \| `([^`?]+)", page, re.MULTILINE))
        sources = "".join(file.read_text() for file in sorted((DATA.parent / "simulator/web").glob("*Routes.cpp")))
        routes = {("GET", "events"), ("GET", "bundles/*"), *re.findall(r'{"(GET|POST|DELETE)", "([^"]+)"', sources)}
        self.assertEqual({(method, re.sub(r"[A-Z]+", "*", path)) for method, path in documented}, routes)

    def test_a_token_is_whole_or_refused(self):
        file = self.folder / "lab/.halcyon-tv.token"
        self.assertRegex(file.read_text(), "^[0-9a-f]{32}$")
        for text in ("", self.token[:-1], self.token + "\n", self.token.upper().replace("0", "G")):
            file.write_text(text)
            answer = self.tv.tv("serve", "--lab", "lab", "--port", "0", code=3)
            self.assertIn("32 hexadecimal digits", answer.errors, text)
        file.unlink()
        self.stop(self.server)
        self.start()
        self.assertEqual(self.ask("/api/words")[0], 200)
        self.assertEqual([each.name for each in (self.folder / "lab").iterdir() if each.name.startswith(".")],
                         [".halcyon-tv.token"])

    def test_a_port_has_one_server(self):
        answer = self.tv.tv("serve", "--port", self.port, code=3)
        self.assertIn(f"port {self.port} is in use", answer.errors)
        self.assertIn("--port 0", answer.errors)

    def test_bodies_are_json_within_limits(self):
        wanted = {"name": "favname1", "value": "Mine"}
        self.refused(400, "/api/tvs/a/set", "POST", json.dumps(wanted), type="text/plain")
        self.refused(400, "/api/tvs/a/set", "POST", json.dumps(wanted), type="application/x-www-form-urlencoded")
        for body in ("", "{", "[]", "null", '"x"', '{"name": 1, "value": "x"}', '{"name": "favname1"}', "[" * 100_000,
                     '{"a": ' * 3000, '{"name": "' + "x" * (1 << 20) + '"}'):
            self.refused(400, "/api/tvs/a/set", "POST", body)
        status, answer = self.ask("/api/bundles/import?name=x.zip&tv=a", "POST", b"no zip", type=ZIP)
        self.assertEqual(status, 422, answer)
        self.refused(400, "/api/bundles/import?name=x.zip&tv=a", "POST", b"no zip", type=JSON)
        self.assertEqual(self.ask("/api/tvs/a/set", "POST", wanted)[0], 200)
        self.assertEqual(self.tv.tv("status", "--json").json["favourites"][0], "Mine")

    def test_a_body_is_only_read_with_the_token_and_up_to_its_limit(self):
        path = "/api/bundles/inspect?name=x.zip&tv=a"
        before = self.peak()
        without = self.raw(self.head(path, f"Content-Type: {ZIP}", "Content-Length: 1000000"))
        self.assertIn(b"401", without.recv(100), "answered before there is a body")
        chunked = self.raw(self.head(path, f"Content-Type: {ZIP}", "Transfer-Encoding: chunked",
                                     f"X-Halcyon-Token: {self.token}"))
        block = b"100000\r\n" + bytes(1 << 20) + b"\r\n"
        with self.assertRaises(OSError):
            for _ in range(400):
                chunked.sendall(block)
        self.assertLess(self.peak() - before, 64_000, "the body is not kept")

    def test_slow_requests_keep_nobody_waiting(self):
        slow = [self.raw("GET / HTTP/1.1\r\nHost:") for _ in range(200)]
        began = time.monotonic()
        self.assertEqual(self.ask("/api/words")[0], 200)
        self.assertLess(time.monotonic() - began, 10)
        for connection in slow:
            connection.close()

    def test_work_ends_with_who_waits_for_it(self):
        bomb = self.bomb()
        path = "/api/bundles/inspect?name=bomb.zip&tv=a"
        head = self.head(path, f"Content-Type: {ZIP}", f"Content-Length: {len(bomb)}",
                         f"X-Halcyon-Token: {self.token}")
        before = set(pathlib.Path(os.environ.get("TMPDIR", "/tmp")).iterdir())
        client = self.raw(head)
        client.sendall(bomb)
        self.until(self.jobs, "no job has begun")
        client.close()
        self.until(lambda: not self.jobs(), "the job goes on")
        self.until(lambda: not {each for each in set(pathlib.Path(os.environ.get("TMPDIR", "/tmp")).iterdir()) - before
                                if (each / "bomb.zip").exists()}, "its file stays")
        self.raw(head).sendall(bomb)
        self.until(self.jobs, "no job has begun")
        self.server.send_signal(signal.SIGTERM)
        self.server.communicate(timeout=5)
        self.assertEqual(self.server.returncode, 0)

    def test_events_tell_what_has_changed_and_what_was_missed(self):
        events = self.events()
        name, data, _ = next(events)
        self.assertEqual((name, [tv["tv"] for tv in data["tvs"]]), ("hello", ["a"]))
        self.tv.tv("set", "favname1", "Mine")
        name, data, place = next(events)
        self.assertEqual((name, data["status"]["favourites"][0]), ("tv", "Mine"))
        told = data["list"]
        self.tv.tv("run", "-q")
        seen = [next(events)]
        while seen[-1][0] != "tv" or seen[-1][1]["newest"]["outcome"] is None:
            seen.append(next(events))
        moments = [moment["seq"] for name, data, _ in seen if name == "run" for moment in data["moments"]]
        timeline = self.ask("/api/tvs/a/runs/1")[1]["timeline"]
        self.assertEqual(sorted(set(moments)), [moment["seq"] for moment in timeline])
        self.assertEqual({data["list"] for name, data, _ in seen if name == "tv"}, {told}, "a backup changes no list")
        Tv(self.folder, "lab/b", serial="B")
        lab = next(data for name, data, _ in events if name == "lab")
        self.assertEqual([tv["tv"] for tv in lab["tvs"]], ["a", "b"])
        missed = self.events(after=place)
        self.assertEqual(next(missed)[:2], seen[0][:2], "what came after the place")
        self.assertEqual(next(self.events(after="another.1"))[0], "hello")

    def test_tvs_of_any_name(self):
        name = os.fsdecode(b"caf\xe9\n\xff")
        (self.folder / "lab/a").rename(self.folder / "lab" / name)
        self.assertEqual(self.ask("/api/tvs/caf%E9%0A%FF")[0], 200)
        self.assertEqual(self.ask("/api/tvs/caf%E9%0A%FF/channels")[0], 200)
        lists = ([tv["tv"] for tv in data["tvs"]] for name, data, _ in self.events() if name in ("hello", "lab"))
        self.assertTrue(any(tvs == ["caf%E9%0A%FF"] for tvs in lists))

    def test_tvs_and_files_are_named_never_reached_for(self):
        for path in ("/api/tvs/b", "/api/tvs/..", "/api/tvs/%2e%2e", "/api/tvs/..%2flab%2fa", "/api/tvs/a%00",
                     "/api/tvs//", "/api/tvs/a/runs/1", "/api/tvs/a/runs/x", "/api/nothing", "/api/cloud/a/b/000001",
                     "/style.css/..", "/../../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/index.html%00",
                     "/page/index.html"):
            self.refused(404, path)
        for query in ("one=tv:a", "one=tv:a&other=tv:../lab/a", "one=tv:a&other=/etc", "one=tv:a&other=backup:../.."):
            self.assertIn(self.ask("/api/diff?" + query)[0], (400, 404), query)
        status, _ = self.ask("/api/bundles/inspect?name=../../escape.zip&tv=a", "POST", b"x", type=ZIP)
        self.assertIn(status, (200, 422))
        self.assertEqual(list(self.folder.rglob("escape.zip")), [])

    def test_the_values_are_those_of_the_commands(self):
        status, run = self.ask("/api/tvs/a/runs", "POST", {"operation": "backup", "reply": True})
        self.assertEqual((status, run["outcome"]), (200, "done"))
        self.assertEqual(run.pop("remedies"), [])
        self.assertEqual(run, self.tv.tv("record", "--json").json)
        self.assertEqual(self.ask("/api/cloud")[1]["backups"], self.tv.tv("cloud", "list", "--json").json["backups"])
        words, viewing = self.ask("/api/words")[1], self.ask("/api/tvs/a")[1]["status"]["viewing"]
        for part in "antennaMode", "serviceMode", "sort":
            self.assertEqual(words[part + "s"][viewing[part]["code"]], viewing[part]["name"])
        self.ask("/api/tvs/a/channels", **{"Accept-Encoding": "gzip, br"})
        self.assertIsNone(self.headers["Content-Encoding"], "compressing takes longer than this machine's own way")
        bundle = self.ask(CLOUD.replace("cloud", "bundles") + "000001")[1]
        self.assertEqual(bundle, next(self.folder.glob("cloud/*/*/000001/bundle.zip")).read_bytes())
        shown = self.ask(CLOUD + "000001?tv=a")[1]
        verified = self.tv.tv("bundle", "verify", "--json").json
        verified.pop("bundle")
        self.assertEqual(shown, verified)
        self.refused(400, "/api/tvs/a/runs", "POST", {"operation": "resotre"})
        self.refused(404, "/api/tvs/a/runs", "POST", {"operation": "restore", "backup": "000009"})

    def test_what_helps_is_told_with_the_run(self):
        restore = {"operation": "restore", "reply": True}
        run = self.ask("/api/tvs/a/runs", "POST", restore)[1]
        self.assertEqual([remedy["kind"] for remedy in run["remedies"]], ["back up"])
        self.tv.tv("run", "-q")
        self.tv.tv("set", "antenna", "0,2")
        run = self.ask("/api/tvs/a/runs", "POST", restore)[1]
        self.assertEqual(run["remedies"], [{"kind": "set", "name": "antenna", "value": "0", "rules": []}])
        self.tv.tv("set", "antenna", "0")
        self.assertEqual(self.ask(f"/api/tvs/a/runs/{run['run']}")[1]["remedies"], [], "it is as the backup wants it")
        other = Tv(self.folder, "lab/b", serial="B")
        for call in "IUtil::RestoreIssDbArchive", "CIM::ICIGeneral::BackupFileDone":
            other.tv("fault", "add", call, "result=0")
        run = self.ask("/api/tvs/b/runs", "POST", restore)[1]
        self.assertEqual((run["remedies"][0]["kind"], run["remedies"][0]["rules"]), ("disarm", [1, 2]))

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
