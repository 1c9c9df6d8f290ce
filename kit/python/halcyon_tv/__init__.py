"""Simulated TVs for tests in Python: halcyon-tv, each call in a folder of the test's own."""
import json
import os
import pathlib
import subprocess

MOMENT = "2026-01-31T18:00:00Z"
_LISTS = [pathlib.Path(__file__).parents[3] / "data", pathlib.Path("/usr/share/halcyon-tv")]


def channel_list(name):
    """One of the lists that come with halcyon-tv: "channels.conf", or the short "factory.conf"."""
    return next(folder / name for folder in _LISTS if (folder / name).is_file())


class Answer:
    """What a command has printed, and its exit code."""

    def __init__(self, process):
        self.code = process.returncode
        self.text = process.stdout
        self.errors = process.stderr

    @property
    def json(self):
        if not self.text:
            raise AssertionError(f"exit code {self.code}: {self.errors}")
        return json.loads(self.text)


class Run(dict):
    """The verdict on a run, as `run --json` prints it, and its calls and log records."""

    @property
    def outcome(self):
        return self["outcome"]

    @property
    def items(self):
        """The state of each item by its name, such as {"channels": "restored"}."""
        return {item["item"]: item["state"] for item in self["items"]}

    @property
    def calls(self):
        """The names of the platform calls in their order."""
        return [moment["call"]["name"] for moment in self["timeline"] if moment["call"]]

    @property
    def log(self):
        """The messages of the application's log in their order."""
        return [moment["log"]["message"].rstrip() for moment in self["timeline"] if moment["log"]]


class Tv:
    """A TV in `folder`, with a cloud that it may share: a folder there, or an address.

    Its clock stands at MOMENT. `app` is the build of the application that it runs; None: the installed one. `keeper`:
    the options of init for the program that keeps its channel list, such as --vdr; it takes the place of `channels`.
    """

    def __init__(self, folder, name, cloud="cloud", channels=None, serial=None, app=None, keeper=()):
        self.home = folder / name
        self.cloud = cloud if "://" in cloud else folder / cloud
        self.folder = folder
        self.app = app
        self.tv("init", *(keeper or ("--channels", channels or channel_list("factory.conf"))),
                "--serial", serial or name, "--now", MOMENT, "--still")

    def tv(self, *words, code=0):
        """Runs halcyon-tv; `code` is the exit code that is expected, None any."""
        environment = dict(os.environ, HALCYON_TV_HOME=str(self.home), HALCYON_CLOUD=str(self.cloud))
        answer = Answer(subprocess.run(["halcyon-tv", *map(str, words)], env=environment, cwd=self.folder, text=True,
                                       capture_output=True, timeout=60))
        if code is not None and answer.code != code:
            raise AssertionError(f"halcyon-tv {words}: {answer.code}\n{answer.text}{answer.errors}")
        return answer

    def run(self, *extras, options=()):
        """Launches the application with extra values such as "operation=restore", and returns the Run."""
        app = ["--app", self.app] if self.app else []
        return Run(self.tv("run", "--json", "-v", *app, *options, *extras, code=None).json)

    def fault(self, call, *failures, **options):
        """Makes calls fail: fault("GetServiceDb", "result=0", nth=2). Returns the number of the rule."""
        words = [word for name, value in options.items() for word in (f"--{name}", value)]
        return self.tv("fault", "add", call, *failures, *words, "--json").json["rule"]

    def set(self, name, *words):
        """set("antenna", "0,2"), set("favourite", 2, "add", 22, 23)."""
        self.tv("set", name, *words)

    def status(self):
        return self.tv("status", "--services", "--json").json

    def differs_from(self, other):
        """What `diff` finds between this TV and another one, a bundle file or a backup's id; None if nothing."""
        answer = self.tv("diff", other.home if isinstance(other, Tv) else other, "--json", code=None)
        if answer.code not in (0, 1):
            raise AssertionError(answer.errors)
        return answer.json if answer.code == 1 else None
