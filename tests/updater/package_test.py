"""Packages and the updater, with a real service: installed, refused, cut off, started again."""

import contextlib
import fcntl
import hashlib
import http.client
import json
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "host"))
import zips  # noqa: E402
from service import BIN, MODULE, PATIENCE, Service, command, wait_until  # noqa: E402

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
NEXT = BIN.parent / "tests/marvique-service-next"
PROGRAM = "marvique-service"
NEW, NEWER = "18,0,0,1", "19,0,0,1"
# Poses as a service: it writes a run record of its own, with the lock on it or without.
POSING = """#!/usr/bin/python3
import fcntl, json, os, time
run = open(os.path.dirname(__file__) + "/service.run", "r+")
told = json.load(run) | {"pid": os.getpid(), "port": 1, "serving": SERVING}
HOLDING and fcntl.flock(run, fcntl.LOCK_EX)
run.seek(0)
run.write(json.dumps(told))
run.truncate()
run.flush()
time.sleep(600)
"""


def posing(serving, lock):
    return POSING.replace("SERVING", str(serving)).replace("HOLDING", str(lock)).encode()


def build_of(program):
    return subprocess.run([program, "--version"], capture_output=True, text=True,
                          check=True).stdout.split()[-1]


def sum_of(content):
    return hashlib.sha256(content).hexdigest()


