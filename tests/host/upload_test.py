"""Uploads and updates by POST to the running service: files that arrive, archives that do not, and
the updater that is started."""

import concurrent.futures
import contextlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import unittest

import zips
from service import SANITIZED, ServiceTest, command, wait_until

MIB = 1024 * 1024
MODULE_FILES, UPDATE, CERTIFICATES = 0, 1, 2
LINUX = sys.platform == "linux"  # others do not show processes as files

UPDATER = """#!/bin/sh
{ echo "$0"; echo "$#"; echo "$1"; tr '\\0' ' ' </proc/$$/environ; echo; ls -l /proc/$$/fd
  cut -d ' ' -f 1,5 /proc/$$/stat; } >"$1"made
mv "$1"made "$1"started
while [ -e "$1"hold ]; do sleep 0.02; done
"""


def package(version, updater="QVUpdate", content=UPDATER):
    """An upload of kind 1: an archive that holds the service's package."""
    inner = zips.archive((updater, content.encode()), ("bin/new", b"new"),
                         compression=zips.DEFLATED)
    return zips.archive((f"Service_{version}.zip", inner))


class Uploads(ServiceTest):
    def setUp(self):
        super().setUp()
        self.cache = self.service.path("cache")
        self.cert = self.service.path("cert")

    def post(self, path, body):
        """The reply to an upload: value, code, description."""
        status, _, text = self.service.request("POST", path, body)
        self.assertEqual(status, 200, text)
        reply = json.loads(text)
        return reply["result"][-1], reply.get("exception", 0), reply.get("description", "")

    def upload(self, kind, body, version=""):
        return self.post(f"/LoadZipFromBytes?type={kind}&qvver={version}&", body)

    def tree(self, folder=None):
        """All paths below the service's folder, but for its log, what an editor leaves and what is
        told of the last update."""
        folder = folder or self.service.folder
        return sorted(str(path.relative_to(folder)) for path in folder.rglob("*")
                      if "log" not in path.parts and path.name != "update.state")

    def children(self):
        """Those of the service, where the system shows them."""
        tasks = pathlib.Path(f"/proc/{self.service.process.pid}/task")
        return "".join(path.read_text() for path in tasks.glob("*/children"))

    def mount(self, folder, size):
        """A small disk in a folder, for the time of a test."""
        folder.mkdir(exist_ok=True)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "none", folder],
                          capture_output=True).returncode != 0:
            self.skipTest("no right to mount a small disk")
        self.addCleanup(subprocess.run, ["umount", "-l", folder], check=True)

    def test_archives_of_all_tools_arrive_with_their_folders(self):
        with tempfile.TemporaryDirectory() as place:
            made = pathlib.Path(place) / "made"
            files = {"top.txt": b"top", "sub/deep/Grüße 日本.txt": b"text " * 10_000,
                     "sub/random": os.urandom(700_000), "sub/empty": b"", "run.sh": b"#!/bin/sh\n"}
            for name, content in files.items():
                (made / name).parent.mkdir(parents=True, exist_ok=True)
                (made / name).write_bytes(content)
            entries = list(files.items())
            for what, data in (
                    ("stored", zips.archive(*entries)),
                    ("deflated, folders listed", zips.archive(
                        ("sub/", b""), ("sub/deep/", b""), *entries, compression=zips.DEFLATED)),
                    ("zip to a pipe", zips.info_zip(made, pipe=True)),
                    ("zip -fz", zips.info_zip(made, "-fz"))):
                for kind, folder in (MODULE_FILES, self.service.folder), (CERTIFICATES, self.cert):
                    with self.subTest(what, kind=kind):
                        (folder / "top.txt").write_bytes(b"old and longer")
                        self.assertEqual(self.upload(kind, data), (True, 0, ""))
                        for name, content in files.items():
                            self.assertEqual((folder / name).read_bytes(), content)
                            (folder / name).unlink()
        self.assertEqual(self.tree(self.cache), [])
        self.assertNotIn("IfUpdate", self.service.ini.read_text())

    def test_hostile_archives_write_nothing_and_tell_why(self):
        with tempfile.TemporaryDirectory() as outside:
            before = self.tree()
            for what, data, reason in zips.hostile(outside):
                with self.subTest(what):
                    value, code, text = self.upload(CERTIFICATES, data)
                    self.assertEqual((value, code), (False, -2405), text)
                    self.assertRegex(text, rf"^Failed to unzip file [ -~]*{reason}[ -~]* \d+$")
                    self.assertEqual((self.tree(), os.listdir(outside)), (before, []))
            for data in b"", b"no archive", b"PK\3\4":
                self.assertRegex(self.upload(CERTIFICATES, data)[2],
                                 r"^Failed to unzip file The upload is no zip archive \d+$")
            # The same door stands before the inner archive of an update.
            inner = zips.archive(("../leaked", b""))
            reply = self.upload(UPDATE, zips.archive(("Service_9.zip", inner)), 9)
            self.assertRegex(str(reply), r"False, -2405, .* leads out")
            self.assertEqual(self.tree(), before)

    def test_module_files_leave_alone_what_the_service_keeps(self):
        before = self.tree()
        for name in ("service.run", "Service.RUN", "QVConfiguration.ini", "user_config.ini",
                     "service.ini", ".qv_update/journal", ".QVConfiguration.ini.replacement",
                     "cert/server.pem", "cert/sub/a", "log/a", "cache/a", "upload/a", "dump/a",
                     "nginx/a", "qv.exception", "port.lock", "console.token", "update_keys/a.pem",
                     "update.state"):
            data = zips.archive(("a module", b"first"), (name, b"x"))
            with self.subTest(name):
                settings = self.service.ini.read_text()
                value, code, text = self.upload(MODULE_FILES, data)
                self.assertEqual((value, code), (False, -2405), text)
                first = name.split("/")[0]
                self.assertEqual(
                    text, f'Failed to unzip file The entry "{first}" belongs to the service 1')
                self.assertEqual((self.tree(), self.service.ini.read_text()), (before, settings))
        for kind, name in (MODULE_FILES, "sub/service.run"), (CERTIFICATES, "service.run"):
            self.assertEqual(self.upload(kind, zips.archive((name, b"x"))), (True, 0, ""))

    def test_an_update_starts_the_updater_and_leaves_it_alone(self):
        outer = package(14)
        self.service.set("QVVersion", "13,0,0,404")
        updater = self.cache / "MarviqueService" / "QVUpdate"
        self.assertEqual(self.upload(UPDATE, outer, 13), (True, 0, ""))
        self.assertFalse(self.cache.joinpath("MarviqueService").exists(), "13 is installed")
        self.service.path("hold").touch()
        updating = (False, -2373, "Marvique Service is updating, please wait.")
        with concurrent.futures.ThreadPoolExecutor() as pool:
            both = pool.map(lambda _: self.upload(UPDATE, outer, 14), range(2))
            self.assertEqual(sorted(both), [updating, (True, 0, "")])
        started = self.service.path("started")
        wait_until(started.exists, "the updater runs")
        program, count, argument, environment, files = started.read_text().split("\n", 4)
        self.assertEqual((program, count, argument, environment),
                         (str(updater), "1", f"{self.service.folder}/", ""))
        if LINUX:
            self.assertNotRegex(files, "socket:|eventpoll")
            self.assertRegex(files, r"\n(\d+) \1\n$", "its process group is its own")
        self.assertEqual((self.cache / "MarviqueService/bin/new").read_bytes(), b"new")
        self.assertEqual([path.name for path in self.cache.iterdir()], ["MarviqueService"])
        self.assertNotIn("IfUpdate", self.service.ini.read_text(), "the updater sets it")
        text = command("CheckUpdateFile")
        self.assertEqual(self.post("/CheckUpdateFile?qvver=15&", text), updating)
        self.service.path("hold").unlink()
        wait_until(lambda: not self.children(), "no zombie is left")
        self.assertEqual(self.upload(UPDATE, package(""), ""), (True, 0, ""),
                         "no version is never installed")
        wait_until(lambda: not self.children(), "no zombie is left")

        self.service.set("IfUpdate", "1")
        self.assertEqual(self.upload(UPDATE, outer, 14), updating)
        self.assertEqual(self.upload(CERTIFICATES, zips.archive(("a", b"a"))), (True, 0, ""))

    def test_what_an_interrupted_upload_left_is_removed_at_start_and_nothing_else(self):
        with tempfile.TemporaryDirectory() as outside:
            theirs = pathlib.Path(outside) / "theirs"
            theirs.write_bytes(b"stays")
            self.service.stop()
            for name in ("module_17.zip", "upload_x1Y2z3", "Unzip_17/a/b", "Update_17,3/Service_17.zip",
                         "Unzip_MarviqueService/QVUpdate", "MarviqueService/QVUpdate",
                         "module_17.txt", "Update_me", "mine/Unzip_1/a"):
                (self.cache / name).parent.mkdir(parents=True, exist_ok=True)
                (self.cache / name).write_bytes(b"x")
            (self.cache / "Unzip_17/link").symlink_to(outside)
            (self.cache / "Unzip_18").symlink_to(outside)
            (self.cache / "module_18.zip").symlink_to(theirs)
            self.service.start()
            self.assertEqual(self.tree(self.cache), [
                "MarviqueService", "MarviqueService/QVUpdate", "Unzip_18", "Update_me", "mine",
                "mine/Unzip_1", "mine/Unzip_1/a", "module_17.txt", "module_18.zip"])
            self.assertEqual(theirs.read_bytes(), b"stays")

    def test_without_the_run_file_only_what_is_a_day_old_is_removed(self):
        self.service.stop()
        self.service.path("service.run").unlink()
        self.service.path("service.run").symlink_to("elsewhere")
        for name, hours in ("module_1.zip", 25), ("module_2.zip", 23), ("Unzip_1", 25), ("Unzip_2", 0):
            path = self.cache / name
            path.touch() if name.endswith(".zip") else path.mkdir()
            os.utime(path, (time.time() - hours * 3600,) * 2)
        self.service.start()
        self.assertIn("cannot be locked", self.service.errors())
        self.assertEqual(self.tree(self.cache), ["Unzip_2", "module_2.zip"])

    def test_a_check_that_is_killed_leaves_nothing_for_good(self):
        inner = zips.archive(("QVUpdate", UPDATER.encode()), ("zeros", bytes(200 * MIB)),
                             compression=zips.DEFLATED)
        self.service.path("Service_.zip").write_bytes(inner)
        with self.service.connect() as client:
            text = command("CheckUpdateFile")
            client.sendall(f"POST /qtp/ HTTP/1.1\r\nHost: 127.0.0.1:{self.service.plain}\r\n"
                           f"User-Agent: test\r\nContent-Length: {len(text)}\r\n\r\n{text}".encode())
            wait_until(lambda: any(self.cache.glob("*/QVUpdate")), "it is being unpacked")
            self.service.process.kill()
        self.service.process.wait()
        if (self.cache / "MarviqueService").exists():
            self.skipTest("it was unpacked before it could be killed")
        self.service.start()
        self.assertEqual(self.tree(self.cache), [])

    def test_updates_that_cannot_begin(self):
        for outer in package(14, "NoUpdater"), package(14, content="no program"):
            self.assertEqual(self.upload(UPDATE, outer, 14),
                             (False, -2407, "Create update progress failed."))
            self.assertIn("\nIfUpdate=0\n", self.service.ini.read_text())
        self.assertIn("Cannot find", self.upload(UPDATE, outer, 15)[2])
        self.assertIn("Cannot find", self.service.ask("CheckUpdateFile", "15")["description"])
        self.assertEqual(self.tree(self.cache), [])
        self.service.path("Service_15.zip").write_bytes(b"no archive")
        self.assertEqual(self.service.ask("CheckUpdateFile", "15")["exception"], -2405)
        before = self.tree()
        self.assertNotIn("Service_15.zip", before)
        for version in "a/b", "..", "a\\b", "a\0b", "a\x7f", "1" * 244:
            for method, parameters in (("CheckUpdateFile", [version]),
                                       ("LoadZipFromBytes", [UPDATE, version])):
                reply = self.service.ask(method, *parameters)
                self.assertEqual((reply["result"][-1], reply["exception"], reply["description"]),
                                 (False, -2405, "Failed to unzip file Invalid version 22"))
                self.assertEqual(self.tree(), before)

    def test_uploads_at_once_are_not_mixed(self):
        bodies = [zips.archive(*((f"{n}/{i}", bytes([n]) * 5000) for i in range(50)))
                  for n in range(2)]
        with concurrent.futures.ThreadPoolExecutor() as pool:
            both = pool.map(lambda body: self.upload(CERTIFICATES, body), bodies)
            self.assertEqual(list(both), [(True, 0, "")] * 2)
        for n in range(2):
            self.assertEqual([(self.cert / str(n) / str(i)).read_bytes() for i in range(50)],
                             [bytes([n]) * 5000] * 50)

    def test_an_upload_on_its_way_is_a_private_file_without_a_name(self):
        def files():
            found = []
            for link in pathlib.Path(f"/proc/{self.service.process.pid}/fd").iterdir():
                with contextlib.suppress(FileNotFoundError):
                    if str(self.cache) in os.readlink(link):
                        status = link.stat()
                        found.append((status.st_mode & 0o7777, status.st_nlink, status.st_size))
            return found

        with self.service.connect() as client:
            client.sendall((f"POST /LoadZipFromBytes?type=2&qvver=& HTTP/1.1\r\nHost: localhost:"
                            f"{self.service.plain}\r\nContent-Length: {4 * MIB}\r\n\r\n").encode()
                           + bytes(3 * MIB))
            wait_until(lambda: files() and files()[0][2] >= 2 * MIB, "it has arrived")
            self.assertEqual([file[:2] for file in files()], [(0o600, 0)])
            self.assertEqual(self.tree(self.cache), [])
        wait_until(lambda: not files(), "it is gone with its client")

    def test_a_file_that_cannot_arrive_is_told_of(self):
        (self.cert / "b").mkdir()
        for content in b"2", b"":
            files = zips.archive(("a", b"1"), ("b", content), ("d", b"4"))
            self.assertRegex(str(self.upload(CERTIFICATES, files)),
                             "False, -2406, 'Failed to copy dir  ")
            self.assertEqual(self.tree(self.cache), [])

    def test_a_full_disk_leaves_the_old_files_whole(self):
        pem = (self.cert / "server.pem").read_bytes()
        files = [("server.pem" if i == 0 else f"{i}.pem", os.urandom(200_000)) for i in range(9)]
        large = zips.archive(*files)
        self.mount(self.cert, "1m")
        for name, _ in files:
            (self.cert / name).write_bytes(pem)
        self.assertEqual(self.upload(CERTIFICATES, large), (False, -2406, "Failed to copy dir  28"))
        new = dict(files)
        for path in self.cert.iterdir():
            self.assertIn(path.read_bytes(), (pem, new[path.name]))
        self.assertFalse(list(self.cert.glob(".*")))
        before = self.tree(self.cert)
        self.mount(self.cache, "1m")
        unpacks_to_4_mib = zips.archive(("a", bytes(4 * MIB)), compression=zips.DEFLATED)
        self.assertRegex(str(self.upload(CERTIFICATES, unpacks_to_4_mib)),
                         "False, -2405, .*cannot be written 28")
        status, _, text = self.service.request("POST", "/LoadZipFromBytes?type=2&qvver=&", large)
        self.assertEqual((status, text),
                         (507, b"The upload cannot be stored: No space left on device.\n"))
        self.assertEqual(self.tree(self.cache), [])
        self.assertEqual(self.tree(self.cert), before)

    @unittest.skipIf(SANITIZED, "sanitizers need memory of their own")
    @unittest.skipUnless(LINUX, "the system does not tell the most memory")
    def test_memory_stays_bounded_while_300_MiB_arrive(self):
        content = os.urandom(100 * MIB) * 3
        inner = zips.archive(("QVUpdate", UPDATER.encode()), ("content", content))
        status = pathlib.Path(f"/proc/{self.service.process.pid}/status")
        outer = zips.archive(("Service_9.zip", inner))
        self.assertEqual(self.upload(UPDATE, outer, 9), (True, 0, ""))
        peak = int(re.search(r"VmHWM:\s+(\d+) kB", status.read_text())[1]) // 1024
        print(f"peak of {peak} MiB for {len(inner) // MIB} MiB")
        self.assertLess(peak, 64)
        self.assertEqual((self.cache / "MarviqueService/content").read_bytes(), content)


if __name__ == "__main__":
    unittest.main()
