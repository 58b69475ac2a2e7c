"""Runs every example of docs/commands.md against the started service, and its page in a browser.

With --update the replies in the document are replaced by those of this run."""

import http.server
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest

import service
import zips

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "commands.md"
EXAMPLE = re.compile(r"^```console\n\$ (curl [^\n]*)\n(.*?)```$", re.M | re.S)
BROWSER = shutil.which("chromium")

# What differs from run to run: the shape is compared, not the value.
VARYING = [
    (re.compile(r"\d{4}-\d\d-\d\dT[\d:]+Z"), "2026-11-21T09:00:00Z"),
    (re.compile(r'"\d{4}-\d\d-\d\d"'), '"2029-02-23"'),
    (re.compile(r'"size":\d+'), '"size":1000000'),
]


def normal(text):
    for pattern, value in VARYING:
        text = pattern.sub(value, text)
    return text


def page_of(text):
    return re.search(r"^```html\n(.*?)```$.*?^```text\n(.*?)```$", text, re.M | re.S).groups()


class Documents(service.ServiceTest):
    def run_example(self, example):
        """The output of an example, in the document's terms."""
        ports = {"18625": str(self.service.plain), "18626": str(self.service.secure)}
        example = re.sub("18625|18626", lambda found: ports[found[0]], example)
        for name, entry in (("package.zip", "mine.pem"), ("hostile.zip", "../mine.pem")):
            self.service.path(name).write_bytes(zips.archive((entry, b"certificate")))
        done = subprocess.run(
            ["/bin/sh", "-c", example.replace("curl ", "curl -sS ", 1)], cwd=self.service.folder,
            capture_output=True, text=True, timeout=service.PATIENCE)
        self.assertEqual(done.returncode, 0, done.stderr)
        output = done.stdout.replace(str(self.service.folder), "/opt/marvique")
        for documented, actual in ports.items():
            output = re.sub(rf"\b{actual}\b", documented, output)
        return normal(output if output.endswith("\n") else output + "\n")

    def test_every_example_gives_the_reply_that_stands_behind_it(self):
        text = DOCUMENT.read_text()
        self.assertGreater(len(EXAMPLE.findall(text)), 15)
        if "--update" in sys.argv:
            DOCUMENT.write_text(EXAMPLE.sub(
                lambda m: f"```console\n$ {m[1]}\n{self.run_example(m[1])}```", text))
            return
        for example, reply in EXAMPLE.findall(text):
            with self.subTest(example):
                self.assertEqual(self.run_example(example), reply)

    def test_every_command_is_described(self):
        text = DOCUMENT.read_text()
        table = (DOCUMENT.parents[1] / "src/manager/manager_client.cpp").read_text()
        commands = re.findall(r'\{"(\w+)", &ManagerClient::', table)
        self.assertGreater(len(commands), 15)
        for command in commands:
            self.assertIn(f"**{command}**", text)

    @unittest.skipUnless(BROWSER, "chromium is not installed")
    def test_the_page_works_in_a_browser(self):
        page, shown = page_of(DOCUMENT.read_text())
        plain = str(self.service.plain)
        with PageServer(page.replace("18625", plain)) as server, Browser() as browser:
            settings = self.service.ini.read_text()
            self.service.ini.write_text(
                settings.replace("[QV]\n", f"[QV]\nAllowedOrigins={server.origin}\n"))
            browser.open(server.origin + "/")
            text = service.wait_until(lambda: server.shown, "the page shows something")
        self.assertEqual(text, shown.strip().replace("18625", plain))


# Tells the test what the page shows once that changes.
WATCHER = """<script>
  const first = out.textContent;
  setInterval(() => {
    if (out.textContent !== first) fetch("/shown", { method: "POST", body: out.textContent });
  }, 50);
</script>"""


class PageServer(http.server.ThreadingHTTPServer):
    """Serves a page and is told what it shows."""

    def __init__(self, page):
        self.page = (page + WATCHER).encode()
        self.shown = None
        super().__init__(("127.0.0.1", 0), PageHandler)
        self.origin = f"http://127.0.0.1:{self.server_port}"
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def __exit__(self, *_):
        self.shutdown()
        self.server_close()


class PageHandler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_):
        pass

    def answer(self, body=b""):
        self.send_response(200)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        self.answer(self.server.page)

    def do_POST(self):
        self.server.shown = self.rfile.read(int(self.headers["Content-Length"])).decode()
        self.answer()


class Browser:
    """A browser without a window and with a profile of its own; ended with all its processes."""

    def __enter__(self):
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.process = None
        return self

    def open(self, address):
        self.process = subprocess.Popen(
            [BROWSER, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--disable-sync", f"--user-data-dir={self.folder.name}/profile", address],
            env={**os.environ, "HOME": self.folder.name}, start_new_session=True,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def __exit__(self, *_):
        if self.process is not None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        self.folder.cleanup()


if __name__ == "__main__":
    unittest.main(argv=[word for word in sys.argv if word != "--update"])