def make_package(folder, version, program):
    """A package in a folder, made and signed by the tool."""
    program = shutil.copy2(program, folder / PROGRAM)
    subprocess.run([TOP / "tools/make_package", "--key", folder / "update.key", version, program,
                    BIN / MODULE, BIN / "QVUpdate"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    return folder / f"Service_{version}.zip"


class Installed(Service):
    """A service that may have been started by an updater: known by its run file, not as a child."""

    def __init__(self):
        super().__init__("[QV]\nUpdatePatience=20\nQVVersion=1\n")
        self.package = self.path("cache/MarviqueService")
        self.updaters = []

    def __exit__(self, kind, *rest):
        if self.process is not None and self.process.poll() is not None:
            self.process = None
        for updater in self.updaters:
            updater.kill()
            updater.wait()
        self.end()
        words = self.text("log/service_output.log") + self.text("log/update.log")
        super().__exit__(kind, *rest)
        assert not re.search("Sanitizer|runtime error", words), words

    def end(self):
        if self.runs() and self.record()["pid"] != getattr(self.process, "pid", None):
            os.kill(self.record()["pid"], signal.SIGTERM)
            wait_until(lambda: not self.runs(), "the service has ended")

    def record(self):
        return json.loads(self.path("service.run").read_text())

    def runs(self):
        return self.is_locked("service.run")

    def is_locked(self, name):
        with open(self.path(name), "ab") as file, contextlib.suppress(BlockingIOError):
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return False
        return True

    def keep_running(self):
        """As somebody who starts the service whenever it does not run."""
        if not self.runs() and (self.process is None or self.process.poll() is not None):
            self.start(expect_plain=False, expect_secure=False)
        return True

    def health(self):
        """What the service that runs now tells, once it does."""
        def look():
            with contextlib.suppress(OSError, ValueError, http.client.HTTPException):
                self.plain = self.record()["port"]
                told = Service.health(self)
                return told if told["pid"] == self.record()["pid"] else None
        return wait_until(look, "the service answers at /health")

    def answer(self):
        """What the service tells now, at once, on the port that it has."""
        record = self.record()
        self.plain, self.secure = record["port"], record["ssl_port"]
        return json.loads(self.request("GET", "/health", secure=self.plain == 0)[2])

    def text(self, name):
        return self.path(name).read_text() if self.path(name).exists() else ""

    def log(self):
        return self.text("log/update.log")

    def setting(self, name):
        found = re.search(rf"^{name}=(.*)$", self.ini.read_text(), re.M)
        return found[1] if found else None

    def unpack(self, package):
        """As the module does, which keeps no modes."""
        shutil.rmtree(self.package, ignore_errors=True)
        with zipfile.ZipFile(package) as zipped:
            zipped.extractall(self.package)
        (self.package / "QVUpdate").chmod(0o777)

    def spoil(self, name, content):
        """Another file in the package, with its sum."""
        file, manifest = self.package / name, self.package / "manifest.json"
        told = manifest.read_text().replace(sum_of(file.read_bytes()), sum_of(content))
        manifest.write_text(told)
        file.write_bytes(content)

    def update(self, *options):
        null = subprocess.DEVNULL
        words = [self.package / "QVUpdate", *options, f"{self.folder}/"]
        self.updaters.append(subprocess.Popen(words, env={}, stdin=null, stdout=null, stderr=null))
        return self.updaters[-1]

    def sums(self):
        return [sum_of(self.path(name).read_bytes()) for name in (PROGRAM, MODULE)]


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="qv_packages_"))
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.old_build, cls.next_build = build_of(BIN / PROGRAM), build_of(NEXT)
        subprocess.run([TOP / "tools/make_key", cls.folder / "update"], check=True,
                       stdout=subprocess.DEVNULL)
        cls.next = make_package(cls.folder, NEW, NEXT)
        cls.back = make_package(cls.folder, NEWER, BIN / PROGRAM)

    def installed(self):
        home = Installed()
        self.addCleanup(home.__exit__, None, None, None)
        return home

    def assert_settled(self, home, version, build):
        self.assertEqual((home.health()["build"], home.setting("QVVersion"),
                          home.setting("IfUpdate") or "0"), (build, version, "0"), home.log())
        # Who is killed while writing the settings leaves one file, which the next write removes. The
        # lock of the settings' writers stays.
        kept = {".QVConfiguration.ini.replacement", ".QVConfiguration.ini.lock"}
        self.assertEqual([p.name for p in home.folder.iterdir() if p.name not in kept
                          and p.name.startswith(".")], [])

    def test_a_page_uploads_a_package_and_another_one_lies_on_the_disk(self):
        home = self.installed().start()
        home.path("update_keys").mkdir()
        shutil.copy(self.folder / "update.pem", home.path("update_keys"))
        upload = zips.archive((self.next.name, self.next.read_bytes()))
        shutil.copy(self.back, home.folder)
        for path, body, version, build in (
                (f"/LoadZipFromBytes?type=1&qvver={NEW}&", upload, NEW, self.next_build),
                ("/qtp/", command("CheckUpdateFile", NEWER), NEWER, self.old_build)):
            reply = json.loads(home.request("POST", path, body)[2])
            self.assertEqual(reply["result"][-1], True, reply)
            wait_until(lambda: home.setting("QVVersion") == version
                       and home.setting("IfUpdate") == "0", "the update is done")
            self.assert_settled(home, version, build)
            told = home.health()["update"]
            self.assertEqual((told["state"], told["version"]), ("done", version))
        self.assertFalse(home.path(self.back.name).exists())
        self.assertEqual(home.process.wait(10), 0)
        self.assertEqual(home.health()["modules"][0]["alias"], "qtp")
        pid = home.record()["pid"]
        self.assertEqual(os.getsid(pid), pid, "it outlives a terminal")
        wait_until(lambda: not home.is_locked("cache/update.lock"), "no service has inherited it")
        self.assertEqual(home.ask("CheckUpdateFile", "18")["result"], ["18", True], "it is there")

    def test_one_that_was_killed_before_is_replaced_and_started_as_it_was(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            home = self.installed()
            port = str(taken.getsockname()[1])
            home.arguments = ["--port", port, "--ssl-port", "0", "--idle-timeout", "77"]
            home.start(expect_plain=False)
            home.process.kill()
            home.process.wait()
            home.unpack(self.next)
            self.assertEqual(home.update().wait(60), 0, home.log())
            self.assertEqual(home.setting("QVVersion"), NEW)
            self.assertEqual((home.record()["port"], home.record()["arguments"]),
                             (0, home.arguments))
            self.assertEqual(home.answer()["build"], self.next_build)

    def test_a_new_service_that_fails_gives_way_to_the_old_one(self):
        home = self.installed().start()
        before = home.sums()
        for told, program, patience in (
                ("ended with exit code 3", b"#!/bin/sh\nexit 3\n", 20),
                ("cannot be started: Exec format error", b"\x7fELF nothing", 20),
                ("did not serve within 8 seconds", b"#!/bin/sh\nexec sleep 600\n", 8),
                ("did not serve", posing(serving=True, lock=False), 8),
                ("did not serve", posing(serving=False, lock=True), 8),
                (f"its build is {self.old_build} instead of {self.next_build}",
                 (BIN / PROGRAM).read_bytes(), 20)):
            home.unpack(self.next)
            home.spoil(PROGRAM, program)
            home.spoil(MODULE, (BIN / MODULE).read_bytes() + b"\n")
            home.set("UpdatePatience", patience)
            lines = home.log().count("\n")
            self.assertEqual(home.update().wait(90), 1, home.log())
            self.assertIn(told, "\n".join(home.log().splitlines()[lines:]))
            self.assert_settled(home, "1", self.old_build)
            self.assertEqual(home.sums(), before)
            told = home.health()["update"]
            self.assertEqual((told["state"], told["version"]), ("taken back", NEW))
            self.assertRegex(told["reason"], "The service that was started|cannot be started")

    def test_files_of_an_application_bundle_are_left_alone(self):
        home = self.installed()
        inside = home.path("Some.app/Contents/MacOS")
        inside.mkdir(parents=True)
        for name in (PROGRAM, MODULE):
            home.path(name).rename(inside / name)
        home.program = inside / PROGRAM
        home.start().unpack(self.next)
        self.assertEqual(home.update().wait(60), 1, home.log())
        self.assertIn("Replace the bundle.", home.log())
        self.assert_settled(home, "1", self.old_build)
        self.assertFalse(home.path(PROGRAM).exists())

    def test_killed_at_any_moment_it_ends_old_or_new(self):
        home = self.installed().start()
        packages = [(self.next, NEW, self.next_build), (self.back, NEWER, self.old_build)]
        chance = random.Random(5)
        now, versions = 1, set()
        for round_number in range(16):
            package, version, build = packages[1 - now]
            was = home.setting("QVVersion"), home.health()["build"]
            home.unpack(package)
            lines = home.log().count("\n")
            updater = home.update("--allow-downgrade")
            # Killed behind a line of the log, or a little later.
            wanted = lines + 1 + round_number % 8
            end = time.monotonic() + 60
            while home.log().count("\n") < wanted and updater.poll() is None:
                self.assertLess(time.monotonic(), end)
            time.sleep(chance.choice((0, 0, 0.005, 0.02, 0.1)))
            updater.kill()
            updater.wait()
            if round_number % 2:
                self.assertEqual(home.update("--allow-downgrade").wait(60), 0, home.log())
                expected = {(version, build)}
            else:
                # A service that runs looks now and then, one that starts at once.
                wait_until(lambda: home.keep_running() and home.setting("IfUpdate") != "1"
                           and not home.path(".qv_update").exists(), "the update is ended")
                expected = {was, (version, build)}
            outcome = home.setting("QVVersion"), home.health()["build"]
            self.assertIn(outcome, expected, home.log())
            self.assert_settled(home, *outcome)
            versions.add(outcome[0])
            now = 0 if outcome[1] == self.next_build else 1
        self.assertLessEqual({NEW, NEWER}, versions)

    @unittest.skipUnless(sys.platform == "linux", "no other system shows a process's files as files")
    def test_one_that_waited_goes_on_as_what_lies_there_then(self):
        home = self.installed()
        with open(home.path("service.run"), "ab") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            home.start(expect_plain=False, expect_secure=False)
            files = pathlib.Path(f"/proc/{home.process.pid}/fd")
            wait_until(lambda: home.path("service.run") in [file.resolve() for file in files.iterdir()],
                       "it waits for the run file")
            shutil.copy2(NEXT, self.folder / PROGRAM)
            os.replace(self.folder / PROGRAM, home.path(PROGRAM))
        self.assertEqual(home.health()["build"], self.next_build)

    def test_a_second_service_leaves_and_two_updaters_take_turns_or_one_leaves(self):
        home = self.installed().start()
        second = subprocess.run([home.path(PROGRAM), "--port", "0"], capture_output=True,
                                text=True, timeout=PATIENCE, check=False)
        self.assertEqual(second.returncode, 1)
        self.assertIn(f"runs already in this folder, as process {home.process.pid}", second.stderr)
        self.assertEqual(home.health()["pid"], home.process.pid)
        home.unpack(self.next)
        both = [home.update(), home.update()]
        codes = sorted(updater.wait(90) for updater in both)
        self.assertIn(codes, ([0, 0], [0, 3]), home.log())
        self.assert_settled(home, NEW, self.next_build)


if __name__ == "__main__":
    unittest.main()
