"""The service of one account and the others of its machine, each a real one of its own number."""

import asyncio
import contextlib
import http.client
import json
import os
import signal
import ssl
import tempfile
import unittest

from service import Service, command, wait_until

OWN, OTHER, ROOT = 41001, 41002, 0
NOBODY = 65534  # has a name on every machine
PAGE = "https://page.example"
MANAGER = "https://manager.example"
REFUSAL = "This service belongs to another user of this machine.\n"
NEW_PORTS = ("h", 1, 2, 3, 4)
UPGRADE = {"Upgrade": "websocket", "Connection": "Upgrade", "Sec-WebSocket-Version": "13",
           "Sec-WebSocket-Key": "dGhlIHNhbXBsZSBub25jZQ=="}


@unittest.skipIf(os.geteuid() != 0, "needs root, who plays the accounts")
class Accounts(unittest.TestCase):
    def run_service(self, mode, groups=None):
        self.service = Service(f"[QV]\nManageOrigins={MANAGER}\n", account=OWN)
        self.addCleanup(self.service.__exit__, None)
        self.service.path("service.ini").write_text(f"[QV]\nServiceMode={mode}\n")
        self.service.groups = groups
        self.service.start()

    def request(self, account, method, path, body=None, headers=None, secure=False,
                host="127.0.0.1"):
        """Status, headers and text of a request of that account."""
        port = self.service.secure if secure else self.service.plain
        sock = self.service.connect_as(account, port, host)
        if secure:
            sock = ssl._create_unverified_context().wrap_socket(sock, server_hostname="localhost")
        with contextlib.closing(http.client.HTTPConnection(host, port)) as connection:
            connection.sock = sock
            connection.request(method, path, body, {"User-Agent": "test", **(headers or {})})
            response = connection.getresponse()
            text = "" if response.status == 101 else response.read().decode()
            return response.status, response.headers, text

    def host_name(self):
        return self.service.ask("GetServerInfo")["Host"]

    def test_in_mode_user_there_is_nothing_for_others(self):
        self.run_service("user")
        ways = [(secure, host) for secure in (False, True) for host in ("127.0.0.1", "::1")]
        requests = (("GET", "/health", None, {}, 200), ("GET", "/", None, UPGRADE, 101),
                    ("POST", "/qtp/", command("GetLocalIP"), {}, 200),
                    ("GET", "/services", None, {}, 200), ("OPTIONS", "/qtp/", None, {}, 204),
                    ("POST", "/LoadZipFromBytes?type=2&qvver=&", "x", {}, 200),
                    ("GET", "/health", None, {"Host": "elsewhere.example"}, 403),
                    ("GET", "/health", None, {"Origin": MANAGER}, 200))
        for (secure, host), (method, path, body, headers, status) in (
                (way, request) for way in ways for request in requests):
            with self.subTest(secure=secure, host=host, method=method, path=path):
                def ask(account):
                    return self.request(account, method, path, body, headers, secure, host)
                self.assertEqual([ask(account)[0] for account in (OWN, ROOT)], [status] * 2)
                refused, answer, text = ask(OTHER)
                self.assertEqual((refused, text), (403, REFUSAL))
                self.assertEqual(answer["Access-Control-Allow-Origin"], headers.get("Origin"))

    def test_a_page_can_tell_another_user_from_an_origin_that_is_not_listed(self):
        self.run_service("user")
        told = [(status, answer["Access-Control-Allow-Origin"])
                for status, answer, _ in (self.request(account, "GET", "/health", None,
                                                       {"Origin": PAGE})
                                          for account in (OTHER, OWN))]
        self.assertEqual(told, [(403, PAGE), (403, None)])

    def test_in_mode_system_others_ask_and_no_origin_lifts_that(self):
        self.run_service("system")
        for headers in {}, {"Origin": MANAGER}:
            with self.subTest(headers):
                def post(text, path="/qtp/"):
                    return self.request(OTHER, "POST", path, text, headers)
                self.assertEqual(post(command("GetLocalIP"))[::2], (200, "[]"))
                status, _, text = post(command("SetServerInfo", *NEW_PORTS))
                self.assertEqual((status, text), (
                    403, "Another user of this machine may not run SetServerInfo: add the account "
                         "to \"ManageUsers\" in section QV of QVConfiguration.ini.\n"))
                self.assertEqual(self.host_name(), "")
        self.assertEqual(self.request(OTHER, "GET", "/health")[0], 200)
        self.assertEqual(self.request(OTHER, "GET", "/health", None, {"Origin": PAGE})[0], 403)

    def test_another_account_holds_a_quarter_of_the_connections(self):
        self.run_service("system")
        with contextlib.ExitStack() as many:
            def connect():
                return many.enter_context(self.service.connect_as(OTHER))
            held = [connect() for _ in range(64)]
            self.assertEqual(connect().recv(1), b"")
            self.assertEqual(self.request(OWN, "GET", "/health")[0], 200)
            held[0].sendall(b"x\r\n\r\n")
            self.assertTrue(held[0].recv(100), "what it holds it keeps")

    def test_listed_accounts_manage_and_a_socket_keeps_its_verdict(self):
        self.run_service("user")

        async def set_host(ws, name):
            await ws.send(command("SetServerInfo", name, *NEW_PORTS[1:]))
            return json.loads(await ws.recv()).get("exception", 0)

        async def run():
            def ws():
                return self.service.ws(sock=self.service.connect_as(OTHER))
            self.service.set("ManageUsers", f"somebody, {OTHER}")
            async with ws() as listed:
                self.service.set("ManageUsers", "")
                self.assertEqual(await set_host(listed, "listed"), 0)
                self.assertEqual(self.request(OTHER, "GET", "/health")[0], 403)
            self.service.path("service.ini").write_text("[QV]\nServiceMode=system\n")
            async with ws() as asking:
                self.service.set("ManageUsers", str(OTHER))
                self.assertEqual(await set_host(asking, "unlisted"), -2205)
            self.assertEqual(self.host_name(), "listed")
        asyncio.run(run())

    def test_members_of_a_listed_group_manage(self):
        with tempfile.NamedTemporaryFile("w") as groups:
            groups.write("root:x:0:\nscanners:x:41500:daemon,nobody\nothers:x:41501:nobodys\n")
            groups.flush()
            os.chmod(groups.name, 0o644)
            self.run_service("user", groups.name)
            for listed, status in (("@others, @missing", 403), ("@scanners", 200),
                                   ("@41501", 403), ("@41500", 200)):
                self.service.set("ManageUsers", listed)
                self.assertEqual(self.request(NOBODY, "GET", "/health")[0], status, listed)
                self.assertEqual(self.request(OTHER, "GET", "/health")[0], 403, "has no name")

    def test_who_has_left_is_not_taken_for_root(self):
        for mode in "user", "system":
            self.run_service(mode)
            text = command("SetServerInfo", *NEW_PORTS).encode()
            head = (f"POST /qtp/ HTTP/1.1\r\nHost: localhost:{self.service.plain}\r\nUser-Agent: x"
                    f"\r\nContent-Length: {len(text)}\r\n\r\n").encode()
            log = self.service.path("log/qvs.log")
            self.service.set("LogLevel", "14")
            with self.subTest(mode):
                # All has come before the service looks who calls, and the caller is gone by then.
                self.service.process.send_signal(signal.SIGSTOP)
                for account in OTHER, OWN:
                    with self.service.connect_as(account) as connection:
                        connection.sendall(head + text)
                self.service.process.send_signal(signal.SIGCONT)
                self.assertEqual(self.host_name(), "")
                wait_until(lambda: self.service.errors().count("request was refused")
                           + self.service.errors().count("command was refused") >= 2,
                           "both were refused")
                self.assertNotIn("SetServerInfo", log.read_text())


if __name__ == "__main__":
    unittest.main()
