"""An object store on this machine, which tests start, break and stop."""
import os
import pathlib
import subprocess
import tempfile

from halcyon import DATA, Story, Tv

SCRIPT = pathlib.Path(__file__).parents[2] / "scripts/object-store"


class Cluster:
    """`environment` leads halcyon-tv to it."""

    def __init__(self, *options):
        self.temporary = tempfile.TemporaryDirectory()
        self.folder = pathlib.Path(self.temporary.name) / "store"
        lines = self.run("up", *options).splitlines()
        self.environment = dict(line.removeprefix("export ").split("=", 1) for line in lines)
        self.endpoints = self.environment["AWS_ENDPOINT_URL"].split(",")

    def run(self, command, *words):
        answer = subprocess.run([SCRIPT, command, self.folder, *map(str, words)], text=True, capture_output=True)
        if answer.returncode != 0:
            raise RuntimeError(f"object-store {command}: {answer.stderr}")
        return answer.stdout

    def stop(self):
        self.run("down")
        self.temporary.cleanup()

    def create(self, bucket):
        subprocess.run(["halcyon-tv", "--cloud", "s3://" + bucket, "cloud", "create"], check=True,
                       env=dict(os.environ, **self.environment))

    # Raw objects, as somebody else would read and write them; a key begins with the bucket.

    def read(self, key):
        return self._ask(key)

    def write(self, key, content):
        with tempfile.NamedTemporaryFile() as file:
            file.write(content)
            file.flush()
            self._ask(key, "--upload-file", file.name)

    def _ask(self, key, *words):
        user = f"{self.environment['AWS_ACCESS_KEY_ID']}:{self.environment['AWS_SECRET_ACCESS_KEY']}"
        return subprocess.run(["curl", "--silent", "--show-error", "--fail", "--aws-sigv4", "aws:amz:default:s3",
                               "--user", user, "--header", "x-amz-content-sha256: UNSIGNED-PAYLOAD", *words,
                               f"{self.endpoints[0]}/{key}"], check=True, capture_output=True).stdout


def object_key(place, backup):
    """The key of a listed backup's object: its number counts down as that of the id counts up."""
    number, random = backup["id"].split("-")
    name = f"v2-{99999999 - int(number):08}-{random}"
    return "/".join((place, backup["account"], backup["clientId"], backup["category"], name))


class TwoTvs(Story):
    """TV a with a list of its own and TV b fresh from the factory, over a place of its own in the bucket `lab`."""

    def setUp(self):
        super().setUp()
        self.cloud = "s3://lab/" + self.id().rsplit(".", 1)[1]
        self.a = self.make("a", DATA / "channels.conf")
        self.b = self.make("b", DATA / "factory.conf")

    def key(self, backup):
        return object_key(self.cloud.removeprefix("s3://"), backup)

    def make(self, name, channels):
        return Tv(self.folder, name, cloud=self.cloud, channels=channels)
