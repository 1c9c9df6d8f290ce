"""An object store in memory, on the loopback, that misbehaves as the name of a bucket says."""
import http.server
import os
import re
import socket
import threading
import urllib.parse
import xml.sax.saxutils

HUGE = 10 ** 18
PIECE = b"\0" * 65536
KEY = re.compile(r"v2-\d{8}-[0-9a-f]{8}")


def error(code, **members):
    """The XML of a refusal."""
    inner = "".join(f"<{name}>{xml.sax.saxutils.escape(text)}</{name}>"
                    for name, text in {"Code": code, **members}.items())
    return f'<?xml version="1.0"?><Error>{inner}</Error>'.encode()


def page(keys, has_more=False):
    contents = "".join(f"<Contents><Key>{urllib.parse.quote(key)}</Key><ETag>e</ETag></Contents>" for key in keys)
    return (f'<?xml version="1.0"?><ListBucketResult><IsTruncated>{str(has_more).lower()}</IsTruncated>{contents}'
            "</ListBucketResult>").encode()


class Request(http.server.BaseHTTPRequestHandler):
    """One request; `kind` is LIST, HEAD (of a GET with a range), GET, PUT, DELETE or BUCKET."""
    protocol_version = "HTTP/1.1"

    def handle_expect_100(self):
        return True  # the body comes all the same

    def setup(self):
        super().setup()
        self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def handle_one_request(self):
        try:
            super().handle_one_request()
        except (ConnectionError, BrokenPipeError):
            self.close_connection = True

    def log_message(self, *_):
        pass

    def serve(self):
        path, _, query = self.path.partition("?")
        _, bucket, *key = urllib.parse.unquote(path).split("/", 2)
        self.query = dict(urllib.parse.parse_qsl(query, keep_blank_values=True))
        self.key = key[0] if key else ""
        self.objects, self.log = self.server.store.bucket(bucket)
        self.body = self.rfile.read(int(self.headers.get("Content-Length") or 0))
        kind = self.command if self.key else "BUCKET" if self.command == "PUT" else "LIST"
        self.kind = "HEAD" if kind == "GET" and "Range" in self.headers else kind
        self.log.append(self.kind)
        self.server.store.headers = self.headers
        misbehave = getattr(Misbehaviour, bucket.partition(".")[0].replace("-", "_"), None)
        if misbehave is None or misbehave(self) is None:
            self.behave()

    do_GET = do_PUT = do_DELETE = serve

    def answer(self, body=b"", status=200, length=None, **headers):
        self.send_response(status)
        for name, value in headers.items():
            self.send_header(name.replace("_", "-"), value)
        self.send_header("Content-Length", str(len(body) if length is None else length))
        self.end_headers()
        self.wfile.write(body)
        return True

    def refuse(self, status, code, **members):
        return self.answer(error(code, **members), status)

    def cut(self):
        self.connection.shutdown(socket.SHUT_RDWR)
        self.close_connection = True
        return True

    def pour(self, *heads, status=200, **headers):
        """A body without an end; `poured` counts it."""
        self.send_response(status)
        for name, value in headers.items():
            self.send_header(name.replace("_", "-"), value)
        self.end_headers()
        for piece in heads:
            self.wfile.write(piece)
        while self.server.store.poured < 64 << 20:
            self.wfile.write(PIECE)
            self.server.store.poured += len(PIECE)
        return self.cut()

    def behave(self):
        if self.kind == "LIST":
            after = self.query["start-after"]
            keys = sorted(key for key in self.objects if key.startswith(self.query["prefix"]) and key > after)
            most = int(self.query["max-keys"])
            self.answer(page(keys[:most], len(keys) > most))
        elif self.kind in ("GET", "HEAD") and self.key not in self.objects:
            self.refuse(404, "NoSuchKey")
        elif self.kind == "GET":
            self.answer(self.objects[self.key])
        elif self.kind == "HEAD":
            whole = self.objects[self.key]
            last = min(int(self.headers["Range"].partition("-")[2]), len(whole) - 1)
            self.answer(whole[:last + 1], 206, Content_Range=f"bytes 0-{last}/{len(whole)}")
        elif self.kind == "PUT":
            self.objects[self.key] = self.body
            self.answer(ETag='"e"')
        elif self.kind == "DELETE":
            self.objects.pop(self.key, None)
            self.answer(status=204)
        else:
            self.answer()


def environment_of(store):
    """What leads to it and to nothing else; no test waits for it."""
    clean = {name: "" for name in os.environ if name.startswith("AWS_")}
    return {**clean, "AWS_ENDPOINT_URL": store.address, "AWS_ACCESS_KEY_ID": "key", "AWS_SECRET_ACCESS_KEY": "secret",
            "AWS_CONFIG_FILE": "/nowhere", "AWS_SHARED_CREDENTIALS_FILE": "/nowhere", "HALCYON_CLOUD_STALL": "1",
            "HALCYON_CLOUD_LIMIT": "2", "HALCYON_CLOUD_PAUSE": "0"}


def of(*kinds):
    """Misbehaves at requests of these kinds alone."""
    def decorate(misbehave):
        return staticmethod(lambda request: misbehave(request) if request.kind in kinds else None)
    return decorate


READ = "GET", "HEAD"


