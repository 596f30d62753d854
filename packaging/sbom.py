#!/usr/bin/env python3
"""sbom.py VERSION DIRECTORY: what the released files in DIRECTORY are made of, as SPDX 2.3.

The file is DIRECTORY/vesk-h264-VERSION.spdx.json. Everything in it is from the released files and from dpkg, and its
date is SOURCE_DATE_EPOCH, so the same files give the same text. --check FILE tells whether a file holds together.
"""

import base64
import hashlib
import json
import os
import re
import subprocess
import sys
import time

LOCK = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../web/package-lock.json")
AUTHORS = "Organization: The vesk_h264 authors"
# What is linked into the programs or used by them, by Debian's names: of veskctl, of the static program, of all.
TOOLS = ["libc6", "libstdc++6", "libgcc-s1", "libedit2", "libfmt-dev", "libcli11-dev", "nlohmann-json3-dev"]
STATIC = ["libc6-dev-armhf-cross", "libgcc-12-dev-armhf-cross"]
DYNAMIC = ["libc6-armhf-cross", "libgcc-12-dev-armhf-cross"]
DAEMON = ["libc6", "libgcc-12-dev"]
PAGE = ["libfmt-dev", "libcli11-dev", "nlohmann-json3-dev"]
BUILDERS = ["g++-12", "g++-12-arm-linux-gnueabihf", "binutils", "binutils-arm-linux-gnueabihf", "cmake", "ninja-build"]
PAGE_BUILDERS = ["emscripten", "cmake", "ninja-build"] # the first one's C and C++ libraries are in the page, too


def spdx_id(name):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]+", "-", name.replace("++", "-cpp"))


def installed(name):
    """A Debian package as dpkg knows it."""
    form = "${Version}\t${Architecture}\t${source:Package}\t${source:Version}\t${Homepage}"
    text = subprocess.run(["dpkg-query", "--show", f"--showformat={form}", name], check=True, text=True,
                          capture_output=True).stdout
    version, architecture, source, source_version, homepage = text.split("\t")
    package = {
        "SPDXID": spdx_id("Debian-" + name), "name": name, "versionInfo": version,
        "supplier": "Organization: Debian", "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
        "licenseConcluded": "NOASSERTION", "licenseDeclared": "NOASSERTION", "copyrightText": "NOASSERTION",
        "sourceInfo": f"built from {source} {source_version}",
        "externalRefs": [{
            "referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
            "referenceLocator": f"pkg:deb/debian/{name.replace('+', '%2B')}@{version.replace('+', '%2B')}"
                                f"?arch={architecture}"}],
    }
    if homepage:
        package["homepage"] = homepage
    return package


def from_npm(name, entry):
    """A package as the lock file of the page has it."""
    kind, digest = entry["integrity"].split("-", 1)
    return {
        "SPDXID": spdx_id("npm-" + name), "name": name, "versionInfo": entry["version"],
        "downloadLocation": "NOASSERTION", "filesAnalyzed": False, "licenseConcluded": "NOASSERTION",
        "licenseDeclared": entry.get("license", "NOASSERTION"), "copyrightText": "NOASSERTION",
        "checksums": [{"algorithm": kind.upper(), "checksumValue": base64.b64decode(digest).hex()}],
        "externalRefs": [{
            "referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
            "referenceLocator": f"pkg:npm/{name.replace('@', '%40')}@{entry['version']}"}],
    }


def npm_packages():
    """What the page is made of: the packages that are in it, and that which makes it and adds its loader."""
    with open(LOCK, encoding="utf-8") as file:
        entries = json.load(file)["packages"]
    named = [(path.rpartition("node_modules/")[2], entry) for path, entry in entries.items() if path]
    return ([from_npm(name, entry) for name, entry in named if not entry.get("dev") or name == "vite"],
            [from_npm(name, entry) for name, entry in named if name == "vite"])


def released(path, version):
    with open(path, "rb") as file:
        content = file.read()
    name = os.path.basename(path)
    return {
        "SPDXID": spdx_id(name), "name": name, "versionInfo": version, "packageFileName": name, "supplier": AUTHORS,
        "downloadLocation": "NOASSERTION", "filesAnalyzed": False, "licenseConcluded": "MIT",
        "licenseDeclared": "MIT", "copyrightText": "Copyright (c) 2026 the vesk_h264 authors",
        "primaryPackagePurpose": "ARCHIVE" if name.endswith((".deb", ".xz", ".gz")) else "APPLICATION",
        "checksums": [{"algorithm": kind.upper(), "checksumValue": hashlib.new(kind, content).hexdigest()}
                      for kind in ("sha1", "sha256")],
    }


def is_page(name):
    return name.startswith("vesk-web_")


def parts_of(name):
    """The Debian packages whose code a released file holds or needs."""
    if is_page(name):
        return PAGE
    if name.endswith("-arm-static"):
        return STATIC
    if name.endswith("-arm") or name.endswith("_armhf.deb"):
        return DYNAMIC
    if name.startswith("vesk-tools_"):
        return TOOLS
    return DAEMON if name.startswith("vesk-h264_") and name.endswith("_amd64.deb") else []


