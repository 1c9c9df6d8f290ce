"""The commands in the documents run in their order, and print what is shown; tables agree with the program.

A ```console block has commands after `$ ` and what they print; an indented block has commands, which must succeed, or
end with an exit code that their comment names. `<!-- not run: REASON -->` before a block excepts it."""
import os
import pathlib
import re
import shutil
import subprocess
import unittest

import markdown_it

from halcyon import DATA, ROOT, Story, Tv, halcyon_tv

PAGES = ["README.md", "CONTRIBUTING.md"] + ["docs/" + name + ".md" for name in (
    "building", "cloud", "formats", "http", "json", "scenarios", "testing", "tutorial", "vdr")]


def blocks(page):
    """The blocks of a page that are run, as (language, text); None: an indented one."""
    reason = None
    for token in markdown_it.MarkdownIt().parse((ROOT / page).read_text(encoding="utf-8")):
        if token.type in ("fence", "code_block") and not reason:
            yield token.info if token.type == "fence" else None, token.content
        elif token.type in ("fence", "code_block"):
            print(f"not run: {page}: {reason[1]}")
        reason = re.match("<!-- not run: (.*) -->", token.content) if token.type == "html_block" else None


def steps(page):
    """Each command of a page, with what it prints (None: anything), and the exit codes that are right."""
    for language, text in blocks(page):
        if language == "console":
            for step in re.split(r"^\$ ", text, flags=re.MULTILINE)[1:]:
                command, _, output = step.partition("\n")
                yield command, output, None
        elif language is None:
            for command in text.strip().split("\n"):
                comment = re.search(r"# .*exit code (.*)", command)
                yield command, None, {"0", *re.findall(r"\d+", comment[1] if comment else "")}


def masked(text, folder):
    """Without what differs in each run, or after each change of the application's source."""
    text = text.replace(str(folder), "/home/me/halcyon-lineup")
    text = re.sub(r"\(\d+\): ", "(LINE): ", text)
    text = re.sub(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", "TIME", text)
    text = re.sub(r"TIME +\d+ ", "TIME BYTES ", text)
    return re.sub(r"[ \t]+$", "", text, flags=re.MULTILINE)


class Documents(Story):
    maxDiff = None

    def prepare(self):
        """What the documents take for granted: the clone, a TV with three runs at the default place, and a bundle."""
        home = pathlib.Path(".local/state/halcyon-tv/tv")
        (self.folder / home.parent).mkdir(parents=True)
        self.tv = Tv(self.folder, str(home), cloud=str(home.parent / "cloud"), channels=DATA / "channels.conf",
                     serial="A")
        for _ in range(3):
            self.tv.tv("run", "-q")
        (self.folder / "data").symlink_to(DATA)
        bundle = next(self.folder.glob(".local/**/000001/bundle.zip"))
        shutil.copy(bundle, self.folder / "customer.zip")
        shutil.copy(bundle.parent / "metadata.json", self.folder / "customer.zip.json")
        scenario = re.search(r"```yaml\n(.*?)```", (ROOT / "docs/scenarios.md").read_text(), re.DOTALL)[1]
        (self.folder / "case.yaml").write_text(scenario)
        for name in "channels.conf", "factory.conf":
            shutil.copy(DATA / name, self.folder)

    def run_page(self, page):
        environment = {name: value for name, value in os.environ.items() if not name.startswith("HALCYON_")}
        environment.update(HOME=str(self.folder), XDG_STATE_HOME="")
        shell = subprocess.Popen(["bash"], cwd=self.folder, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, env=environment)
        self.addCleanup(shell.communicate)
        count = 0
        for command, expected, codes in steps(page):
            here = command.replace("/tmp/", f"{self.folder}/")
            shell.stdin.write(f"{here}\ncode=$?; echo \"--end $code\"; (exit $code)\n")
            shell.stdin.flush()
            lines = []
            while not (line := shell.stdout.readline()).startswith("--end"):
                self.assertNotEqual(line, "", f"the shell has ended at: {command}")
                lines.append(line)
            with self.subTest(f"{page}: {command}"):
                if expected is not None:
                    self.assertEqual(masked("".join(lines), self.folder), masked(expected, self.folder))
                else:
                    self.assertIn(line.split()[1], codes, "".join(lines))
            count += 1
        return count

    def test_each_command_does_what_is_shown(self):
        self.prepare()
        counts = {page: self.run_page(page) for page in PAGES}
        self.assertGreater(counts["docs/tutorial.md"], 10)
        self.assertGreater(counts["README.md"], 15)

    def test_tables_agree_with_the_program(self):
        shown = re.findall(r"^  (\d+) +(.*)$", halcyon_tv("--help", folder=self.folder).text, re.MULTILINE)
        table = re.findall(r"^\| (\d+) \| (.*?) \|$", (ROOT / "README.md").read_text(), re.MULTILINE)
        self.assertEqual([(code, meaning.replace("`", "")) for code, meaning in table], shown)
        formats = re.search(r"--format .*\{(.*)\}", halcyon_tv("export", "--help", folder=self.folder).text)[1]
        rows = re.findall(r"^\| `(\w+)`:.*\| (.*)\|$", (ROOT / "docs/formats.md").read_text(), re.MULTILINE)
        self.assertEqual({name for name, written in rows if written}, set(formats.split(",")))

    def test_the_manual_has_each_value_and_variable(self):
        manuals = [subprocess.check_output(["halcyon-manual", program], text=True)
                   for program in ("halcyon-tv", "halcyon-lineup")]
        for manual in manuals:
            self.assertEqual(re.findall(r".*(?<!grep\\fR )\\fI(?:TEXT|INT|UINT|FLOAT)\\fR", manual), [])
        variables = set(re.findall(r'"(HALCYON_\w+)"', (ROOT / "simulator/base/Environment.h").read_text()))
        between = {"HALCYON_TV_LOCK", "HALCYON_TV_SOCKET"}  # the two programs, for nobody else
        self.assertEqual({name for name in variables - between if name not in "".join(manuals)}, set())


if __name__ == "__main__":
    unittest.main()
