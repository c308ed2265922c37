#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The Debian package has the version of the project, and needs for its build what
scripts/install-packages installs for one."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def found(pattern, file):
    return re.search(pattern, (ROOT / file).read_text(), re.MULTILINE | re.DOTALL).group(1)


class Package(unittest.TestCase):
    def test_version(self):
        self.assertEqual(
            found(r"^project\(Velor VERSION (\S+)", "CMakeLists.txt"),
            found(r"\Avelor \((\S+)\)", "packaging/debian/changelog"),
        )

    def test_what_a_build_needs(self):
        control = found(r"^Build-Depends: (.*?)\n\S", "packaging/debian/control")
        needed = {each.strip() for each in control.split(",")} - {"debhelper-compat (= 13)"}
        # Every Debian machine that builds packages has the compiler.
        installed = set(found(r"^build=\((.*?)\)$", "scripts/install-packages").split()) - {"g++"}
        self.assertEqual(needed, installed)


if __name__ == "__main__":
    unittest.main()