def bill(version, directory):
    names = sorted(name for name in os.listdir(directory)
                   if re.fullmatch(r"vesk-.*_.*\.(deb|tar\.xz)|vesk-web_[0-9.]+\.tar\.gz|"
                                   r"vesk_h264-[0-9.]+-arm(-static)?", name)
                   and "-dbgsym_" not in name)
    if not names:
        sys.exit(f"sbom: {directory} has nothing that is released; run scripts/package deb and scripts/package arm")
    packages = [released(os.path.join(directory, name), version) for name in names]
    relations = [("SPDXRef-DOCUMENT", "DESCRIBES", package["SPDXID"]) for package in packages]
    pages = [name for name in names if is_page(name)]
    used = sorted({part for name in names for part in parts_of(name)} | set(BUILDERS) |
                  set(PAGE_BUILDERS if pages else []))
    known = {name: installed(name) for name in used}
    for name in names:
        if is_page(name):
            continue
        kind = "STATIC_LINK" if name.endswith("-static") else "DEPENDS_ON"
        relations += [(spdx_id(name), kind, known[part]["SPDXID"]) for part in parts_of(name)]
        if parts_of(name):
            relations += [(known[part]["SPDXID"], "BUILD_TOOL_OF", spdx_id(name)) for part in BUILDERS
                          if ("arm" in part) == ("arm" in name) or part in ("cmake", "ninja-build")]
    if pages:
        held, builders = npm_packages()
        packages += held
    for name in pages:
        relations += [(spdx_id(name), "CONTAINS", part["SPDXID"])
                      for part in [*held, *(known[part] for part in [*PAGE, PAGE_BUILDERS[0]])]]
        relations += [(part["SPDXID"], "BUILD_TOOL_OF", spdx_id(name))
                      for part in [*builders, *(known[part] for part in PAGE_BUILDERS)]]
    packages += [known[name] for name in used]
    sums = "".join(package["checksums"][0]["checksumValue"] for package in packages if "checksums" in package)
    unique = hashlib.sha256(sums.encode()).hexdigest()
    created = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"])))
    return {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"vesk_h264-{version}", "documentNamespace": f"urn:vesk_h264:{version}:{unique}",
        "creationInfo": {"created": created, "creators": [AUTHORS, "Tool: packaging/sbom.py"]},
        "packages": packages,
        "relationships": [{"spdxElementId": source, "relationshipType": kind, "relatedSpdxElement": target}
                          for source, kind, target in relations],
    }


def check(document):
    """What SPDX 2.3 asks for, as far as this kind of document has it. Returns the faults."""
    faults = []

    def must(holds, what):
        if not holds:
            faults.append(what)

    must(document.get("spdxVersion") == "SPDX-2.3", "spdxVersion is SPDX-2.3")
    must(document.get("dataLicense") == "CC0-1.0", "dataLicense is CC0-1.0")
    must(re.fullmatch(r"[a-z]+:[^#]+", document.get("documentNamespace", "")), "documentNamespace is a URI without #")
    created = document.get("creationInfo", {}).get("created", "")
    must(re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", created), "created is a time in UTC")
    for creator in document.get("creationInfo", {}).get("creators", ["none"]):
        must(re.match(r"(Person|Organization|Tool): .", creator), f"{creator} is a creator")
    names = [document.get("SPDXID")] + [package.get("SPDXID") for package in document.get("packages", [])]
    must(names[0] == "SPDXRef-DOCUMENT", "the document is SPDXRef-DOCUMENT")
    for name in names:
        must(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", name or ""), f"{name} is an identifier")
        must(names.count(name) == 1, f"{name} is unique")
    for package in document.get("packages", []):
        for field in ("name", "downloadLocation"):
            must(package.get(field), f"{package.get('SPDXID')} has {field}")
        for checksum in package.get("checksums", []):
            length = {"SHA1": 40, "SHA256": 64, "SHA512": 128}.get(checksum["algorithm"])
            must(re.fullmatch(f"[0-9a-f]{{{length}}}", checksum["checksumValue"]), f"{checksum} is a sum")
    for relation in document.get("relationships", []):
        for end in ("spdxElementId", "relatedSpdxElement"):
            must(relation[end] in names, f"{relation[end]} of a relationship is in the document")
    must(any(relation["relationshipType"] == "DESCRIBES" for relation in document.get("relationships", [])),
         "the document describes something")
    return sorted(set(faults))


def main(arguments):
    if len(arguments) != 2:
        sys.exit(__doc__)
    if arguments[0] == "--check":
        with open(arguments[1], encoding="utf-8") as file:
            document = json.load(file)
    else:
        document = bill(*arguments)
    faults = check(document)
    if faults:
        sys.exit("\n".join(f"sbom: it does not hold that {fault}" for fault in faults))
    if arguments[0] != "--check":
        path = os.path.join(arguments[1], f"vesk-h264-{arguments[0]}.spdx.json")
        with open(path, "w", encoding="utf-8") as file:
            file.write(json.dumps(document, indent=2) + "\n")
        print(f"{path}: {len(document['packages'])} packages, {len(document['relationships'])} relationships")


if __name__ == "__main__":
    main(sys.argv[1:])
