"""Packages and module files where the service has update keys: what is not signed does not run."""

import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import zips
from service import ServiceTest, wait_until

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
MODULE_FILES, UPDATE = 0, 1
SERVICE, FILES = "Marvique Service", "Marvique Service module files"
# Stands for an updater: tells that it ran, and runs on as long as it shall.
SCRIPT = b"""#!/bin/sh
echo run >>"$1"ran
while [ -e "$1"hold ]; do sleep 0.02; done
"""
REFUSED = "Failed to unzip file "
NOT_KNOWN = "The package is not signed with a key that this service knows"


class Signed(ServiceTest):
    settings = "[QV]\nQVVersion=17,9\nLogLevel=2\n"

    @classmethod
    def setUpClass(cls):
        cls.keys = pathlib.Path(tempfile.mkdtemp(prefix="qv_keys_"))
        cls.addClassCleanup(shutil.rmtree, cls.keys)
        for name in ("mine", "other"):
            subprocess.run([TOP / "tools/make_key", cls.keys / name], check=True,
                           stdout=subprocess.DEVNULL)
        assert (cls.keys / "mine.key").stat().st_mode & 0o777 == 0o600

    def trust(self, *names):
        """Makes these keys the ones that the running service knows."""
        folder = self.service.path("update_keys")
        shutil.rmtree(folder, ignore_errors=True)
        for name in names:
            folder.mkdir(exist_ok=True)
            shutil.copy(self.keys / f"{name}.pem", folder)

    def sign(self, content, key="mine"):
        file = self.keys / "content"
        file.write_bytes(content)
        return subprocess.run(["openssl", "pkeyutl", "-sign", "-rawin", "-inkey",
                               self.keys / f"{key}.key", "-in", file], check=True,
                              capture_output=True).stdout

    def sealed(self, files, key="mine", version="18,0", product=SERVICE):
        """The files with a manifest and, for a key, its signature."""
        listed = [{"name": name, "sha256": hashlib.sha256(content).hexdigest()}
                  for name, content in files.items()]
        manifest = json.dumps({"product": product, "version": version, "files": listed}).encode()
        signed = {"manifest.sig": self.sign(manifest, key)} if key else {}
        return {**files, "manifest.json": manifest, **signed}

    def upload(self, kind, body, version=""):
        """"" for an upload that was taken, else the description."""
        path = f"/LoadZipFromBytes?type={kind}&qvver={version}&"
        reply = json.loads(self.service.request("POST", path, body)[2])
        self.assertEqual(reply["result"][-1], "exception" not in reply, reply)
        self.assertIn(reply.get("exception", 0), (0, -2405), reply)
        return reply.get("description", "")

    def update(self, files, version=""):
        package = zips.archive(*files.items())
        return self.upload(UPDATE, zips.archive((f"Service_{version}.zip", package)), version)

    def told(self):
        return self.service.health()["update"]

    def runs(self):
        """How often an updater ran, once none does any more."""
        tasks = pathlib.Path(f"/proc/{self.service.process.pid}/task")
        wait_until(lambda: not "".join(t.read_text() for t in tasks.glob("*/children")), "it ended")
        ran = self.service.path("ran")
        return ran.read_text().count("run") if ran.exists() else 0

    def test_nothing_of_a_package_runs_unless_all_of_it_is_signed(self):
        files = {"QVUpdate": SCRIPT, "QVUpdate.exe": SCRIPT, "program": b"new"}
        good, evil = self.sealed(files), b"#!/bin/sh\necho run >>\"$1\"ran # evil\n"
        replaced = self.sealed({**files, "QVUpdate": evil}, key=None)["manifest.json"]
        cases = {
            "unsigned": (self.sealed(files, key=None), "The package is not signed"),
            "no manifest": (files, "The package has no manifest that can be read"),
            "signed by another": (self.sealed(files, "other"), NOT_KNOWN),
            "a changed byte": ({**good, "QVUpdate": SCRIPT[:-1] + b" "},
                               "QVUpdate is not the file that the manifest tells of"),
            "another updater": ({**good, "QVUpdate": evil}, "QVUpdate is not the file"),
            "a file more": ({**good, "libmore.so": b"more"}, "The manifest does not list libmore.so"),
            "a file less": ({k: v for k, v in good.items() if k != "program"}, "lacks program"),
            "another manifest": ({**good, "QVUpdate": evil, "manifest.json": replaced}, NOT_KNOWN),
            "a changed manifest": (
                {**good, "manifest.json": good["manifest.json"].replace(b"18,0", b"19,0")}, NOT_KNOWN),
            "a short signature": ({**good, "manifest.sig": good["manifest.sig"][:63]}, NOT_KNOWN),
            "an empty signature": ({**good, "manifest.sig": b""}, NOT_KNOWN),
            "signed for module files": (self.sealed(files, product=FILES), "not for the product"),
            "a lower version": (self.sealed(files, version="17,8,99"),
                                "holds version 17,8,99, which is below the installed 17,9"),
        }
        self.assertEqual(self.told()["state"], "idle")
        self.trust("mine")
        for what, (package, reason) in cases.items():
            with self.subTest(what):
                for text in self.update(package), self.check(package):
                    self.assertRegex(text, rf"^{REFUSED}.*{reason}.* 1$")
                    wait_until(lambda: reason in self.service.path("log/qvs.log").read_text(),
                               "the reason is logged")
                    self.assertEqual(self.told()["state"], "refused")
                    self.assertIn(reason, self.told()["reason"])
                self.assertFalse(list(self.service.path("cache").iterdir()))
        self.assertEqual(self.runs(), 0)
        self.assertEqual((self.update(good), self.check(good)), ("", ""))
        self.assertEqual(self.runs(), 2)

    def check(self, files, version=""):
        """The same by a package that lies beside the program."""
        self.service.path(f"Service_{version}.zip").write_bytes(zips.archive(*files.items()))
        self.runs()
        reply = self.service.ask("CheckUpdateFile", version)
        self.assertFalse(self.service.path(f"Service_{version}.zip").exists())
        return reply.get("description", "")

    def test_keys_come_go_and_break_while_the_service_runs(self):
        files = {"QVUpdate": SCRIPT}
        unsigned, old, new = self.sealed(files, key=None), self.sealed(files, "mine"), self.sealed(files, "other")
        for keys, sentence, taken in (
                ((), "without a signature", (True, True, True)),
                (("mine",), "there is 1 update key", (False, True, False)),
                (("mine", "other"), "there are 2 update keys", (False, True, True)),
                (("other",), "there is 1 update key", (False, False, True))):
            self.trust(*keys)
            self.assertIn(sentence, self.told()["packages"])
            for package, isTaken in zip((unsigned, old, new), taken):
                self.assertEqual(self.update(package) == "", isTaken, (keys, sentence))
                self.runs()
        broken = self.service.path("update_keys/other.pem")
        broken.write_text(broken.read_text()[:60])
        for package in unsigned, old, new:
            self.assertIn(" not signed", self.update(package))
        self.assertIn("No package is taken", self.told()["packages"])
        self.service.stop()
        self.service.start()
        self.assertIn("other.pem is no Ed25519 public key", self.service.errors())
        self.assertIn("No package is taken", self.service.path("out").read_text())

    def test_module_files_that_are_programs_or_replace_others_must_be_signed(self):
        program = self.service.path("marvique-service").read_bytes()
        data = {"data.txt": b"text", "sub/more.txt": b"text"}
        libraries = {"libnew.so": b"\x7fELF new", "sub/run": SCRIPT}
        signed = self.sealed(libraries, product=FILES)
        program_reason = "is a program, and the archive is not signed"
        replace_reason = "would replace a file, and the archive is not signed"
        self.service.path("docs.txt").write_text("of the installation")
        self.trust("mine")
        for files, mode, reason in (
                (data, 0o644, ""), (data, 0o644, ""),
                ({"data.txt": b"other"}, 0o644, replace_reason),
                ({"docs.txt": b"other"}, 0o644, replace_reason),
                ({"marvique-service": b"other"}, 0o644, replace_reason),
                ({"first.txt": b"", "libevil.so": b"x"}, 0o644, program_reason),
                ({"plain": b"\x7fELF"}, 0o644, program_reason),
                ({"sub/script": b"#!/bin/sh\n"}, 0o644, program_reason),
                ({"by.mode": b"x"}, 0o755, program_reason),
                (self.sealed(libraries, key=None, product=FILES), 0o644, program_reason),
                (self.sealed(libraries, "other", product=FILES), 0o644, NOT_KNOWN),
                (self.sealed({**libraries, "marvique-service": b"old"}), 0o644, "not for the product"),
                ({**signed, "libmore.so": b"x"}, 0o644, "does not list libmore.so"),
                ({**signed, "libnew.so": b"x"}, 0o644, "libnew.so is not the file"),
                (self.sealed({"update_keys/a.pem": b"x"}, product=FILES), 0o644,
                 'The entry "update_keys" belongs to the service'),
                (signed, 0o644, ""),
                (self.sealed({"docs.txt": b"newer"}, product=FILES), 0o644, "")):
            before = self.content()
            text = self.upload(MODULE_FILES, zips.archive(*files.items(), mode=mode))
            with self.subTest(str(files)[:150]):
                self.assertEqual(text == "", reason == "", text)
                self.assertIn(reason, text)
                arrived = {name: content for name, content in files.items()
                           if not name.startswith("manifest.")} if text == "" else {}
                self.assertEqual(self.content(), {**before, **arrived})
        self.assertEqual(self.service.path("marvique-service").read_bytes(), program)
        # A script needs no "#!" to be run by a shell.
        self.assertFalse(os.access(self.service.path("sub/more.txt"), os.X_OK))
        self.assertTrue(os.access(self.service.path("sub/run"), os.X_OK))
        self.trust()
        self.assertEqual(self.upload(MODULE_FILES, zips.archive(("libevil.so", b"x"))), "")

    def test_the_tool_packs_what_the_service_takes_and_refuses_what_it_refuses(self):
        self.trust("mine")
        with tempfile.TemporaryDirectory() as place:
            place = pathlib.Path(place)

            def make(*words):
                return subprocess.run([TOP / "tools/make_package", "--key", self.keys / "mine.key",
                                       *words], cwd=place, capture_output=True, text=True).stderr
            (place / "files/sub").mkdir(parents=True)
            (place / "files/sub/libnew.so").write_bytes(b"\x7fELF")
            self.assertEqual(make("--module-files", "1,0", "files"), "")
            self.assertEqual(self.upload(MODULE_FILES, (place / "ModuleFiles_1,0.zip").read_bytes()), "")
            self.assertEqual(self.service.path("sub/libnew.so").read_bytes(), b"\x7fELF")
            for name in "update_keys/a.pem", "Cert/a", "service.run", ".a", "manifest.sig", "sub/.a":
                (place / "bad" / name).parent.mkdir(parents=True)
                (place / "bad" / name).touch()
                self.assertIn("no package may hold", make("--module-files", "1,0", "bad"))
                shutil.rmtree(place / "bad")

    def content(self):
        """What lies beside the program, but for what the service itself keeps."""
        kept = ("log", "cache", "upload", "cert", "update_keys")
        paths = [p for p in self.service.folder.rglob("*") if p.is_file()]
        names = {p.relative_to(self.service.folder).as_posix(): p for p in paths}
        return {name: path.read_bytes() for name, path in names.items()
                if name.split("/")[0] not in kept}

    def test_health_tells_an_update_that_runs_and_one_whose_updater_said_nothing(self):
        self.service.path("hold").touch()
        self.assertEqual(self.update(self.sealed({"QVUpdate": SCRIPT}), "18"), "")
        told = self.told()
        self.assertEqual((told["state"], told["version"], told["reason"]), ("running", "18", ""))
        self.assertRegex(told["time"], r"^20\d\d-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.service.path("hold").unlink()
        wait_until(lambda: self.told()["state"] == "taken back", "the end is told")
        self.assertEqual(self.service.path("update.state").stat().st_mode & 0o777, 0o600)
        self.service.path("update.state").write_bytes(b"\xff damaged")
        self.assertEqual((self.told()["state"], self.told()["time"]), ("idle", None))


if __name__ == "__main__":
    unittest.main()
