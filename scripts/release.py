#!/usr/bin/env python3
"""Makes the folder of a release, or looks whether one is what its makers signed.

usage: release.py make PACKAGES FOLDER [--key FILE]
       release.py verify FOLDER [--public-key FILE] [--rebuilt PACKAGES]

A release has the source, the Debian packages, their bill of materials, SHA256SUMS of all of these, and a signature of
that. PACKAGES is a folder of packages from the same source. --key is a secret key of minisign, --public-key its public
half, which must come from elsewhere than the release. Exit code 1 if anything is not as it should be.
"""
import argparse
import hashlib
import io
import json
import lzma
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile
import zlib

ROOT = pathlib.Path(__file__).resolve().parents[1]
SUMS = "SHA256SUMS"
SIGNATURE = SUMS + ".minisig"


class Wrong(Exception):
    """What is not as it should be, in words."""


def digest_of(path):
    with open(path, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()


def run(*words, **options):
    process = subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False, **options)
    if process.returncode != 0:
        raise Wrong(f"{words[0]}: {(process.stderr or process.stdout).strip()}")
    return process.stdout


def make(packages, folder, key):
    if folder.exists():
        raise Wrong(f"{folder} is there already; name another folder")
    if run("git", "status", "--porcelain", cwd=ROOT).strip():
        raise Wrong("the tree has changes that are not committed; a release is made of a commit")
    debs = sorted(packages.glob("*.deb"))
    if not debs:
        raise Wrong(f"there are no packages in {packages}; ./dev package makes them")
    version = re.search(r"project\(\S+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]
    folder.mkdir(parents=True)
    name = f"halcyon-lineup-{version}"
    run("git", "archive", f"--prefix={name}/", "-o", folder / f"{name}.tar.gz", "HEAD", cwd=ROOT)
    for deb in debs:
        shutil.copy(deb, folder)
    (folder / f"{name}.spdx.json").write_bytes(bill_in(folder / f"halcyon-tv_{version}_amd64.deb"))
    return f"{seal(folder, key)} files in {folder}{'' if key else ', NOT SIGNED: no --key'}"


def seal(folder, key):
    """Lists all that is in the folder, and signs the list if there is a key. How many files there are."""
    files = sorted(path.name for path in folder.iterdir())
    (folder / SUMS).write_text("".join(f"{digest_of(folder / file)}  {file}\n" for file in files))
    if key:
        run("minisign", "-S", "-s", key, "-m", folder / SUMS, "-x", folder / SIGNATURE)
    return len(files)


def members_of(deb):
    """The members of an ar archive, by name."""
    data = deb.read_bytes()
    if data[:8] != b"!<arch>\n":
        raise Wrong(f"{deb.name} is no Debian package")
    at, members = 8, {}
    while at < len(data):
        name, size = data[at:at + 16].decode("ascii", "replace").strip().rstrip("/"), int(data[at + 48:at + 58])
        members[name] = data[at + 60:at + 60 + size]
        at += 60 + size + size % 2
    return members


def bill_in(deb):
    """The bill of materials that a package installs."""
    try:
        members = members_of(deb)
        name = next(each for each in members if each.startswith("data.tar"))
        unpack = {".gz": lambda data: zlib.decompress(data, 31), ".xz": lzma.decompress}[pathlib.Path(name).suffix]
        with tarfile.open(fileobj=io.BytesIO(unpack(members[name]))) as content:
            member = next(each for each in content.getmembers() if each.name.endswith(".spdx.json"))
            return content.extractfile(member).read()
    except (StopIteration, KeyError, ValueError, OSError, zlib.error, lzma.LZMAError, tarfile.TarError) as error:
        raise Wrong(f"{deb.name} holds no bill of materials that can be read: {error!r}") from error


def check_sums(folder):
    """All that is listed is there, with its digest, and nothing else."""
    lines = (folder / SUMS).read_text(encoding="utf-8").splitlines()
    listed = {}
    for line in lines:
        match = re.fullmatch(r"([0-9a-f]{64})  ([A-Za-z0-9._+~-]+)", line)
        if not match or match[2] in listed:
            raise Wrong(f"{SUMS}: this line is none of it: {line!r}")
        listed[match[2]] = match[1]
    there = {path.name for path in folder.iterdir()} - {SUMS, SIGNATURE}
    for name in sorted(there ^ set(listed)):
        raise Wrong(f"{name} is {'not listed in ' + SUMS if name in there else 'missing'}")
    for name, digest in listed.items():
        if (folder / name).is_symlink() or not (folder / name).is_file():
            raise Wrong(f"{name} is no file")
        if digest_of(folder / name) != digest:
            raise Wrong(f"{name} is not what {SUMS} says")
    return listed


def check_bill(bill):
    """What SPDX 2.3 demands of such a document."""
    try:
        document = json.loads(bill)
        if document["spdxVersion"] != "SPDX-2.3" or document["dataLicense"] != "CC0-1.0":
            raise Wrong("the bill of materials is of another version than SPDX 2.3")
        for member in "SPDXID", "name", "documentNamespace":
            if not isinstance(document[member], str):
                raise Wrong(f"the bill of materials lacks {member}")
        ids = {document["SPDXID"]}
        for package in document["packages"]:
            if not re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", package["SPDXID"]) or package["SPDXID"] in ids:
                raise Wrong(f"the bill of materials has a wrong or a second {package['SPDXID']}")
            ids.add(package["SPDXID"])
            for member in "name", "versionInfo", "downloadLocation", "licenseConcluded", "licenseDeclared":
                if not package[member]:
                    raise Wrong(f"the bill of materials lacks the {member} of {package['name']}")
            for checksum in package["checksums"]:
                if checksum["algorithm"] != "SHA256" or not re.fullmatch("[0-9a-f]{64}", checksum["checksumValue"]):
                    raise Wrong(f"the bill of materials has a wrong digest of {package['name']}")
        for relation in document["relationships"]:
            if not {relation["spdxElementId"], relation["relatedSpdxElement"]} <= ids:
                raise Wrong("the bill of materials relates what it does not list")
        return len(document["packages"])
    except (ValueError, KeyError, TypeError, AttributeError) as error:
        raise Wrong(f"the bill of materials cannot be read: {error!r}") from error


def verify(folder, public_key, rebuilt):
    """What holds, a line each."""
    if not (folder / SUMS).is_file():
        raise Wrong(f"{folder} has no {SUMS}: it is no release")
    if public_key:
        if not (folder / SIGNATURE).is_file():
            raise Wrong("it is not signed")
        run("minisign", "-V", "-p", public_key, "-m", folder / SUMS, "-x", folder / SIGNATURE)
        yield "signed with this key"
    files = check_sums(folder)
    yield f"whole: {len(files)} files"
    bills = [name for name in files if name.endswith(".spdx.json")]
    packages = [name for name in files if re.match("halcyon-tv_.*deb$", name)]
    if len(bills) != 1 or len(packages) != 1:
        raise Wrong("a release has one bill of materials and one package halcyon-tv")
    bill = (folder / bills[0]).read_bytes()
    if bill_in(folder / packages[0]) != bill:
        raise Wrong("the bill of materials is not the one in the package")
    yield f"bill of materials: {check_bill(bill)} components"
    if rebuilt:
        debs = [name for name in files if name.endswith(".deb")]
        for name in debs:
            if not (rebuilt / name).is_file() or digest_of(rebuilt / name) != files[name]:
                raise Wrong(f"{name} is not what the source builds to")
        yield f"rebuilt: {len(debs)} packages are the same"


def main():
    parser = argparse.ArgumentParser(usage=__doc__.partition("usage: ")[2])
    verbs = parser.add_subparsers(dest="verb", required=True)
    making = verbs.add_parser("make")
    making.add_argument("packages", type=pathlib.Path)
    making.add_argument("folder", type=pathlib.Path)
    making.add_argument("--key", type=pathlib.Path)
    verifying = verbs.add_parser("verify")
    verifying.add_argument("folder", type=pathlib.Path)
    verifying.add_argument("--public-key", type=pathlib.Path)
    verifying.add_argument("--rebuilt", type=pathlib.Path)
    arguments = parser.parse_args()
    try:
        if arguments.verb == "make":
            print(make(arguments.packages, arguments.folder, arguments.key))
        else:
            for line in verify(arguments.folder, arguments.public_key, arguments.rebuilt):
                print(line)
            if not arguments.public_key:
                print("NOT CHECKED who made it: no --public-key")
            if not arguments.rebuilt:
                print("NOT CHECKED what the source builds to: no --rebuilt")
    except Wrong as error:
        print(f"release: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
