"""The tutorial's commands, run in their order, print what the tutorial says."""
import os
import re
import subprocess
import unittest

from halcyon import DATA, Story

TUTORIAL = DATA.parent / "docs/tutorial.md"


def steps():
    """Each command with the output that the tutorial shows."""
    for block in re.findall(r"```console\n(.*?)```", TUTORIAL.read_text(), re.DOTALL):
        for step in re.split(r"^\$ ", block, flags=re.MULTILINE)[1:]:
            command, _, output = step.partition("\n")
            yield command, output


def masked(text, folder):
    """Without what differs in each run, or after each change of the application's source."""
    text = text.replace(str(folder), "/home/me/halcyon-lineup")
    text = re.sub(r"\(\d+\): ", "(LINE): ", text)
    text = re.sub(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", "TIME", text)
    return re.sub(r"[ \t]+$", "", text, flags=re.MULTILINE)


class Tutorial(Story):
    maxDiff = None

    def test_each_command_prints_what_is_shown(self):
        shell = subprocess.Popen(["bash"], cwd=self.folder, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, env=dict(os.environ, HOME=str(self.folder)))
        self.addCleanup(shell.communicate)
        count = 0
        (self.folder / "data").symlink_to(DATA)
        for command, expected in steps():
            shell.stdin.write(f"{command}\ncode=$?; echo \"--end\"; (exit $code)\n")
            shell.stdin.flush()
            lines = []
            while not (line := shell.stdout.readline()).startswith("--end"):
                self.assertNotEqual(line, "", f"the shell has ended at: {command}")
                lines.append(line)
            with self.subTest(command):
                self.assertEqual(masked("".join(lines), self.folder), masked(expected, self.folder))
            count += 1
        self.assertGreater(count, 10)


if __name__ == "__main__":
    unittest.main()
