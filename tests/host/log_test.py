"""Two logs: the file is the module's, and the host's own words go to standard error."""

import os
import re
import unittest
import unittest.mock

from service import Service

LINE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (error|warning|info|debug): .+")


class Logs(unittest.TestCase):
    def run_service(self, service):
        """A run that both have something to say of: the host refuses what the module asks for."""
        module = service.path("libone.so")
        os.link(os.environ["QV_TEST_MODULE"], module)
        service.start("--module", service.path(os.environ["QV_MODULE"]), "--module", module)
        ports = {p["module"]: p["actual"] for p in service.health()["ports"] if not p["secure"]}
        service.plain = ports["qtp"]
        service.ask("GetServerInfo")
        service.plain = ports["one"]
        service.checked = False
        self.assertIn("get -1", service.request("POST", "/qtp/", "nonsense")[2].decode())
        service.stop()
        lines = service.errors().splitlines()
        for line in lines:
            self.assertRegex(line, LINE)
        return lines

    def test_each_line_has_one_place(self):
        for level, expected in (1, {"error"}), (2, {"error"}), (14, {"error", "debug"}):
            with self.subTest(level), Service(f"[QV]\nLogLevel={level}\n") as s:
                lines = self.run_service(s)
                self.assertLessEqual(expected, {LINE.match(line)[1] for line in lines})
                self.assertEqual(sum("nonsense is refused" in line for line in lines), 2 + 1)
                if "debug" not in expected:
                    self.assertNotIn("debug", {LINE.match(line)[1] for line in lines})
                log = s.path("log/qvs.log")
                text = log.read_text() if log.exists() else ""
                self.assertEqual(text.count("Version info:"), 1 if level == 14 else 0)
                self.assertEqual("GetServerInfo" in text, level == 14)
                self.assertNotIn("nonsense", text)

    def test_where_the_file_cannot_be_written_there_is_one_other(self):
        with Service("[QV]\nLogLevel=14\n") as s:
            s.path("log/qvs.log").mkdir(parents=True)
            self.run_service(s)
            written = list(s.path("log").glob("*.log"))
            self.assertEqual(len(written), 2, written)


class PrivateFiles(unittest.TestCase):
    def test_what_is_kept_is_its_users_alone(self):
        secret = {"QV_SECRET": "hush", "LC_TIME": "C", "XDG_RUNTIME_DIR": "/run/user/0"}
        with unittest.mock.patch.dict(os.environ, secret), Service("[QV]\nLogLevel=14\n") as s:
            s.path("log").mkdir(mode=0o755)
            s.ini.chmod(0o664)
            s.start()
            s.ask("SetServerInfo", "h", 1, 2, 3, 4)
            record = s.path("service.run").read_text()
            s.stop()
            for variable in "LC_TIME=C", "XDG_RUNTIME_DIR=/run/user/0", "PATH=":
                self.assertIn(variable, record)
            self.assertNotIn("hush", record)
            self.assertNotIn("LC_TIME", s.path("service.run").read_text(), "it has ended")
            self.assertEqual(s.ini.stat().st_mode & 0o777, 0o660, "a group is the user's choice")
            programs = {"marvique-service", os.environ["QV_MODULE"], "out", "err", s.ini.name}
            for path in s.folder.rglob("*"):
                if path.name not in programs:
                    self.assertEqual(path.stat().st_mode & 0o007, 0, path)
                    if path.parent != s.folder:
                        self.assertEqual(path.stat().st_mode & 0o077, 0, path)


if __name__ == "__main__":
    unittest.main()
