#!/usr/bin/env python3
"""Writes the bill of materials of the packages: what they are made of, and need, as SPDX 2.3 JSON.

usage: bill-of-materials.py VERSION PROGRAM... > BILL

Libraries are those that the programs are linked with, as Debian has them. The digest is that of the file; of headers,
which are compiled in, that of the list of their digests."""
import email.utils
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
LOADED = ["libcurl.so.4"]  # when an object store is used
HEADERS = ["libcli11-dev", "nlohmann-json3-dev"]
CHANGES = ROOT / "packaging/changelog"
EMBEDDED = ROOT / "simulator/web/page/preact.js"
# By the names of packages without the numbers at their ends. A new library needs a line here.
LICENCES = {
    "g++": "GPL-3.0-or-later WITH GCC-exception-3.1", "libc": "LGPL-2.1-or-later", "libcli11-dev": "BSD-3-Clause",
    "libcpp-httplib": "MIT", "libcurl": "curl", "libfmt": "MIT", "libgcc-s": "GPL-3.0-or-later WITH GCC-exception-3.1",
    "libjsoncpp": "MIT", "libminizip": "Zlib", "libpugixml": "MIT", "libsqlite": "blessing", "libssl": "Apache-2.0",
    "libstdc++": "GPL-3.0-or-later WITH GCC-exception-3.1", "libutf8proc": "MIT", "libyaml-cpp": "MIT",
    "libzip": "BSD-3-Clause", "nlohmann-json3-dev": "MIT", "zlib1g": "Zlib"}


def run(*words):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True,
                          env=dict(os.environ, LC_ALL="C")).stdout


def digest_of(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


def digest_of_all(paths):
    return hashlib.sha256("".join(f"{digest_of(path)}  {path.name}\n" for path in sorted(paths)).encode()).hexdigest()


def licence_of(package):
    name = package if package in LICENCES else re.sub(r"[0-9.v-]+(t64)?$", "", package)
    if name not in LICENCES:
        sys.exit(f"bill-of-materials: the licence of {package} is not known; add it to LICENCES")
    return LICENCES[name]


def component(name, version, licence, digest, supplier="NOASSERTION", **more):
    return {"SPDXID": "SPDXRef-" + re.sub("[^A-Za-z0-9.-]", "-", name), "name": name, "versionInfo": version,
            "supplier": supplier, "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
            "licenseConcluded": licence, "licenseDeclared": licence, "copyrightText": "NOASSERTION",
            "checksums": [{"algorithm": "SHA256", "checksumValue": digest}], **more}


def of_debian(package, digest):
    version, architecture = run("dpkg-query", "-W", "-f", "${Version} ${Architecture}", package).split()
    purl = f"pkg:deb/debian/{package}@{version}?arch={architecture}"
    reference = {"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl", "referenceLocator": purl}
    return component(package, version, licence_of(package), digest, "Organization: Debian", externalRefs=[reference])


def libraries(programs):
    """Package and file of each shared library that the programs name, and of those that they load."""
    needed = set(LOADED)
    for program in programs:
        needed |= set(re.findall(r"NEEDED\).*\[(.*)\]", run("readelf", "-d", program)))
    places = dict(re.findall(r"^\s*(\S+) \(libc6,x86-64.*?\) => (\S+)$", run("/sbin/ldconfig", "-p"), re.MULTILINE))
    for name in sorted(needed):
        if name in places:
            path = pathlib.Path(places[name])
            yield run("dpkg-query", "-S", path if path.parts[1] == "usr" else f"*{path}").split(":")[0], path


def headers_of(package):
    files = map(pathlib.Path, run("dpkg-query", "-L", package).splitlines())
    return [file for file in files if file.suffix in (".h", ".hpp") and file.is_file()]


def main():
    version, programs = sys.argv[1], sys.argv[2:]
    sources = [file for room in ("src", "platform", "simulator") for file in (ROOT / room).rglob("*") if file.is_file()]
    ours = component("halcyon-tv", version, "LicenseRef-halcyon", digest_of_all(sources))
    linked = {package: of_debian(package, digest_of(path)) for package, path in libraries(programs)}
    compiled = [of_debian(package, digest_of_all(headers_of(package))) for package in HEADERS]
    published = re.search(r"Preact (\S+)", EMBEDDED.read_text(encoding="utf-8"))[1]
    compiled.append(component("preact", published, "MIT", digest_of(EMBEDDED)))
    tool = of_debian("g++", digest_of("/usr/bin/g++"))
    relations = ([("DOCUMENT", "DESCRIBES", ours)] +
                 [(ours["SPDXID"][8:], "DYNAMIC_LINK", each) for each in linked.values()] +
                 [(ours["SPDXID"][8:], "CONTAINS", each) for each in compiled] +
                 [(tool["SPDXID"][8:], "BUILD_TOOL_OF", ours)])
    packages = [ours, *linked.values(), *compiled, tool]
    names = "\n".join(f"{each['name']} {each['checksums'][0]['checksumValue']}" for each in packages)
    signed = re.search(r"^ -- .*>  (.*)$", CHANGES.read_text(encoding="utf-8"), re.MULTILINE)[1]
    created = email.utils.parsedate_to_datetime(signed)
    print(json.dumps({
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT", "name": f"halcyon-tv-{version}",
        "documentNamespace": f"https://halcyon-lineup.invalid/spdx/{hashlib.sha256(names.encode()).hexdigest()}",
        "creationInfo": {"created": created.strftime("%Y-%m-%dT%H:%M:%SZ"), "creators": ["Tool: bill-of-materials.py"]},
        "hasExtractedLicensingInfos": [
            {"licenseId": "LicenseRef-halcyon", "extractedText": "All rights reserved; see the copyright file."}],
        "packages": packages,
        "relationships": [{"spdxElementId": f"SPDXRef-{left}", "relationshipType": kind,
                           "relatedSpdxElement": right["SPDXID"]} for left, kind, right in relations]}, indent=1))


if __name__ == "__main__":
    main()
