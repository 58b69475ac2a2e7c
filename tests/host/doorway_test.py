"""Who gets in: hosts, origins, preflights, and who may manage."""

import asyncio
import json
import pathlib
import unittest

import websockets

from service import ServiceTest, command

CLIENT = pathlib.Path(__file__).resolve().parents[2] / "client/marvique-client.js"
ASK = {"Origin": "https://ask.example"}
MANAGE = {"Origin": "https://manage.example.com"}
CUT = {"Origin": "https://manage.example.c"}  # what other settings would keep of a list as long
LONG = "https://other.example,https://" + "x" * (2046 - 31 - len(CUT["Origin"])) + ","
FOREIGN = {"Origin": "https://x.example"}
NEW_PORTS = ("h", 1, 2, 3, 4)


class Doorway(ServiceTest):
    arguments = ("--idle-timeout", "3")
    settings = ("[QV]\nAllowedOrigins=https://ask.example\n"
                f"ManageOrigins={LONG}{MANAGE['Origin']}\n")

    def post(self, text, headers, path="/qtp/"):
        return self.service.request("POST", path, text, headers)

    def test_asking_and_managing(self):
        for headers in (ASK, MANAGE, {"Origin": f"https://localhost:{self.service.secure}"}):
            status, answer, _ = self.post(command("GetServerInfo"), headers)
            self.assertEqual((status, answer["Access-Control-Allow-Origin"], answer["Vary"]),
                             (200, headers["Origin"], "Origin"))
        for origin, told in ((FOREIGN, b"AllowedOrigins"), ({"Origin": "null"}, b"origin")):
            status, answer, body = self.post(command("GetLocalIP"), origin)
            self.assertEqual((status, answer["Access-Control-Allow-Origin"]), (403, None))
            self.assertIn(told, body)
        status, answer, body = self.post(command("SetServerInfo", *NEW_PORTS), ASK)
        self.assertEqual((status, body.decode(), answer["Access-Control-Allow-Origin"]), (
            403, "The origin https://ask.example may not run SetServerInfo: add it to "
                 "\"ManageOrigins\" in section QV of QVConfiguration.ini.\n", ASK["Origin"]))
        self.assertEqual(self.service.ask("GetServerInfo")["Host"], "")
        self.assertEqual(len(LONG + CUT["Origin"]), 2046)
        self.assertEqual(self.post(command("ChangePort"), CUT)[0], 403)
        self.assertEqual(self.post(command("SetServerInfo", *NEW_PORTS), MANAGE)[0], 200)
        self.assertEqual(self.service.ask("GetServerInfo")["Host"], "h")

    def test_an_upload_that_is_not_allowed_is_refused_before_its_body(self):
        for origin, path, status in (
                (ASK, "/LoadZipFromBytes", 403), (ASK, "/LoadZipFromBytes?type=2&qvver=1&", 403),
                (ASK, "/LoadZipFromBytes?type=1],\"event\":\"GetPorts\",\"x\":[1&", 403),
                (self.own_origin(), "/LoadZipFromBytes", 403), (FOREIGN, "/LoadZipFromBytes", 403),
                (MANAGE, "/LoadZipFromBytes", 408)):
            head = (f"POST {path} HTTP/1.1\r\nHost: localhost:{self.service.plain}\r\nOrigin: "
                    f"{origin['Origin']}\r\nContent-Length: 1000\r\n\r\n")
            with self.subTest(origin=origin, path=path):
                self.assertEqual(int(self.service.raw(head.encode()).split(b" ", 2)[1]), status)

    def own_origin(self, secure=False):
        scheme, port = ("https", self.service.secure) if secure else ("http", self.service.plain)
        return {"Origin": f"{scheme}://localhost:{port}"}

    def test_the_console_manages_with_the_token_of_this_run(self):
        file = self.service.path("console.token")

        def statuses(token, origin):
            headers = {**origin, "X-Marvique-Token": token}
            return [self.post(command(c), headers)[0] for c in ("GetLocalIP", "ChangePort")]

        def token():
            text = file.read_text()
            self.assertRegex(text, r"\A[0-9a-f]{64}\n\Z")
            self.assertEqual(file.stat().st_mode & 0o7777, 0o600)
            return text.strip()

        first = token()
        for secure in False, True:
            own = self.own_origin(secure)
            self.assertEqual(self.post(command("ChangePort"), own)[2],
                             b"A page of this service runs ChangePort with the console's token.\n")
            self.assertEqual(statuses(first, own), [200, 200])
            for wrong in "", first[:-1], first + "0", "0" * 64:
                self.assertEqual(statuses(wrong, own), [200, 403])
        self.assertEqual(statuses(first, ASK), [200, 403])
        self.assertEqual(statuses(first, FOREIGN), [403, 403])
        self.assertNotIn(first, str(self.service.health()) + self.service.errors())

        self.service.stop()
        self.assertFalse(file.exists())
        file.write_text(first)  # as an earlier run left it that was killed, for everybody to read
        file.chmod(0o644)
        self.service.start()
        self.assertNotEqual(token(), first)
        self.assertEqual(statuses(first, self.own_origin()), [200, 403])
        self.assertEqual(statuses(token(), self.own_origin()), [200, 200])

    def test_without_an_origin_pages_of_other_sites_run_nothing(self):
        def status(method, site, **more):
            return self.service.request(method, "/health", None,
                                        {"Sec-Fetch-Site": site, **more})[0]
        for site, statuses in (("cross-site", [200, 403, 403, 403]), ("none", [200, 200, 200, 204]),
                               ("same-origin", [200, 200, 200, 204])):
            self.assertEqual([status(method, site) for method in (
                "GET", "HEAD", "POST", "OPTIONS")], statuses, site)
        self.assertEqual(status("POST", "cross-site", **ASK), 200)
        upgrade = {"Upgrade": "websocket", "Connection": "Upgrade", "Sec-WebSocket-Version": "13",
                   "Sec-WebSocket-Key": "dGhlIHNhbXBsZSBub25jZQ=="}
        self.assertEqual(status("GET", "cross-site", **upgrade), 403)

    def test_preflights(self):
        def preflight(origin, asked):
            status, headers, body = self.service.request("OPTIONS", "/qtp/", None, {
                "Access-Control-Request-Headers": asked, **origin,
                "Access-Control-Request-Private-Network": "true"})
            return [status] + [headers["Access-Control-Allow-" + name] for name in (
                "Origin", "Methods", "Headers", "Private-Network")], body
        self.assertEqual(preflight(ASK, "content-type, x-a"), (
            [204, ASK["Origin"], "POST, GET, OPTIONS", "content-type, x-a", "true"], b""))
        self.assertIsNone(preflight(ASK, "a\"b")[0][3])
        self.assertEqual(preflight(FOREIGN, "x-a")[0][:2], [403, None])

    def test_the_page_client_is_for_pages_that_may_ask(self):
        for headers in (ASK, {}):
            status, answer, body = self.service.request("GET", "/client.js?x", None, headers)
            self.assertEqual([status, body] + [answer[name] for name in (
                "Access-Control-Allow-Origin", "Vary", "Content-Type", "Cache-Control")],
                [200, CLIENT.read_bytes(), headers.get("Origin"), "Origin",
                 "text/javascript; charset=utf-8", "no-cache"])
        tag = answer["ETag"]
        for known, expected in (tag, 304), (f'"x", W/{tag}', 304), ('"x"', 200):
            status, again, body = self.service.request(
                "GET", "/client.js", None, {**ASK, "If-None-Match": known})
            self.assertEqual((status, again["ETag"], body == b""), (expected, tag, status == 304))
        self.assertEqual(self.service.request("GET", "/client.js", None, FOREIGN)[0], 403)
        self.assertEqual(self.service.request("HEAD", "/client.js")[::2], (200, b""))

    def test_edited_lists_take_effect_in_the_running_service(self):
        def statuses():
            return [self.post(command(c), FOREIGN)[0] for c in ("GetLocalIP", "ChangePort")]

        self.assertEqual(statuses(), [403, 403])
        self.service.set("AllowedOrigins", FOREIGN["Origin"])
        self.assertEqual(statuses(), [200, 403])
        self.service.set("ManageOrigins", FOREIGN["Origin"])
        self.assertEqual(statuses(), [200, 200])

    def test_sockets_of_pages(self):
        async def run():
            with self.assertRaises(websockets.InvalidStatusCode) as refused:
                await self.service.ws(extra_headers=FOREIGN)
            self.assertEqual(refused.exception.status_code, 403)
            for path in ("/", "/qtp/"):
                async with self.service.ws(path, extra_headers=ASK) as ws:
                    await ws.send(command("Reboot", cmdId="c"))
                    await ws.send(command("GetLocalIP"))
                    reply = json.loads(await ws.recv())
                    self.assertEqual([reply[key] for key in ("exception", "method", "id", "result")],
                                     [-2205, "Reboot", "1", [False]])
                    self.assertEqual(list(reply.items())[-1], ("cmdId", "c"))
                    self.assertIn("ManageOrigins", reply["description"])
                    self.assertEqual(await ws.recv(), "[]")
            async with self.service.ws(extra_headers=ASK) as ws:
                self.service.set("AllowedOrigins", "")
                await ws.send(command("GetLocalIP"))
                self.assertIn("AllowedOrigins", json.loads(await ws.recv())["description"])
        asyncio.run(run())


if __name__ == "__main__":
    unittest.main()
