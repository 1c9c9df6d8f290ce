"""Simulated TVs for the stories, by the package that others test with."""
import pathlib
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "kit/python"))
from halcyon_tv import MOMENT, Answer, Tv  # noqa: E402  (it is found by the path)

__all__ = ["Answer", "DATA", "MOMENT", "Story", "Tv"]
DATA = ROOT / "data"


class Story(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
