"""Who gets in: hosts, origins, preflights, and who may manage."""

import asyncio
import json
import unittest

import websockets

from service import ServiceTest, command

ASK = {"Origin": "https://ask.example"}
MANAGE = {"Origin": "https://manage.example.com"}
CUT = {"Origin": "https://manage.example.c"}  # what other settings would keep of a list as long
LONG = "https://other.example,https://" + "x" * (2046 - 31 - len(CUT["Origin"])) + ","
FOREIGN = {"Origin": "https://x.example"}
NEW_PORTS = ("h", 1, 2, 3, 4)


class Doorway(ServiceTest):
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
        self.assertEqual(self.post("x", ASK, "/LoadZipFromBytes?type=1&qvver=1&")[0], 403)
        self.assertEqual(self.post(command("SetServerInfo", *NEW_PORTS), MANAGE)[0], 200)
        self.assertEqual(self.service.ask("GetServerInfo")["Host"], "h")

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
