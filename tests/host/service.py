"""The program under test in a folder of its own: started, spoken to, and stopped in good order."""

import collections
import contextlib
import http.client
import json
import os
import pathlib
import re
import shutil
import socket
import ssl
import subprocess
import tempfile
import time
import unittest

import websockets

import contract

BIN = pathlib.Path(os.environ["QV_BIN"])
MODULE = os.environ["QV_MODULE"]
SANITIZED = any(mark in (BIN / MODULE).read_bytes() for mark in (b"__asan_init", b"__tsan_"))
PATIENCE = 60  # seconds; sanitized programs on a busy machine are slow


def command(method, *parameters, **members):
    """The text of a command."""
    return json.dumps({"id": "1", "method": method, "parameter": list(parameters), **members})


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        if result := condition():
            return result
        time.sleep(0.02)
    raise AssertionError("waited in vain until " + what)


class CheckedResponse(http.client.HTTPResponse):
    """A response whose body is held against the contract as soon as it has been read whole."""

    asked = None  # method, path and body of the request

    def read(self, *amount):
        body = super().read(*amount)
        method, path, sent = self.asked or ("HEAD", "", None)
        if self.status == 200 and not amount:
            if method == "POST":
                contract.check_reply(sent, body, path)
            elif method == "GET":
                contract.check_page(path, body)
        return body


class Checked:
    """What makes a client's connection hold each response against the contract."""

    response_class = CheckedResponse
    sent = None

    def request(self, method, path, body=None, headers={}, **more):
        if body is not None and not isinstance(body, (str, bytes)):
            body = list(body)
        whole = b"".join(body) if isinstance(body, list) else body
        self.sent = method, path, whole
        super().request(method, path, iter(body) if isinstance(body, list) else body, headers,
                        **more)

    def getresponse(self):
        response = super().getresponse()
        response.asked = self.sent
        return response


class CheckedConnection(Checked, http.client.HTTPConnection):
    pass


class CheckedSecureConnection(Checked, http.client.HTTPSConnection):
    pass


class CheckedSocket(websockets.WebSocketClientProtocol):
    """A WebSocket that holds each reply against the contract: they come in the commands' order."""

    def __init__(self, *words, **more):
        super().__init__(*words, **more)
        self.open_commands = collections.deque()

    async def send(self, message):
        self.open_commands.append(message)
        await super().send(message)

    async def recv(self):
        reply = await super().recv()
        contract.check_reply(self.open_commands.popleft(), reply)
        return reply


