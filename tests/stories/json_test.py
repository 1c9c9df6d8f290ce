"""Each command's JSON is what the schema says, and what its text is printed from."""
import json
import subprocess
import unittest

import jsonschema

from halcyon import DATA, Story, Tv

DOCS = DATA.parent / "docs"
SCHEMA = json.loads((DOCS / "json.schema.json").read_text())


def check(name, value):
    jsonschema.validate(value, {"$ref": f"#/$defs/{name}", "$defs": SCHEMA["$defs"]})
    return value


class Json(Story):
    def test_every_command_prints_what_the_schema_says(self):
        a = Tv(self.folder, "a", channels=DATA / "channels.conf")
        b = Tv(self.folder, "b")
        check("run", a.tv("run", "--json").json)
        check("fault add", b.tv("fault", "add", "IUtil::RestoreIssDbArchive", "result=0", "--json").json)
        check("run", b.tv("run", "operation=restore", "--json", "-v", code=4).json)
        record = check("record", b.tv("record", "--json").json)
        self.assertEqual([m["call"]["name"] for m in record["timeline"] if m["isDecisive"]],
                         ["IUtil::RestoreIssDbArchive"])
        for name, words, code in [
                ("records", "record --all", 0), ("status", "status --services", 0), ("snapshot", "snapshot", 0),
                ("diff", "diff 000001", 1), ("bundle show", "bundle show", 0),
                ("bundle show", "bundle show 000001", 0), ("rescan", f"rescan {DATA / 'factory.conf'}", 0),
                ("bundle verify", "bundle verify", 0),
                ("cloud list", "cloud list", 0), ("set", "set scan ON", 0), ("reset", "reset", 0),
                ("cloud create", "cloud create", 0), ("fault clear", "fault clear", 0),
                ("fault list", "fault list", 0), ("fault calls", "fault calls", 0)]:
            with self.subTest(words):
                check(name, b.tv(*words.split(), "--json", code=code).json)
        for _ in range(2):
            b.tv("run", "operation=restore")
        check("record difference", b.tv("record", 1, 2, "--json", code=1).json)
        bundle = next(self.folder.glob("cloud/*/*/000001/bundle.zip"))
        imported = check("cloud import", b.tv("--json", "cloud", "import", bundle).json)["backup"]
        self.assertEqual(check("cloud remove", b.tv("--json", "cloud", "remove", "2").json)["backup"], imported)
        for name, words in [("cloud pin", "cloud pin 1"), ("cloud get", "cloud get 1 got.zip"), ("cloud check", ""),
                            ("cloud verify", "cloud verify --all"), ("cloud copy", "cloud copy other"),
                            ("cloud forget", "cloud forget --all-accounts --keep-last 1 --dry-run")]:
            with self.subTest(name):
                check(name, b.tv("--json", *(words or name).split()).json)
        check("sweep", b.tv("sweep", "--operation", "backup", "--json").json)
        check("fleet run", b.tv("fleet", "run", "--tvs", 2, "--json").json)
        check("play", b.tv("play", *(DATA / "scenarios").glob("*.yaml"), "--json").json)
        made = b.tv("init", "--channels", DATA / "channels.conf", "--home", self.folder / "c", "--json")
        check("init", made.json)
        table = self.folder / "table.csv"
        table.write_text(b.tv("export", "--format", "csv").text, encoding="utf-8")
        self.assertEqual(check("apply", b.tv("apply", table, "--json").json)["changed"], 0)

    def test_a_text_in_any_encoding_is_valid_json(self):
        a = Tv(self.folder, "a")
        a.tv("set", "favname1", "caf\udce9 \\ \"")
        self.assertEqual(a.tv("status", "--json").json["favourites"][0], 'café \\ "')

    def test_the_reference_is_what_the_schema_makes(self):
        written = subprocess.run([DOCS.parent / "scripts/json-reference"], check=True, capture_output=True, text=True)
        self.assertEqual((DOCS / "json.md").read_text(), written.stdout, "scripts/json-reference > docs/json.md")


if __name__ == "__main__":
    unittest.main()
