"""Simulated TVs for tests in Python: halcyon-tv, each call in a temporary folder of the test's own."""
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

DATA = pathlib.Path(__file__).parents[2] / "data"
MOMENT = "2026-01-31T18:00:00Z"


class Answer:
    def __init__(self, process):
        self.code = process.returncode
        self.text = process.stdout
        self.errors = process.stderr

    @property
    def json(self):
        return json.loads(self.text)


class Tv:
    """A TV in `folder`, with a cloud that it may share: a folder there, or an address."""

    def __init__(self, folder, name, cloud="cloud", channels=DATA / "factory.conf", serial=None):
        self.home = folder / name
        self.cloud = cloud if "://" in cloud else folder / cloud
        self.folder = folder
        self.tv("init", "--channels", channels, "--serial", serial or name, "--now", MOMENT, "--still")

    def tv(self, *words, code=0):
        """Runs halcyon-tv; `code` is the exit code that is expected, None any."""
        environment = dict(os.environ, HALCYON_TV_HOME=str(self.home), HALCYON_CLOUD=str(self.cloud))
        answer = Answer(subprocess.run(["halcyon-tv", *map(str, words)], env=environment, cwd=self.folder, text=True,
                                       capture_output=True, timeout=60))
        if code is not None and answer.code != code:
            raise AssertionError(f"halcyon-tv {words}: {answer.code}\n{answer.text}{answer.errors}")
        return answer


class Story(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
