"""A release that was tampered with is refused, whatever was done to it."""
import importlib.util
import io
import json
import os
import pathlib
import shutil
import subprocess
import tarfile
import unittest

from halcyon import ROOT, Story

SPEC = importlib.util.spec_from_file_location("release", ROOT / "scripts/release.py")
release = importlib.util.module_from_spec(SPEC)
SPEC.loader.exec_module(release)

DIGEST = [{"algorithm": "SHA256", "checksumValue": "0" * 64}]


def package(ref, **more):
    return {"SPDXID": ref, "name": ref, "versionInfo": "1", "downloadLocation": "NOASSERTION",
            "licenseConcluded": "MIT", "licenseDeclared": "MIT", "checksums": DIGEST, **more}


def bill(**more):
    return json.dumps({
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": "bill",
        "documentNamespace": "https://halcyon-lineup.invalid/1",
        "packages": [package("SPDXRef-a"), package("SPDXRef-b")],
        "relationships": [{"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
                           "relatedSpdxElement": "SPDXRef-a"}], **more}).encode()


def deb(text):
    """A package that installs nothing but this bill."""
    content = io.BytesIO()
    with tarfile.open(fileobj=content, mode="w:gz") as archive:
        entry = tarfile.TarInfo("./usr/share/doc/halcyon-tv/halcyon-tv.spdx.json")
        entry.size = len(text)
        archive.addfile(entry, io.BytesIO(text))
    data = content.getvalue()
    members = [(b"debian-binary", b"2.0\n"), (b"data.tar.gz", data)]
    return b"!<arch>\n" + b"".join(
        name.ljust(16) + b"0".ljust(12) + b"0".ljust(6) * 2 + b"100644".ljust(8) + str(len(member)).encode().ljust(10) +
        b"`\n" + member + b"\n" * (len(member) % 2) for name, member in members)


class Release(Story):
    def setUp(self):
        super().setUp()
        self.key, self.public = self.make_key("ours")
        self.release = self.folder / "release"
        self.make()

    def make_key(self, name):
        files = self.folder / f"{name}.key", self.folder / f"{name}.pub"
        subprocess.run(["minisign", "-G", "-W", "-s", files[0], "-p", files[1]], check=True, capture_output=True)
        return files

    def make(self, inner=bill(), outer=bill(), key=None):
        shutil.rmtree(self.release, ignore_errors=True)
        self.release.mkdir()
        (self.release / "halcyon-tv_2.0.0_amd64.deb").write_bytes(deb(inner))
        (self.release / "halcyon-lineup-2.0.0.tar.gz").write_bytes(b"the source")
        (self.release / "halcyon-lineup-2.0.0.spdx.json").write_bytes(outer)
        release.seal(self.release, key or self.key)

    def verify(self, *options):
        process = subprocess.run([ROOT / "scripts/release.py", "verify", self.release, "--public-key", self.public,
                                  *options], capture_output=True, text=True)
        return process.returncode, process.stdout + process.stderr

    def test_one_that_is_whole_passes_and_what_was_not_looked_at_is_said(self):
        code, text = self.verify()
        self.assertEqual((code, text.splitlines()), (0, [
            "signed with this key", "whole: 3 files", "bill of materials: 2 components",
            "NOT CHECKED what the source builds to: no --rebuilt"]))
        rebuilt = self.folder / "rebuilt"
        rebuilt.mkdir()
        code, text = self.verify("--rebuilt", rebuilt)
        self.assertEqual(code, 1)
        self.assertIn("is not what the source builds to", text)
        shutil.copy(self.release / "halcyon-tv_2.0.0_amd64.deb", rebuilt)
        self.assertEqual(self.verify("--rebuilt", rebuilt)[0], 0)

    def test_what_was_tampered_with_is_refused(self):
        other, _ = self.make_key("other")
        sums, signature = self.release / "SHA256SUMS", self.release / "SHA256SUMS.minisig"
        source, outer = self.release / "halcyon-lineup-2.0.0.tar.gz", self.release / "halcyon-lineup-2.0.0.spdx.json"
        packed = self.release / "halcyon-tv_2.0.0_amd64.deb"

        def change(file, old, new):
            data = file.read_bytes()
            self.assertIn(old, data)
            file.write_bytes(data.replace(old, new, 1))

        def linked():
            source.rename(self.folder / "elsewhere")
            source.symlink_to(self.folder / "elsewhere")

        def resign(words):
            sums.write_text(words(sums.read_text()))
            subprocess.run(["minisign", "-S", "-s", self.key, "-m", sums, "-x", signature], check=True,
                           capture_output=True)

        cases = {
            "a byte of the source": lambda: change(source, b"s", b"S"),
            "a byte of a package": lambda: change(packed, b"2.0", b"2.1"),
            "a byte of the bill": lambda: change(outer, b"MIT", b"GPL"),
            "a file is gone": source.unlink,
            "a file more": lambda: (self.release / "more.deb").write_bytes(b"x"),
            "a folder more": (self.release / "folder").mkdir,
            "a file is a link": linked,
            "a file has another name": lambda: source.rename(self.release / "halcyon-lineup-2.0.1.tar.gz"),
            "two files have changed places": lambda: (os.rename(source, self.folder / "x"), os.rename(outer, source),
                                                      os.rename(self.folder / "x", outer)),
            "a file is cut off": lambda: os.truncate(packed, 100),
            "a file is longer": lambda: packed.write_bytes(packed.read_bytes() + b"x"),
            "a digest": lambda: change(sums, sums.read_bytes()[:1], b"g"),
            "a line of the sums is gone": lambda: sums.write_text(sums.read_text().partition("\n")[2]),
            "changed and listed anew": lambda: (change(source, b"s", b"S"), release.seal(self.release, None)),
            "changed and signed by another": lambda: (change(source, b"s", b"S"), signature.unlink(), sums.unlink(),
                                                      release.seal(self.release, other)),
            "the signature is gone": signature.unlink,
            "the signature of another text": lambda: signature.write_bytes(self.signature_of(b"another")),
            "the signature is cut off": lambda: os.truncate(signature, 60),
            "the comment that was signed with it": lambda: change(signature, b"\ntrusted comment: ",
                                                                  b"\ntrusted comment: x"),
            "the sums are gone": sums.unlink,
            "a line twice": lambda: resign(lambda text: text + text.splitlines()[0] + "\n"),
            "a path that leads out": lambda: resign(lambda text: text + "0" * 64 + "  ../x\n"),
            "another bill in the package": lambda: self.make(inner=bill(name="other")),
            "a bill of another version": lambda: self.make(*[bill(spdxVersion="SPDX-2.2")] * 2),
            "a bill that lacks a licence": lambda: self.make(
                *[bill(packages=[package("SPDXRef-a", licenseDeclared="")])] * 2),
            "a bill that is no JSON": lambda: self.make(b"{", b"{"),
        }
        for name, tamper in cases.items():
            with self.subTest(name):
                self.make()
                tamper()
                with self.assertRaises(release.Wrong):
                    list(release.verify(self.release, self.public, None))

    def signature_of(self, data):
        file = self.folder / "another"
        pathlib.Path(file).write_bytes(data)
        subprocess.run(["minisign", "-S", "-s", self.key, "-m", file], check=True, capture_output=True)
        return (self.folder / "another.minisig").read_bytes()


if __name__ == "__main__":
    unittest.main()
