#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The documentation holds to the code: links lead somewhere, pictures are those that
scripts/screenshots makes, named tests exist, each option is explained, and the pages on the
log and on OSC list exactly what the code writes and takes."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
MANUAL = ROOT / "docs/manual"
PAGES = [ROOT / "README.md", ROOT / "ARCHITECTURE.md", *sorted((ROOT / "docs").rglob("*.md"))]
CODE = [
    path
    for folder in ("Velor", "platform", "Kv-Appkit", "kva", "kvtimecode", "oscpkt", "CocoaAsyncSocket")
    for path in sorted((ROOT / folder).rglob("*.cpp"))
]
TEXT = r'"(?:[^"\\\n]|\\.)*"'

# Whose lines are a text that another part of the program, a library or the system has made.
PASSED_ON = "…"

# Where texts are put together that become lines of the log, or messages on stderr.
SPOKEN = [
    ("kva/KADeviceChoice.cpp", "void KADeviceChoice::tell("),
    ("platform/host/RealtimeClass.cpp", "std::string realtimeWarning("),
    ("platform/store/LogFile.cpp", "std::string gapText("),
    ("platform/store/RollingFileSink.cpp", "void RollingFileSink::fail("),
    ("platform/store/RollingFileSink.cpp", "std::to_string(mUnwritten)", ";"),
    ("platform/store/ApplicationFolders.cpp", 'return what.empty() ? "" : ', ";"),
    ("Velor/app/VLApplicationState.cpp", "warn(coder, Keys::kFormat,", ";"),
    ("Velor/app/VLApplicationState.cpp", "warn(coder, Keys::kPlayMode,", ";"),
    ("Kv-Appkit/KVException.h", "inline void KVRaiseServiceError("),
    ("Velor/app/VLAlerts.cpp", 'received + " fps on " + source,', '"use "'),
    ("Velor/app/VLAlerts.cpp", 'source + " > " + destination,', '"Disable "'),
    ("Velor/program/VLAlertAnswers.cpp", "VLAlertAnswers::answerTo("),
    ("Velor/program/VLHeadlessWindow.cpp", "VLHeadlessWindow::decide("),
    ("Velor/program/VLSession.cpp", "VLSession::reportLastRun("),
    ("Velor/program/VLSession.cpp", "VLSession::applyDevices("),
    ("Velor/program/VLSession.cpp", "VLSession::end("),
]


def anchor(heading):
    """As a Markdown viewer makes it from a heading."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def arguments(source, begin):
    """Of the call whose opening parenthesis is just before `begin`."""
    parts, depth, last = [], 0, begin
    for match in re.compile(TEXT + r"|[(){}\[\],]").finditer(source, begin):
        token = match.group()
        if token in "({[":
            depth += 1
        elif depth == 0 and token in "),":
            parts.append(source[last : match.start()].strip())
            last = match.end()
            if token == ")":
                return parts
        elif token in ")}]":
            depth -= 1
    raise ValueError("a call without an end")


def texts(expression):
    """The literals of an expression as one text."""
    return "".join(literal[1:-1] for literal in re.findall(TEXT, expression)).replace('\\"', '"')


def log_line(source, arguments_of_call):
    """A line as the manual writes it: with … for what changes."""
    line, values = arguments_of_call[0], arguments_of_call[1:]
    if '"' not in line:
        line = re.search(re.escape(line) + r" = (.*?);", source, re.S).group(1)
    line = texts(re.sub(r"PRI[a-zA-Z]\w+", '"u"', line))
    values = iter(values)

    def value(_):
        given = next(values)
        return texts(given) if re.fullmatch(rf"(?:{TEXT}\s*)+", given) else PASSED_ON

    return re.sub(r"%[-.0-9zl]*[a-z]", value, line)


def lines_of_the_log():
    found = {}
    for path in CODE:
        source = path.read_text()
        for call in re.finditer(r"VELOR_LOG_(?:ERROR|WARNING|INFO)\(", source):
            found.setdefault(log_line(source, arguments(source, call.end())), path.relative_to(ROOT))
    return found


def first_cells(page):
    """The code in the first column of the page's tables."""
    for row in re.finditer(r"^\| (.*?) \|", page.read_text(), re.M):
        yield from re.findall(r"`([^`]+)`", row.group(1))


