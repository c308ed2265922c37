#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A clean tree passes scripts/check-architecture; each violation put into it
alone is found, at its file and line, and nothing else is."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/check-architecture"
SPDX = "// SPDX-License-Identifier: MIT\n"

ARCHITECTURE = """\
| folder | what lives there | may include |
|---|---|---|
| `platform/host/` | base | standard library |
| `platform/midi/` | service | `platform/host/` |
| `platform/midi/builtin/` | back end | `platform/midi/`, `platform/host/` |
| `Kv-Appkit/` | helpers | `platform/host/` |
| `Velor/app/` | all of it | all above |
"""

CLEAN = {
    "ARCHITECTURE.md": ARCHITECTURE,
    "CMakeLists.txt": "# SPDX-License-Identifier: MIT\n",
    "run": "#!/bin/sh\n# SPDX-License-Identifier: MIT\n",
    "logo.bin": b"\0\xff",
    # The witness, declared ahead elsewhere and passed on by reference.
    "platform/host/Realtime.h": SPDX + "#pragma once\nclass RealtimeContext {};\n",
    "platform/host/Seqlock.h": SPDX + "#pragma once\n#include <cstdint>\ntemplate <class T>\nclass Seqlocked {};\n",
    "platform/midi/MIDIService.h": SPDX + "#pragma once\nclass RealtimeContext;\n"
    'class MIDIService {\n  void render(const RealtimeContext& realtime);\n  // not #include "nowhere.h"\n};\n',
    "platform/midi/builtin/BuiltinMIDI.h": SPDX + '#pragma once\n#include "platform/midi/MIDIService.h"\n'
    "class BuiltinMIDI : MIDIService {};\n",
    "platform/midi/builtin/BuiltinMIDI.cpp": SPDX + '#include "platform/midi/builtin/BuiltinMIDI.h"\n'
    '#include "platform/host/Realtime.h"\nvoid f() { RealtimeContext realtime; }\n',
    "Kv-Appkit/kv_hptimer.h": SPDX + "#pragma once\nvoid kv_hptimer_start();\n",
    "Kv-Appkit/kv_hptimer.cpp": SPDX + '#include "Kv-Appkit/kv_hptimer.h"\n'
    '#include "platform/host/Realtime.h"\nvoid kv_hptimer_start() { const RealtimeContext realtime; }\n',
    "Kv-Appkit/kvtext.h": SPDX + "#pragma once\nnamespace kv::kvtext {\nclass Reader {};\nclass Writer {};\n}\n",
    "Velor/app/main.cpp": SPDX + '#include "platform/midi/builtin/BuiltinMIDI.h"\nint main() {}\n',
    "Velor/app/Panel.h": SPDX + "#pragma once\n#include <QWidget>\nclass Panel : public QWidget {};\n",
    "Velor/app/Panel.cpp": SPDX + '#include "Velor/app/Panel.h"\n#include <ui_Panel.h>\n',
    "Velor/app/Panel.ui": "<ui/>\n",
}

