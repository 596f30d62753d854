#!/usr/bin/env python3
"""The checks of the documents: each fault that they are for is found, and nothing else."""
import importlib.machinery
import importlib.util
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")


def script(name):
    loader = importlib.machinery.SourceFileLoader(name.replace("-", "_"), os.path.join(ROOT, "scripts", name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


EXAMPLES = script("check-examples")
PICTURES = script("pictures")
SITE = script("check-site")


def write_files(folder, files):
    for path, text in files.items():
        os.makedirs(os.path.dirname(os.path.join(folder, path)), exist_ok=True)
        with open(os.path.join(folder, path), "w", encoding="utf-8") as file:
            file.write(text)


class Site(unittest.TestCase):
    def faults(self, page, more=None, known=("", "b.html")):
        with tempfile.TemporaryDirectory() as folder:
            index = json.dumps({"docs": [{"location": name} for name in known]})
            write_files(folder, {"index.html": page, "b.html": "<p id=place>", "search/search_index.json": index,
                                 **(more or {})})
            return [fault.replace(folder + "/", "") for fault in SITE.faults_of(folder)]

    def test_takes_what_is_right(self):
        page = ('<a href="b.html#place">b</a><a href="https://example.org">c</a><img src="p.svg" alt="a picture">'
                '<link rel="canonical" href="https://example.org"><a href="#here" id="here">d</a>')
        self.assertEqual(self.faults(page, {"p.svg": '<svg xmlns="http://www.w3.org/2000/svg"/>'}), [])

    def test_finds(self):
        rows = {
            '<a href="c.html">c</a>': "index.html: c.html leads nowhere",
            '<a href="b.html#elsewhere">b</a>': "index.html: b.html#elsewhere has no such place on its page",
            '<a href="#there">b</a>': "index.html: #there has no such place on its page",
            '<img src="p.svg" alt="x">': "index.html: p.svg leads nowhere",
            '<img src="b.html">': "index.html: the picture b.html has no text",
            '<script src="https://example.org/a.js"></script>': "index.html: loads https://example.org/a.js",
            '<link rel="stylesheet" href="//example.org/a.css">': "index.html: loads //example.org/a.css",
            '<style>@import "https://example.org/a.css";</style>': "index.html: loads https://example.org/a.css",
            '<p style="background: url(https://example.org/a.png)">': "index.html: loads https://example.org/a.png",
        }
        for page, fault in rows.items():
            with self.subTest(fault):
                self.assertIn(fault, self.faults(page))

    def test_finds_a_style_that_loads_and_a_page_that_search_misses(self):
        self.assertEqual(self.faults("", {"a.css": "@font-face { src: url('https://example.org/f.woff') }"}),
                         ["a.css: loads https://example.org/f.woff"])
        self.assertEqual(self.faults("", known=("",)), ["b.html: search does not know it"])

    def test_finds_a_file_without_a_link(self):
        files = {"docs/a.json": "{}", "docs/b.json": "{}"}
        self.assertEqual(self.faults('<a href="docs/a.json">a</a>', files), ["docs/b.json: no page has a link to it"])


class Messages(unittest.TestCase):
    def run_with(self, headings, files):
        """What the check prints of a small repository, line by line."""
        with tempfile.TemporaryDirectory() as folder:
            document = "".join(f"### `{heading}`\n" for heading in headings)
            write_files(folder, {"docs/troubleshooting.md": document, "testbench/board": "", "testbench/desk": "",
                                 "src/a/a.cpp": "", "scripts/x": "", **files})
            shutil.copy(os.path.join(ROOT, "scripts/check-messages"), os.path.join(folder, "scripts"))
            run = subprocess.run([os.path.join(folder, "scripts/check-messages")], capture_output=True, text=True,
                                 check=False)
            self.assertEqual(run.returncode, 1 if run.stdout else 0, run.stderr)
            return run.stdout.splitlines()

    def test_finds_a_message_without_a_heading(self):
        rows = [
            ("src/a/a.cpp", 'void f() { std::printf("tank %d is empty\\r\\n", 1); }', "tank %d is empty"),
            ("src/a/a.cpp", 'void f() { std::puts("empty"); }', "empty"),
            ("src/a/a.cpp", 'void f() { perror("tank"); }', "tank: {}"),
            ("src/a/a.cpp", 'const char *f() { return "tank empty"; }', "tank empty"),
            ("tools/a.cpp", 'void f() { throw UsageError("empty"); }', "empty"),
            ("tools/a.cpp", 'void f() { throw UsageError(fmt::format("{} is " "empty", 1)); }', "{} is empty"),
            ("tools/a.cpp", 'void f() { fmt::print(stderr, "veskctl: {} is empty\\n", 1); }', "veskctl: {} is empty"),
            ("tools/a.cpp", 'std::string f() { return "the tank is empty"; }', "the tank is empty"),
            ("scripts/run", '#!/bin/sh\nfail "tank $1 is empty"\n', "tank {} is empty"),
            ("scripts/run", '#!/bin/sh\necho "run: $*" >&2; echo "no tank" >&2\n', "no tank"),
            ("web/src/advice.ts", "const a = {\n    title: 'The tank is empty',\n};\n", "The tank is empty"),
            ("web/src/views/A.tsx", '<Notice\n    tone="error"\n    title={`${tank} is empty`}\n>', "{} is empty"),
            ("web/src/views/A.tsx", '<Notice tone="warning" title="Empty">', "Empty"),
            ("web/src/views/A.tsx", "report({ tone: 'error', title: 'Empty', lines });", "Empty"),
        ]
        for path, source, message in rows:
            with self.subTest(source):
                printed = [line for line in self.run_with([], {path: source}) if line.endswith(f"for: {message}")]
                self.assertEqual(len(printed), 1, printed)

    def test_takes_a_message_with_a_heading(self):
        sources = {
            "src/a/a.cpp": 'void f() { std::printf("tank %d is empty\\r\\n", 1); perror("tank"); }',
            "tools/a.cpp": 'std::string f() { return "; the tank is empty"; } // "not seen here"',
            "web/src/views/A.tsx": '<Notice tone="good" title="The tank is full">',
            "web/src/views/B.tsx": "report({ tone: 'good', title: 'The tank is full', lines });",
        }
        self.assertEqual(self.run_with(["tank N is empty", "tank: REASON", "N; the tank is empty"], sources), [])

    def test_a_longer_heading_is_another_message(self):
        source = 'void f() { std::printf("tank %d is empty\\n", 1); }'
        self.assertTrue(self.run_with(["tank N is empty again"], {"src/a/a.cpp": source}))

    def test_a_part_of_another_message_is_no_heading_of_it(self):
        rows = [
            ('std::string f(int i) { return i ? fmt::format("{}; it stays empty, as it is", i) : '
             'fmt::format("{}; it stays empty", i); }', ["N; it stays empty, as it is"], "{}; it stays empty"),
            ('void f(const std::string &text) { refuse(text, fmt::format("{} litres", 1)); }\n'
             'const char *g() { return "tank: 3 litres in all"; }', ["tank: N litres in all"], "{} litres"),
        ]
        for source, headings, message in rows:
            with self.subTest(message):
                self.assertEqual([line.split(" for: ")[1] for line in self.run_with(headings, {"tools/a.cpp": source})],
                                 [message])

    def test_a_heading_is_put_together_of_parts(self):
        source = ('std::string f(int i) { return fmt::format("the tank {}", i ? "is empty" : "has a leak"); }\n'
                  'void g() { throw UsageError(fmt::format("{}: {}; call for help", 1, f(1))); }')
        self.assertEqual(self.run_with(["FILE: the tank is empty; call for help", "REASON: the tank has a leak; call for help",
                                        "FILE: REASON; call for help"], {"tools/a.cpp": source}), [])

    def test_each_word_of_a_heading_is_one_of_a_message(self):
        source = 'void f() { throw UsageError(fmt::format("cannot fill {}: {}", 1, 2)); }'
        heading = "cannot fill TANK: REASON; nothing has changed"
        self.assertEqual(self.run_with(["cannot fill TANK: REASON", heading], {"tools/a.cpp": source}),
                         [f'docs/troubleshooting.md: no message of the code is "{heading}"'])

    def test_help_is_no_message(self):
        source = ('const char *const kFooter = "What the tank is for";\n'
                  'void f() { a.add_flag("-t", t, "Fill the tank"); }')
        self.assertEqual(self.run_with([], {"tools/a.cpp": source}), [])

    def test_finds_a_heading_without_a_message(self):
        self.assertEqual(self.run_with(["tank N is full"], {}),
                         ['docs/troubleshooting.md: no message of the code is "tank N is full"'])


class Examples(unittest.TestCase):
    def test_reads_a_terminal(self):
        lines = ["$ first", "one", "", "two", "", "$ second \\", ">   more", "$ echo $?", "1"]
        examples = EXAMPLES.examples_of("a.md", 10, lines)
        self.assertEqual([(each.line, each.command, each.output, each.may_fail) for each in examples],
                         [(10, "first", ["one", "", "two"], False), (15, "second \\\n  more", [], True),
                          (17, "echo $?", ["1"], False)])

    def test_output_is_as_expected_or_not(self):
        rows = [
            (["a", "b"], ["a", "b"], True),
            (["a"], ["a", "b"], False),
            (["a", "…"], ["a", "b", "c"], True),
            (["…", "c"], ["a", "b", "c"], True),
            (["…", "b"], ["a", "b", "c"], False),
            (["a … c"], ["a b c"], True),
            (["a … c"], ["a b d"], False),
            (["time=0.51 ms"], ["time=12 ms"], True),
            (["5 lost"], ["6 lost"], False),
            ([], [], True),
        ]
        for expected, lines, is_right in rows:
            with self.subTest(expected=expected, lines=lines):
                self.assertEqual(EXAMPLES.is_as_expected(expected, lines), is_right)

    def faults(self, text):
        with tempfile.NamedTemporaryFile("w", suffix=".md") as file:
            file.write(text)
            file.flush()
            return [fault.replace(file.name, "a.md") for fault in EXAMPLES.read_document(file.name)[1]]

    def test_finds_command_lines_that_are_not_run(self):
        for line in ["$ anything", "veskctl --serial /dev/ttyUSB0 info", "scripts/run", "cmake --preset asan",
                     "sudo apt install x", "build/release/vesk_h264 --help"]:
            for block in f"```\n{line}\n```\n", f"text\n\n    {line}\n":
                with self.subTest(block):
                    self.assertEqual(len(self.faults(block)), 1)
            self.assertEqual(self.faults(f"```sh\n{line.removeprefix('$ ')}\n```\n"), [])

    def test_finds_commands_that_cannot_be(self):
        self.assertEqual(len(self.faults("```sh\nif\n```\n")), 1)
        self.assertEqual(self.faults("```sh\nscripts/nothing\n```\n"), ["a.md:2: there is no scripts/nothing"])
        self.assertEqual(self.faults("Use `scripts/nothing`."), ["a.md: there is no scripts/nothing"])

    def test_runs_them(self):
        rows = [
            (["$ echo a", "a"], ""),
            (["$ echo a", "b"], "a.md:1: echo a\n  the document has"),
            (["$ false"], "a.md:1: false\n  its status is 1"),
            (["$ false", "$ echo $?", "1"], ""),
            (["$ trap 'echo bye; exit' INT; echo a; sleep 60 & wait", "a", "^C", "bye"], ""),
        ]
        for lines, fault in rows:
            with self.subTest(lines):
                faults = EXAMPLES.run_all(EXAMPLES.examples_of("a.md", 1, lines), dict(os.environ))
                self.assertTrue("".join(faults).startswith(fault) if fault else not faults, faults)


class Pictures(unittest.TestCase):
    HEAD = "# about\nactors: a, b\n"

    def test_draws_each_kind_of_line(self):
        picture = PICTURES.drawn("x.txt", self.HEAD + "== part\na -> b: <T0000680100000069>\nb -x a: lost\n"
                                                      "a: does & is\nb ... waits\n")
        for text in ["<title>about</title>", "&lt;T0000680100000069&gt;", "does &amp; is", 'class="lost"', "passing"]:
            self.assertIn(text, picture)

    def test_refuses(self):
        for line in ["a -> b: <T0000680100000068>", "a -> c: text", "nonsense"]:
            with self.subTest(line), self.assertRaisesRegex(SystemExit, "x.txt:3: "):
                PICTURES.drawn("x.txt", self.HEAD + line)


if __name__ == "__main__":
    unittest.main()