class Misbehaviour:
    """Each returns None if the request shall be served as usual."""

    @of("LIST")
    def standing_list(self):
        return self.answer(page(sorted(self.objects), True))

    @of("LIST")
    def empty_pages(self):
        return self.answer(page([], True))

    @of("LIST")
    def endless_list(self):
        return self.answer(page([self.query["prefix"] + f"x{len(self.log):09}"], True))

    @of("LIST")
    def key_outside(self):
        return self.answer(page(["z/of/somebody/else"]))

    @of("LIST")
    def key_shorter(self):
        return self.answer(page([""]))

    @of("LIST")
    def no_number_left(self):
        return self.answer(page([self.query["prefix"] + "v2-00000000-0000000a"]))

    @of("LIST")
    def list_cut(self):
        return self.answer(page(sorted(self.objects))[:-40])

    @of("LIST")
    def list_nothing(self):
        return self.answer()

    @of("LIST", "PUT")
    def portal(self):
        return self.answer(b"<html><title>Guests</title><p>Please log in</p></html>", Content_Type="text/html")

    @of("LIST")
    def wrong_account(self):
        """Another account's object stands where this one's should."""
        self.answer(page(sorted(self.objects)))
        self.objects.update({key: value.replace(b'"account":"default"', b'"account":"another"')
                             for key, value in self.objects.items()})
        return True

    @of(*READ)
    def endless_body(self):
        return self.pour()

    @of("HEAD")
    def range_ignored(self):
        return self.pour(self.objects[self.key], Content_Length=str(HUGE))

    @of("HEAD")
    def range_endless(self):
        whole = self.objects[self.key]
        return self.pour(whole, status=206, Content_Range=f"bytes 0-8191/{len(whole)}", Content_Length=str(HUGE))

    @of("HEAD")
    def range_unsaid(self):
        return self.answer(self.objects[self.key][:4096], 206)

    @of(*READ)
    def size_huge(self):
        body = re.sub(rb'"bundle":\d+', b'"bundle":%d' % HUGE, self.objects[self.key])
        return self.answer(body[:4096], 206, Content_Range=f"bytes 0-4095/{HUGE}")

    @of(*READ)
    def size_lies(self):
        self.objects[self.key] += b"more"

    @of(*READ)
    def body_cut(self):
        self.answer(self.objects[self.key][:100], length=len(self.objects[self.key]))
        return self.cut()

    @of(*READ)
    def page_missing(self):
        return self.answer(b"<html><h1>Not Found</h1></html>", 404)

    @of("LIST", "PUT", "GET", "HEAD")
    def redirect(self):
        return self.refuse(301, "PermanentRedirect", Message="Use the other one.", Endpoint="s3.other.example")

    reset_list = of("LIST")(lambda self: self.cut())
    reset_get = of("GET")(lambda self: self.cut())
    reset_put = of("PUT")(lambda self: self.cut())

    @of("LIST")
    def silent(self):
        self.server.store.over.wait(30)
        return self.cut()

    @of(*READ)
    def drip(self):
        self.answer(length=len(self.objects[self.key]))
        for i in range(100):
            self.wfile.write(self.objects[self.key][i:i + 1])
            if self.server.store.over.wait(0.3):
                break
        return self.cut()

    @of("LIST")
    def retry_much_later(self):
        return self.answer(error("SlowDown", Message="Reduce your rate."), 503, Retry_After="3600")

    @of("LIST", "PUT", "GET")
    def busy_at_first(self):
        return self.answer(b"", 429) if self.log.count(self.kind) % 3 else None

    @of("LIST", "PUT")
    def broken(self):
        return self.refuse(500, "InternalError", Message="We are sorry.")

    @of("LIST")
    def skewed(self):
        return self.refuse(403, "RequestTimeTooSkewed", Message="Too far from the server's time.")

    @of("LIST", "PUT")
    def region(self):
        return self.refuse(400, "AuthorizationHeaderMalformed", Message="The region is wrong.", Region="eu-north-9")

    @of("LIST")
    def token_expired(self):
        return self.refuse(400, "ExpiredToken", Message="The provided token has expired.")

    @of("GET")
    def verdict_lost(self):
        """The run gets its backup, and its verdict does not."""
        return self.refuse(503, "SlowDown", Message="Later.") if self.log.count("GET") > 1 else None

    @of("GET")
    def backup_removed(self):
        self.behave()
        self.objects.clear()
        return True

    @of("HEAD")
    def overloaded(self):
        return self.refuse(503, "SlowDown")

    @of("PUT")
    def full(self):
        return self.refuse(403, "QuotaExceeded", Message="No room for you.")


class WildStore:
    """`template` is what each bucket begins with."""

    def __init__(self):
        self.template = {}
        self.poured = 0
        self.headers = None  # of the last request
        self.over = threading.Event()
        self._buckets = {}
        self._lock = threading.Lock()
        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Request)
        self._server.daemon_threads = True
        self._server.store = self
        self.address = f"http://127.0.0.1:{self._server.server_port}"
        self._thread = threading.Thread(target=self._server.serve_forever, kwargs={"poll_interval": 0.05})
        self._thread.start()

    def bucket(self, name):
        """Its objects, and the kinds of the requests to it."""
        with self._lock:
            return self._buckets.setdefault(name, (dict(self.template), []))

    def stop(self):
        self.over.set()
        self._server.shutdown()
        self._thread.join()
        self._server.server_close()
