#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""manual_test.py VELOR: runs the commands of the README and the manual, each page in a folder
and a home of its own, with a JACK server and the programs of which the manual speaks.

A block ```sh is run line by line. What still runs after a second gets SIGINT, as from Ctrl-C,
and must end well. Of a block ```sh not-run-by-the-test, which needs another program or changes
the system, the options of velor are looked up in its help."""

import concurrent.futures
import ctypes
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = [ROOT / "README.md", *sorted((ROOT / "docs/manual").glob("*.md"))]
VELOR = os.path.abspath(sys.argv.pop(1))
RUN_SECONDS = 0.8
WORKERS = 4
END_SECONDS = 15


def blocks(page, tag):
    return re.findall(rf"^```{tag}\n(.*?)^```", page.read_text(), re.M | re.S)


def wait_for(what, name):
    end = time.monotonic() + 30
    while not what():
        assert time.monotonic() < end, f"waited for {name} in vain"
        time.sleep(0.05)


def catches_sigint(process):
    """Or has ended. A program that has just been started would not end well."""
    if process.poll() is not None:
        return True
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    if re.search(r"^Name:\s*bash", status, re.M):
        return False
    caught = int(re.search(r"^SigCgt:\s*(\w+)", status, re.M)[1], 16)
    return bool(caught & 1 << signal.SIGINT - 1)


def take_own_shared_memory():
    """JACK keeps a list of its servers there, with room for eight. Without the right to it,
    the common list has to do."""
    libc, new_namespace, recursive, private = ctypes.CDLL(None), 0x20000, 0x4000, 0x40000
    if libc.unshare(new_namespace) == 0:
        libc.mount(b"none", b"/", None, recursive | private, None)
        libc.mount(b"tmpfs", b"/dev/shm", b"tmpfs", 0, b"mode=1777")


class Programs:
    """A JACK server and the programs of which the manual speaks."""

    def __init__(self, name):
        self.environment = {"JACK_DEFAULT_SERVER": f"velor-{name}", "JACK_NO_START_SERVER": "1"}
        self.started = []

    def __enter__(self):
        try:
            self.open()
        except BaseException:
            self.__exit__()
            raise
        return self

    def open(self):
        server = self.environment["JACK_DEFAULT_SERVER"]
        self.start("system:playback_1", "jackd", "-n", server, "-r", "-S", "-d", "dummy", "-p", "1024")
        self.start("Desk:input", "jack_midi_dump", "Desk")
        self.start("Lights:input", "jack_midi_dump", "Lights")
        self.start("Sequencer:out", "jack_midiseq", "Sequencer", "240000", "0", "60", "24000")

    def __exit__(self, *_):
        for process in reversed(self.started):
            process.terminate()
            process.wait()

    def start(self, port, *command):
        """Until its port is there; a server that has just started refuses clients now and then."""
        environment = os.environ | self.environment
        started = self.started

        def is_there():
            if not started or started[-1].args != command or started[-1].poll() is not None:
                silent = subprocess.DEVNULL
                started.append(subprocess.Popen(command, env=environment, stdout=silent, stderr=silent))
            listed = subprocess.run(["jack_lsp"], env=environment, capture_output=True, text=True, timeout=10)
            return port in listed.stdout.splitlines()

        wait_for(is_there, port)


class Folder:
    """One page's: its commands may use what earlier ones have left."""

    def __init__(self, path, programs):
        self.path = path
        (path / "bin").mkdir()
        (path / "bin/velor").symlink_to(VELOR)
        (path / "run").symlink_to(VELOR)
        self.environment = programs.environment | {
            "PATH": f"{path / 'bin'}:{os.environ['PATH']}",
            "HOME": str(path),
            "XDG_RUNTIME_DIR": str(path),
            "QT_QPA_PLATFORM": "offscreen",
            "LC_ALL": "C.UTF-8",
            "DBUS_SESSION_BUS_ADDRESS": f"unix:path={path}/none",
            "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={path}/none",
        }

    def write(self, name):
        """A file that the manual takes for granted."""
        if name.endswith(".wav"):
            self.run(f"velor encode --format 25 --duration 20 {name}")
        else:
            self.run("velor --headless --fresh --format 25")
            (self.path / ".local/share/velor/laststate.velor").rename(self.path / name)

    def run(self, command):
        """Gives the exit status and what was written to stderr."""
        process = subprocess.Popen(
            ["bash", "-c", command],
            cwd=self.path,
            env=self.environment,
            start_new_session=True,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            text=True,
        )
        if not re.search(r"\b(encode|decode|analyse \w|oscsend|ulimit)\b|--inspect|--list", command):
            wait_for(lambda: catches_sigint(process), command)
            time.sleep(RUN_SECONDS)
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGINT)
        try:
            errors = process.communicate(timeout=END_SECONDS)[1]
            return process.returncode, errors
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
        return process.wait(), "did not end"


def ended_well(command, status, errors):
    if "velor analyse -" in command:  # nobody sends timecode here
        return status == 1 and "velor: analyse" in errors
    return status == 0


def faults_of(page, programs):
    with tempfile.TemporaryDirectory() as name:
        folder = Folder(pathlib.Path(name), programs)
        commands = "".join(blocks(page, "sh")).splitlines()
        for file in ("show.velor", "walk-in.wav", "act1.wav"):
            if any(file in command for command in commands):
                folder.write(file)
        for command in commands:
            status, errors = folder.run(command)
            if "internal, no server" in errors:  # it was busy with a client that has just ended
                status, errors = folder.run(command)
            if not ended_well(command, status, errors):
                yield f"{page.name}: {command}\n  status {status}: {errors}"


class Manual(unittest.TestCase):
    def test_every_command_runs(self):
        pages = [page for page in PAGES if blocks(page, "sh")]
        self.assertGreater(len(pages), 10)

        def work(worker):
            with Programs(f"{os.getpid()}-{worker}") as programs:
                return [fault for page in pages[worker::WORKERS] for fault in faults_of(page, programs)]

        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            faults = [fault for found in pool.map(work, range(WORKERS)) for fault in found]
        self.assertEqual(faults, [], "\n".join(faults))

    def test_options_exist_also_where_a_command_is_not_run(self):
        known = {}
        for command in ("", "encode", "decode", "analyse"):
            text = subprocess.run([VELOR, *command.split(), "--help"], capture_output=True, text=True).stdout
            known[command] = set(re.findall(r"--[a-z][a-z-]*", text))
            self.assertGreater(len(known[command]), 3)
        for page in PAGES:
            lines = [line for block in blocks(page, "sh not-run-by-the-test") for line in block.splitlines()]
            lines += re.findall(r"ExecStart=(.*)", page.read_text())
            lines += re.findall(r"`(velor [^`]*--[^`]*)`", page.read_text())
            for line in lines:
                words = shlex.split(line)
                if words[0] == "velor":
                    command = words[1] if words[1] in known else ""
                    options = {word for word in words if word.startswith("--")}
                    self.assertLessEqual(options, known[command], f"{page.name}: {line}")
            mentioned = set(re.findall(r"(?<![\w`-])`(--[a-z][a-z-]*)", page.read_text()))
            self.assertLessEqual(mentioned, set().union(*known.values()), page.name)

    def test_every_option_is_explained(self):
        manual = "".join(page.read_text() for page in PAGES)
        help_text = subprocess.run([VELOR, "--help"], capture_output=True, text=True).stdout
        for option in re.findall(r"^ +(--[a-z][a-z-]*)", help_text, re.M):
            self.assertTrue(option in manual, option)


if __name__ == "__main__":
    take_own_shared_memory()
    unittest.main()