class Service:
    """A context: the folder is made on entry and removed on exit, where the program, if it still
    runs, must end with code 0 and without a word of the sanitizers."""

    def __init__(self, settings="", arguments=("--port", "0", "--ssl-port", "0"), account=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="qv_service_"))
        for name in ("marvique-service", MODULE):
            try:
                os.link(BIN / name, self.folder / name)
            except OSError:
                shutil.copy2(BIN / name, self.folder / name)
        self.program = self.folder / "marvique-service"
        self.ini = self.folder / "QVConfiguration.ini"
        if settings:
            self.ini.write_text(settings)
        self.arguments = list(arguments)
        self.account = account  # that the program runs as, by its number; needs root
        self.groups = None  # a file that stands for the machine's list of groups; needs root, too
        self.process = self.plain = self.secure = None
        self.checked = True  # replies against the contract; off for modules of other commands

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        try:
            if self.process is not None and kind is None:
                self.stop()
        finally:
            if self.process is not None:
                self.process.kill()
                self.process.wait()
            shutil.rmtree(self.folder)

    def path(self, name):
        return self.folder / name

    def start(self, *more, expect_plain=True, expect_secure=True):
        """Starts the program and waits for the ports that it is expected to open."""
        account, before = {}, []
        if self.account is not None:
            account = {"user": self.account, "group": self.account, "extra_groups": []}
            for path in (self.folder, *self.folder.glob("*.ini")):
                os.chown(path, self.account, self.account)
        if self.groups is not None:
            before = ["unshare", "--mount", "sh", "-c", "mount --bind $0 /etc/group && exec setpriv "
                      f"--reuid {self.account} --regid {self.account} --clear-groups $*", self.groups]
            account = {}
        with open(self.path("out"), "w") as out, open(self.path("err"), "w") as err:
            self.process = subprocess.Popen(
                [*before, self.program, *self.arguments, *more], stdout=out, stderr=err,
                **account)
        if expect_plain:
            self.plain = self.listening("http")
        if expect_secure:
            self.secure = self.listening("https")
        return self

    def listening(self, scheme, count=1):
        """The port of the scheme that was announced last, once there are `count` of them."""
        def look():
            if self.process.poll() is not None:
                raise AssertionError("ended early: " + self.errors())
            found = re.findall(rf"^Listening on {scheme}://127\.0\.0\.1:(\d+)$",
                               self.path("out").read_text(), re.M)
            return found if len(found) >= count else None
        return int(wait_until(look, f"it listens for {scheme}")[-1])

    def errors(self):
        return self.path("err").read_text()

    def stop(self):
        self.process.terminate()
        self.finish(0)

    def finish(self, code):
        process, self.process = self.process, None
        try:
            ended = process.wait(PATIENCE + 10)
        except subprocess.TimeoutExpired:
            process.kill()
            raise AssertionError("it does not stop")
        errors = self.errors()
        assert ended == code, f"exit code {ended} instead of {code}: {errors}"
        assert not re.search("Sanitizer|runtime error", errors), errors

    def set(self, key, value):
        """Sets a key of section QV, in the file."""
        text = re.sub(rf"(?m)^{key}=.*\n", "", self.ini.read_text())
        self.ini.write_text(text.replace("[QV]\n", f"[QV]\n{key}={value}\n"))

    def tls(self):
        return ssl.create_default_context(cafile=self.path("cert/server.pem"))

    def http(self, secure=False):
        if not secure:
            kind = CheckedConnection if self.checked else http.client.HTTPConnection
            return kind("127.0.0.1", self.plain, timeout=PATIENCE)
        return CheckedSecureConnection(
            "127.0.0.1", self.secure, context=self.tls(), timeout=PATIENCE)

    def connect(self, port=None, timeout=PATIENCE):
        return socket.create_connection(("127.0.0.1", port or self.plain), timeout)

    def connect_as(self, account, port=None, host="127.0.0.1"):
        """A connection that another account has made; needs root."""
        here, there = socket.socketpair()
        child = os.fork()
        if child == 0:
            with contextlib.suppress(BaseException):
                os.setgroups([])
                os.setgid(account)
                os.setuid(account)
                made = socket.create_connection((host, port or self.plain), PATIENCE)
                socket.send_fds(there, [b"x"], [made.fileno()])
            os._exit(0)
        with here:
            there.close()
            descriptors = socket.recv_fds(here, 1, 1)[1]
        os.waitpid(child, 0)
        connection = socket.socket(fileno=descriptors[0])
        connection.settimeout(PATIENCE)
        return connection

    def ws(self, path="/", secure=False, **options):
        """A WebSocket, to be entered."""
        if secure:
            options["ssl"] = self.tls()
        scheme, port = ("wss", self.secure) if secure else ("ws", self.plain)
        return websockets.connect(
            f"{scheme}://localhost:{port}{path}", create_protocol=CheckedSocket, **options)

    def request(self, method, path, body=None, headers=None, secure=False):
        """Status, headers and body of one request."""
        with contextlib.closing(self.http(secure)) as connection:
            connection.request(method, path, body, {"User-Agent": "test", **(headers or {})})
            response = connection.getresponse()
            return response.status, response.headers, response.read()

    def health(self):
        return json.loads(self.request("GET", "/health")[2])

    def ask(self, method, *parameters, secure=False):
        """The parsed reply to a command that must be answered."""
        text = command(method, *parameters)
        status, _, body = self.request("POST", "/qtp/", text, secure=secure)
        assert status == 200, (status, body)
        return json.loads(body)

    @contextlib.contextmanager
    def session(self):
        """What asks commands one after another on one connection."""
        with contextlib.closing(self.http()) as connection:
            def ask(method, *parameters):
                connection.request(
                    "POST", "/qtp/", command(method, *parameters), {"User-Agent": "test"})
                response = connection.getresponse()
                assert response.status == 200, response.status
                return json.loads(response.read())
            yield ask

    def raw(self, data, port=None):
        """All that comes back, until the other side closes, for bytes sent as they are."""
        with self.connect(port) as connection:
            with contextlib.suppress(ConnectionError):
                connection.sendall(data)
            return drain(connection)


def drain(connection):
    received = b""
    with contextlib.suppress(ConnectionError):
        while chunk := connection.recv(65536):
            received += chunk
    return received


class ServiceTest(unittest.TestCase):
    """A running service for each test of the class."""

    settings = ""
    arguments = ()

    def setUp(self):
        self.service = Service(self.settings)
        self.addCleanup(lambda: self.service.__exit__(None))
        self.service.start(*self.arguments)

    def assert_alive(self):
        self.assertIn("qtp", self.service.ask("GetServerInfo"))
