"""Simulated TVs for the stories, by the package that others test with."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "kit/python"))
from halcyon_tv import MOMENT, Answer, Tv  # noqa: E402  (it is found by the path)

__all__ = ["Answer", "DATA", "MOMENT", "ROOT", "Story", "Tv", "halcyon_tv"]
DATA = ROOT / "data"


def halcyon_tv(*words, folder, code=0):
    """Runs halcyon-tv in a folder; `code` is the exit code that is expected."""
    answer = Answer(subprocess.run(["halcyon-tv", *map(str, words)], cwd=folder, text=True, capture_output=True,
                                   timeout=60))
    if answer.code != code:
        raise AssertionError(f"halcyon-tv {words}: {answer.code}\n{answer.text}{answer.errors}")
    return answer


class Story(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
