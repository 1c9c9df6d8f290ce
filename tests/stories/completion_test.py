"""What the shells complete, typed at their prompts."""
import os
import pty
import select
import shutil
import signal
import time
import unittest

from halcyon import ROOT, Story, Tv

WAIT = 20  # seconds at most for a shell
SCRIPTS = ROOT / "packaging/completion"
HERE = "show() { printf '%s\\n' \"$@\" >> words; printf '\\0' >> words; }"
# How each is started, and prepared: `show` writes its arguments to a file.
SHELLS = {
    "bash": (["bash", "--norc", "-i"], f"{HERE}; source '{SCRIPTS}/bash'"),
    "zsh": (["zsh", "-f", "-i"], f"{HERE}; autoload -U compinit; compinit -D -u; bindkey -e; "
                                 f"_halcyon_tv() {{ source '{SCRIPTS}/zsh' }}; compdef _halcyon_tv halcyon-tv"),
    "fish": (["fish", "--no-config", "-i"], "function show; printf '%s\\n' $argv >> words; printf '\\0' >> words; end; "
                                            f"source '{SCRIPTS}/fish'"),
}
# What is typed before the tabulator, and the words of the line after it.
CASES = [
    ("sta", ["status"]),
    ("fault add IUtil::GetServ", ["fault", "add", "IUtil::GetServiceDb"]),
    ("fault add GetServ", ["fault", "add", "GetServiceDb"]),
    ("fault add IUtil::GetServiceDb damage=tr", ["fault", "add", "IUtil::GetServiceDb", "damage=truncate"]),
    ("fault add bnr_response los", ["fault", "add", "bnr_response", "lost"]),
    ("run operation=r", ["run", "operation=restore"]),
    ("set zon", ["set", "zone"]),
    ("reset bef", ["reset", "before"]),
    ("export --format v", ["export", "--format", "vdr"]),
    ("diff 0000", ["diff", "000001"]),
    ("bundle show odd", ["bundle", "show", "odd\nname of a.zip"]),
    ("init --channels 'the l", ["init", "--channels", "the list.conf"]),
    ("--home 'my tv/b' --cloud nowhere reset oth", ["--home", "my tv/b", "--cloud", "nowhere", "reset", "other"]),
    ("--home my\\ tv/b reset oth", ["--home", "my tv/b", "reset", "other"]),
]


class Completion(Story):
    def setUp(self):
        super().setUp()
        (self.folder / "my tv").mkdir()
        for name, snapshot in ("a", "before"), ("b", "other"):
            tv = Tv(self.folder, f"my tv/{name}")
            tv.tv("snapshot", snapshot)
        tv.tv("run", "-q")
        for name in "odd\nname of a.zip", "the list.conf":
            (self.folder / name).touch()

    def start(self, shell):
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.folder)
            environment = dict(os.environ, HALCYON_TV_HOME="my tv/a", HALCYON_CLOUD="cloud",
                               HOME=str(self.folder), TERM="dumb", PS1="")
            os.execvpe(shell[0], shell, environment)
        self.addCleanup(os.close, terminal)
        self.addCleanup(os.waitpid, pid, 0)
        self.addCleanup(os.kill, pid, signal.SIGKILL)
        return terminal

    def typed(self, terminal, keys, count):
        """The words that `show` got for the count-th time, after these keys."""
        os.write(terminal, keys.encode())
        seen, end = "", time.monotonic() + WAIT
        while time.monotonic() < end:
            if select.select([terminal], [], [], 0.02)[0]:
                seen += os.read(terminal, 65536).decode(errors="replace")
            written = (self.folder / "words").read_text().split("\0")[:-1]
            if len(written) == count:
                return written[-1]
        raise AssertionError(f"no answer to {keys!r}: {seen}")

    def test_each_shell_completes_what_can_stand_there(self):
        for name, (shell, preparation) in SHELLS.items():
            if shutil.which(name) is None:
                continue
            (self.folder / "words").write_text("")
            terminal = self.start(shell)
            self.assertEqual(self.typed(terminal, f"{preparation}\rshow ready\r", 1), "ready\n")
            for count, (keys, words) in enumerate(CASES, 2):
                with self.subTest(f"{name}: {keys}"):
                    got = self.typed(terminal, f"halcyon-tv {keys}\t\x01show \r", count)
                    self.assertEqual(got, "\n".join(["halcyon-tv", *words, ""]))


if __name__ == "__main__":
    unittest.main()
