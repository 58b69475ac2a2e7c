"""Runs every example of docs/commands.md against the started service, and its page in a browser.

With --update the replies in the document are replaced by those of this run."""

import contextlib
import http.server
import json
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
import urllib.parse

import contract
import service
import zips

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "commands.md"
CLIENT = DOCUMENT.parents[1] / "client" / "marvique-client.js"
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
        table = (DOCUMENT.parents[1] / "src/command/command_table.cpp").read_text()
        commands = re.findall(r'CommandEntry\{\w+, "(\w+)", k(Ask|Manage)', table)
        self.assertGreater(len(commands), 15)
        asked = re.search(r"in `AllowedOrigins` \| run (.*) \|", text)[1]
        for command, rights in commands:
            self.assertIn(f"**{command}**", text)
            self.assertEqual(command in re.findall(r"\w+", asked), rights == "Ask", command)
        self.assertEqual(set(contract.COMMANDS), {command for command, _ in commands})

    def test_the_document_tells_what_the_schema_tells(self):
        text = DOCUMENT.read_text()
        for command, entry in contract.COMMANDS.items():
            told = re.search(rf"\*\*{command}\*\*(?: \(([^)]*)\))?", text)[1]
            items = entry["properties"]["parameter"].get("prefixItems", [])
            self.assertEqual(re.split(r",\s+", told) if told else [],
                             [item["description"] for item in items], command)
        for example, reply in EXAMPLE.findall(text):
            sent, path = re.search(r"-d '(.*?)'", example), re.search(r":\d+(/[^\s']*)", example)[1]
            if sent or "--data-binary" in example:
                if not reply.startswith("The origin"):  # a refusal by HTTP status
                    contract.check_reply(sent[1] if sent else "", reply.rstrip("\n"), path)
            else:
                contract.check_page(path, reply)
        errors = {}
        for code, told in re.findall(r"^\| (-2\d\d\d) \| ([^|]*) \|", text, re.M):
            errors.setdefault(int(code), []).append(told.split(" ...")[0].rstrip("."))
        forms = contract.SCHEMA["$defs"]["Failure"]["oneOf"]
        self.assertEqual(list(errors), [form["properties"]["exception"]["const"] for form in forms])
        for form in forms:
            for told in errors[form["properties"]["exception"]["const"]]:
                self.assertIn(told, json.dumps(form["properties"]["description"]))

    @unittest.skipUnless(BROWSER, "chromium is not installed")
    def test_the_page_works_in_a_browser(self):
        text = DOCUMENT.read_text()
        page, shown = re.search(
            r"^```html\n(.*?)```$.*?^```text\n(.*?)```$", text, re.M | re.S).groups()
        plain = str(self.service.plain)
        page = page.replace("18625", plain).replace("18626", str(self.service.secure))
        PageHandler.page = (page + WATCHER).encode()
        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), PageHandler) as server:
            threading.Thread(target=server.serve_forever, daemon=True).start()
            self.addCleanup(server.shutdown)
            origin = f"http://127.0.0.1:{server.server_port}"
            self.service.set("AllowedOrigins", origin)
            with browser(origin + "/"):
                text = service.wait_until(lambda: PageHandler.shown, "the page shows something")
        self.assertEqual(text, shown.strip().replace("18625", plain))


# Tells the test what the page shows once that changes.
WATCHER = """<script>
  setInterval(() => {
    if (out.textContent !== "asking") fetch("/shown?" + encodeURIComponent(out.textContent));
  }, 50);
</script>"""


class PageHandler(http.server.BaseHTTPRequestHandler):
    """Serves a page and is told what it shows."""

    page, shown = b"", None

    def log_message(self, *_):
        pass

    def do_GET(self):
        if self.path.startswith("/shown?"):
            PageHandler.shown = urllib.parse.unquote(self.path.partition("?")[2])
        is_client = self.path == "/" + CLIENT.name
        self.send_response(200)
        self.send_header("Content-Type", "text/javascript" if is_client else "text/html; charset=utf-8")
        self.end_headers()
        self.wfile.write(CLIENT.read_bytes() if is_client else self.page)


@contextlib.contextmanager
def browser(address):
    """A browser without a window and with a profile of its own; ended with all its processes."""
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        process = subprocess.Popen(
            [BROWSER, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--disable-sync", f"--user-data-dir={folder}/profile", address],
            env={**os.environ, "HOME": folder}, start_new_session=True,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            yield
        finally:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()


if __name__ == "__main__":
    unittest.main(argv=[word for word in sys.argv if word != "--update"])