# What is put into the clean tree, and the one finding that it must bring.
VIOLATIONS = {
    "an edge against the table": (
        {"Kv-Appkit/KVThing.h": SPDX + '#pragma once\n#include "platform/midi/MIDIService.h"\nclass KVThing {};\n'},
        "Kv-Appkit/KVThing.h:3: include: Kv-Appkit may not include platform/midi ",
    ),
    "an edge from a contract into its back end": (
        {"platform/midi/Registry.h": SPDX + '#pragma once\n\n#include "platform/midi/builtin/BuiltinMIDI.h"\nclass Registry {};\n'},
        "platform/midi/Registry.h:4: include: platform/midi may not include platform/midi/builtin ",
    ),
    "a path relative to the includer": (
        {"Velor/app/App.h": SPDX + '#pragma once\n#include "../../platform/host/Realtime.h"\nclass App {};\n'},
        'Velor/app/App.h:3: include: "../../platform/host/Realtime.h" is not relative to the root',
    ),
    "quotes around what is not ours": (
        {"Velor/app/App.h": SPDX + '#pragma once\n#include "cstdint"\nclass App {};\n'},
        'Velor/app/App.h:3: include: "cstdint" is no file of the repository',
    ),
    "brackets around what is ours": (
        {"Velor/app/App.h": SPDX + "#pragma once\n#include <platform/host/Realtime.h>\nclass App {};\n"},
        "Velor/app/App.h:3: include: <platform/host/Realtime.h> is ours",
    ),
    "a form that is not there": (
        {"Velor/app/main.cpp": SPDX + "#include <ui_App.h>\nint main() {}\n"},
        "Velor/app/main.cpp:2: include: <ui_App.h> has no form App.ui beside it",
    ),
    "a header that needs what the build writes": (
        {"Velor/app/App.h": SPDX + "#pragma once\n#include <ui_Panel.h>\nclass App {};\n",
         "Velor/app/App.cpp": SPDX + '#include "Velor/app/App.h"\n'},
        "Velor/app/App.h:3: include: <ui_Panel.h> belongs into a source",
    ),
    "code in a folder without a row": (
        {"misc/Misc.h": SPDX + "#pragma once\nclass Misc {};\n"},
        "misc/Misc.h:1: include: its folder has no row",
    ),
    "a row that allows what is no row": (
        {"ARCHITECTURE.md": ARCHITECTURE + "| `bench/` | b | `platfrom/host/` |\n"},
        "ARCHITECTURE.md:8: include: '`platfrom/host/`' is neither",
    ),
    "a header named after nothing in it": (
        {"Velor/app/VLMarkers.h": SPDX + "#pragma once\nclass VLMarkers;\nclass VLState {};\n"},
        "Velor/app/VLMarkers.h:1: name: declares no class and no module of the name VLMarkers",
    ),
    "a module whose name stands in its comments alone": (
        {"Velor/app/ltc_frame.h": SPDX + '#pragma once\n// ltc_frame_parity()\nvoid other(const char* = "ltc_frame");\n'},
        "Velor/app/ltc_frame.h:1: name: declares no class",
    ),
    "a source without its header": (
        {"Velor/app/VLState.cpp": SPDX},
        "Velor/app/VLState.cpp:1: name: has no header VLState.h beside it",
    ),
    "a header that leans on its includer": (
        {"Velor/app/App.h": SPDX + "#pragma once\nclass App {\n  std::string mName;\n};\n"},
        "Velor/app/App.h:4: alone: does not compile on its own: ",
    ),
    "a witness made by the engine": (
        {"Velor/app/main.cpp": SPDX + '#include "platform/host/Realtime.h"\n/*\n*/ int main() { RealtimeContext{}; }\n'},
        "Velor/app/main.cpp:4: realtime: makes a RealtimeContext",
    ),
    "a witness kept as a member": (
        {"Kv-Appkit/KVThing.h": SPDX + '#pragma once\n#include "platform/host/Realtime.h"\nclass KVThing {\n  RealtimeContext mRealtime;\n};\n'},
        "Kv-Appkit/KVThing.h:5: realtime: makes a RealtimeContext",
    ),
    "code without its licence": (
        {"Velor/app/App.h": "\n#pragma once\nclass App {};\n"},
        "Velor/app/App.h:1: licence: ",
    ),
    "a script without its licence": ({"run": "#!/bin/sh\n\n\n# SPDX-License-Identifier: MIT\n"}, "run:1: licence: "),
    "a header without its guard": (
        {"Velor/app/App.h": SPDX + "// #pragma once\nclass App {};\n"},
        "Velor/app/App.h:1: once: ",
    ),
}


class CheckArchitecture(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.write(CLEAN)

    def write(self, files):
        for name, content in files.items():
            path = self.root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content if isinstance(content, bytes) else content.encode())

    def check(self):
        run = subprocess.run(
            [sys.executable, str(SCRIPT), "--root", str(self.root)], stdout=subprocess.PIPE, text=True, check=False
        )
        return run.returncode, run.stdout.splitlines()

    def test_a_clean_tree_passes(self):
        status, lines = self.check()
        self.assertEqual((status, len(lines)), (0, 1), lines)

    def test_each_violation_is_found_and_nothing_else(self):
        self.check()  # fills the memory of headers, so that each one below is quick
        for what, (files, finding) in VIOLATIONS.items():
            with self.subTest(what):
                self.write(files)
                try:
                    status, lines = self.check()
                finally:
                    for name in files:
                        (self.root / name).unlink()
                    self.write(CLEAN)
                self.assertEqual((status, len(lines)), (1, 1), lines)
                self.assertTrue(lines[0].startswith(finding), lines)

    def test_what_a_source_has_on_top_is_left_to_its_compiler(self):
        leaning = SPDX + "#pragma once\nclass App {\n  std::string mName;\n};\n"
        through = SPDX + '#pragma once\n#include "Velor/app/App.h"\nclass Main {};\n'
        top = SPDX + '#include "Velor/app/Main.h"\nint main() {}\n'
        lower = SPDX + '#include <string>\n#include "Velor/app/Main.h"\nint main() {}\n'
        self.write({"Velor/app/App.h": leaning, "Velor/app/Main.h": through, "Velor/app/main.cpp": top})
        self.assertEqual(self.check()[0], 0)
        self.write({"Velor/app/main.cpp": lower})
        status, lines = self.check()
        self.assertEqual((status, [line.split(":")[0] for line in lines]), (1, ["Velor/app/App.h", "Velor/app/Main.h"]))

    def test_what_was_remembered_of_a_header_ends_with_a_change_below_it(self):
        for source in ("Velor/app/main.cpp", "platform/midi/builtin/BuiltinMIDI.cpp"):
            self.write({source: CLEAN[source].replace("#include", "#include <cstdint>\n#include", 1)})
        self.assertEqual(self.check()[0], 0)
        self.write({"platform/midi/MIDIService.h": SPDX + "#pragma once\nclass MIDIService final {};\n"})
        status, lines = self.check()
        self.assertEqual((status, len(lines)), (1, 1), lines)
        self.assertTrue(lines[0].startswith("platform/midi/builtin/BuiltinMIDI.h:"), lines)
        self.assertIn("alone:", lines[0])


if __name__ == "__main__":
    unittest.main()