def code_on(page, heading):
    """The code in the first column of the table under a heading."""
    section = page.split(f"\n## {heading}\n", 1)[1].split("\n## ", 1)[0]
    return re.findall(r"^\| `([^`]+)` \|", section, re.M)


def literals_of(path, begin, end="\n}\n"):
    body = (ROOT / path).read_text().split(begin, 1)[1].split(end, 1)[0]
    pieces = [piece.strip() for literal in re.findall(TEXT, body) for piece in re.split(r"velor: |%s|\\n", texts(literal))]
    return [piece for piece in pieces if len(piece) > 5]


def tests_of_the_tree():
    found = {"CheckArchitecture.FindsEachKindOfViolation"}
    for path in (ROOT / "tests").rglob("*.cpp"):
        found.update(
            f"{suite}.{name}" for suite, name in re.findall(r"\b(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", path.read_text())
        )
    return found


class Docs(unittest.TestCase):
    def test_links_lead_to_files_and_headings(self):
        for page in PAGES:
            for target in re.findall(r"\]\(([^)\s]+)\)", page.read_text()):
                if "://" in target:
                    continue
                name, _, wanted = target.partition("#")
                file = page.parent / name if name else page
                with self.subTest(page=page.name, target=target):
                    self.assertTrue(file.exists())
                    if wanted:
                        headings = re.findall(r"^#+ (.*)$", file.read_text(), re.M)
                        self.assertIn(wanted, [anchor(heading) for heading in headings])

    def test_commands_are_in_blocks_that_the_test_of_the_manual_reads(self):
        for page in (ROOT / "README.md", *MANUAL.glob("*.md")):
            text = page.read_text()
            self.assertEqual(re.findall(r"^    velor \w.*", text, re.M), [], page.name)
            tags = set(re.findall(r"^```(.+)", text, re.M))
            self.assertLessEqual(tags, {"sh", "sh not-run-by-the-test", "ini"}, page.name)

    def test_every_page_is_in_the_index(self):
        index = (MANUAL / "index.md").read_text()
        for page in MANUAL.glob("*.md"):
            self.assertTrue(page.name == "index.md" or f"({page.name})" in index, page.name)

    def test_pictures_are_those_that_pages_show(self):
        shown = {name for page in PAGES for name in re.findall(r"screenshots/([\w.-]+\.png)", page.read_text())}
        self.assertEqual({file.name for file in (ROOT / "docs/screenshots").iterdir()}, shown)

    def test_named_tests_exist(self):
        tests = tests_of_the_tree()
        suites = {test.partition(".")[0] for test in tests}
        for page in PAGES:
            for row in re.findall(r"^\|.*\|$", page.read_text(), re.M):
                for suite, name in re.findall(r"`([A-Z]\w+)\.([A-Z]\w+)`", row):
                    self.assertTrue(f"{suite}.{name}" in tests, f"{page.name}: {suite}.{name}")
                for suite in re.findall(r"`(\w+Test)`", row):
                    self.assertIn(suite, suites, page.name)

    def test_every_line_of_the_log_is_explained_and_no_other(self):
        page = (MANUAL / "log.md").read_text()
        explained = set(first_cells(MANUAL / "log.md"))
        lines = {line: path for line, path in lines_of_the_log().items() if line.strip("…: ")}
        for line, path in lines.items():
            self.assertIn(line.replace("|", "\\|"), explained, path)
        spoken = [text for place in SPOKEN for text in literals_of(*place)]
        for text in spoken:
            self.assertTrue(text in page, text)
        for entry in explained - {line.replace("|", "\\|") for line in lines}:
            self.assertTrue(any(text in entry for text in spoken), entry)

    def test_every_osc_address_is_explained_and_no_other(self):
        page = (MANUAL / "osc.md").read_text()
        for heading, source in (("Commands", "VLOscRx"), ("Feedback", "VLOSCClientDispatcher")):
            code = (ROOT / f"Velor/osc/{source}.cpp").read_text()
            branches = {"/velor", "/velor/transport", "/velor/marker"}
            addresses = set(re.findall(r'"(/velor[/a-z]*)"', code)) - branches
            self.assertEqual(set(code_on(page, heading)), addresses)


if __name__ == "__main__":
    unittest.main()
