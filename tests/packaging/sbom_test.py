#!/usr/bin/env python3
"""What packaging/sbom.py writes about released files, and which documents --check refuses."""
import copy
import importlib.util
import json
import os
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
PROGRAM = os.path.join(ROOT, "packaging/sbom.py")
# SHA-1 and SHA-256 of "abc", as FIPS 180-2 has them.
SUMS = {"SHA1": "a9993e364706816aba3e25717850c26c9cd0d89d",
        "SHA256": "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"}
RELEASED = ["vesk-h264_1.2.3.dsc.tar.xz", "vesk-h264_1.2.3_amd64.deb", "vesk-h264_1.2.3_armhf.deb",
            "vesk-tools_1.2.3_amd64.deb", "vesk-web_1.2.3.tar.gz", "vesk_h264-1.2.3-arm", "vesk_h264-1.2.3-arm-static"]
OTHERS = ["vesk-h264-dbgsym_1.2.3_amd64.deb", "vesk_h264-1.2.3-arm.debug", "deb.log", "vesk_h264-1.2.3.sha256"]


def load():
    specification = importlib.util.spec_from_file_location("sbom", PROGRAM)
    module = importlib.util.module_from_spec(specification)
    specification.loader.exec_module(module)
    return module


class Sbom(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        os.environ["SOURCE_DATE_EPOCH"] = "86400"
        self.sbom = load()
        # Not every computer that tests has what makes the page.
        self.sbom.installed = lambda name: {"SPDXID": self.sbom.spdx_id("Debian-" + name), "name": name,
                                            "downloadLocation": "NOASSERTION"}

    def release(self, *names):
        for name in names:
            with open(os.path.join(self.folder, name), "w", encoding="utf-8") as file:
                file.write("abc")

    def related(self, document, name, kind):
        """Names of what a file is related to in this way, in one direction or the other."""
        names = {package["SPDXID"]: package["name"] for package in document["packages"]}
        ends = [(each["spdxElementId"], each["relatedSpdxElement"]) for each in document["relationships"]
                if each["relationshipType"] == kind]
        return {names[end] for pair in ends if name in map(names.get, pair) for end in pair if names.get(end) != name} - {None}

    def test_every_released_file_is_in_it_with_its_sums(self):
        self.release(*RELEASED, *OTHERS)
        document = self.sbom.bill("1.2.3", self.folder)
        self.assertEqual(self.sbom.check(document), [])
        self.assertEqual(document["creationInfo"]["created"], "1970-01-02T00:00:00Z")
        described = {package["packageFileName"]: {each["algorithm"]: each["checksumValue"] for each in package["checksums"]}
                     for package in document["packages"] if "packageFileName" in package}
        self.assertEqual(described, {name: SUMS for name in RELEASED})
        self.assertEqual(document, self.sbom.bill("1.2.3", self.folder))

    def test_the_page_holds_what_it_loads_and_not_what_only_tests_it(self):
        with open(os.path.join(ROOT, "web/package.json"), encoding="utf-8") as file:
            wanted = json.load(file)
        self.release(*RELEASED)
        document = self.sbom.bill("1.2.3", self.folder)
        libraries = {"libfmt-dev", "libcli11-dev", "nlohmann-json3-dev", "emscripten"}
        self.assertEqual(self.related(document, "vesk-web_1.2.3.tar.gz", "CONTAINS"), {*wanted["dependencies"], *libraries, "vite"})
        self.assertEqual(self.related(document, "vesk-web_1.2.3.tar.gz", "BUILD_TOOL_OF"),
                         {"vite", "emscripten", "cmake", "ninja-build"})
        versions = {package["name"]: package.get("versionInfo") for package in document["packages"]}
        for name, version in wanted["dependencies"].items():
            self.assertEqual(versions[name], version)
        self.assertFalse({"typescript", "vitest", "playwright-core"} & versions.keys())

    def test_without_the_page_nothing_of_it_is_in(self):
        self.release(*(name for name in RELEASED if "web" not in name))
        names = {package["name"] for package in self.sbom.bill("1.2.3", self.folder)["packages"]}
        self.assertFalse({"emscripten", "preact", "vite"} & names)

    def test_the_program_writes_what_it_takes_to_be_whole(self):
        self.release(*(name for name in RELEASED if "web" not in name))
        subprocess.run([PROGRAM, "1.2.3", self.folder], check=True, stdout=subprocess.DEVNULL)
        path = os.path.join(self.folder, "vesk-h264-1.2.3.spdx.json")
        subprocess.run([PROGRAM, "--check", path], check=True)
        with open(path, encoding="utf-8") as file:
            versions = {package["name"]: package["versionInfo"] for package in json.load(file)["packages"]}
        known = subprocess.run(["dpkg-query", "--show", "--showformat=${Version}", "libfmt-dev"], check=True,
                               capture_output=True, text=True).stdout
        self.assertEqual(versions["libfmt-dev"], known)

    def test_what_does_not_hold_together_is_refused(self):
        self.release(*RELEASED)
        document = self.sbom.bill("1.2.3", self.folder)

        def edit(**fields):
            return lambda each: each.update(fields)

        def edit_first(place, **fields):
            return lambda each: each[place][0].update(fields)

        for wanted, change in (
                ("spdxVersion is", edit(spdxVersion="SPDX-2.2")),
                ("dataLicense is", edit(dataLicense="MIT")),
                ("a URI without #", edit(documentNamespace="urn:a#b")),
                ("a time in UTC", lambda each: each["creationInfo"].update(created="1970-01-02")),
                ("Me is a creator", lambda each: each["creationInfo"].update(creators=["Me"])),
                ("is an identifier", edit_first("packages", SPDXID="SPDXRef-a_b")),
                ("is unique", lambda each: each["packages"].append(each["packages"][0])),
                ("has downloadLocation", edit_first("packages", downloadLocation="")),
                ("is a sum", edit_first("packages", checksums=[{"algorithm": "SHA512", "checksumValue": "0" * 64}])),
                ("is in the document", edit_first("relationships", relatedSpdxElement="SPDXRef-none")),
                ("describes something", edit(relationships=[]))):
            with self.subTest(wanted):
                broken = copy.deepcopy(document)
                change(broken)
                path = os.path.join(self.folder, "broken.json")
                with open(path, "w", encoding="utf-8") as file:
                    json.dump(broken, file)
                done = subprocess.run([PROGRAM, "--check", path], capture_output=True, text=True, check=False)
                self.assertEqual(done.returncode, 1)
                self.assertIn(wanted, done.stderr)
                self.assertRegex(done.stderr, r"\A(sbom: it does not hold that .*\n)+\Z")

    def test_an_empty_directory_is_refused(self):
        done = subprocess.run([PROGRAM, "1.2.3", self.folder], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (
            1, f"sbom: {self.folder} has nothing that is released; run scripts/package deb and scripts/package arm\n"))


if __name__ == "__main__":
    sys.dont_write_bytecode = True
    unittest.main(verbosity=2)
