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
NEW_PORTS = ("h", 1, 2, 3, 4)


class Doorway(ServiceTest):
    settings = ("[QV]\nAllowedOrigins=https://ask.example\n"
                f"ManageOrigins={LONG}{MANAGE['Origin']}\n")

    def post(self, text, headers, path="/qtp/"):
        return self.service.request("POST", path, text, headers)

    def test_only_the_names_of_this_machine(self):
        port = self.service.plain
        for host, expected in ((f"[::1]:{port}", 200), (f"rebound.example:{port}", 403)):
            for method, path in (("POST", "/qtp/"), ("GET", "/health")):
                status, _, body = self.service.request(
                    method, path, command("GetLocalIP"), {"Host": host})
                self.assertEqual(status, expected, (host, body))

    def test_foreign_origins_are_told_which_key_lets_them_in(self):
        for origin, told in (("https://x.example", b"AllowedOrigins"), ("null", b"origin")):
            status, headers, body = self.post(command("GetLocalIP"), {"Origin": origin})
            self.assertEqual(status, 403)
            self.assertIn(told, body)
            self.assertIsNone(headers["Access-Control-Allow-Origin"])

    def test_asking_and_managing(self):
        for headers in (ASK, MANAGE, {"Origin": f"https://localhost:{self.service.secure}"}):
            status, answer, _ = self.post(command("GetServerInfo"), headers)
            self.assertEqual(status, 200)
            self.assertEqual(answer["Access-Control-Allow-Origin"], headers["Origin"])
            self.assertEqual(answer["Vary"], "Origin")
        status, answer, body = self.post(command("SetServerInfo", *NEW_PORTS), ASK)
        self.assertEqual((status, body.decode()), (
            403, "The origin https://ask.example may not run SetServerInfo: add it to "
                 "\"ManageOrigins\" in section QV of QVConfiguration.ini.\n"))
        self.assertEqual(answer["Access-Control-Allow-Origin"], ASK["Origin"])
        self.assertEqual(self.service.ask("GetServerInfo")["Host"], "")
        self.assertEqual(len(LONG + CUT["Origin"]), 2046)
        self.assertEqual(self.post(command("ChangePort"), CUT)[0], 403)
        self.assertEqual(self.post("x", ASK, "/LoadZipFromBytes?type=1&qvver=1&")[0], 403)
        self.assertEqual(self.post(command("SetServerInfo", *NEW_PORTS), MANAGE)[0], 200)
        self.assertEqual(self.service.ask("GetServerInfo")["Host"], "h")

    def test_preflights(self):
        asked = {"Access-Control-Request-Method": "POST",
                 "Access-Control-Request-Headers": "content-type, x-a",
                 "Access-Control-Request-Private-Network": "true"}
        status, headers, body = self.service.request("OPTIONS", "/qtp/", None, {**asked, **ASK})
        self.assertEqual((status, body), (204, b""))
        for name, value in (("Origin", ASK["Origin"]), ("Methods", "POST, GET, OPTIONS"),
                            ("Headers", "content-type, x-a"), ("Private-Network", "true")):
            self.assertEqual(headers["Access-Control-Allow-" + name], value)
        asked["Access-Control-Request-Headers"] = "a\"b"
        headers = self.service.request("OPTIONS", "/qtp/", None, {**asked, **ASK})[1]
        self.assertIsNone(headers["Access-Control-Allow-Headers"])
        status, headers, _ = self.service.request(
            "OPTIONS", "/qtp/", None, {**asked, "Origin": "https://x.example"})
        self.assertEqual((status, headers["Access-Control-Allow-Origin"]), (403, None))

    def test_edited_lists_take_effect_in_the_running_service(self):
        late = {"Origin": "https://late.example"}
        ini = self.service.ini

        def add(key):
            ini.write_text(ini.read_text().replace(key, key + late["Origin"] + ","))

        self.assertEqual(self.post(command("ChangePort"), late)[0], 403)
        add("AllowedOrigins=")
        self.assertEqual(self.post(command("GetLocalIP"), late)[0], 200)
        self.assertEqual(self.post(command("ChangePort"), late)[0], 403)
        add("ManageOrigins=")
        self.assertEqual(self.post(command("ChangePort"), late)[0], 200)

    def test_sockets_of_pages(self):
        url = f"ws://127.0.0.1:{self.service.plain}"

        async def refused(**headers):
            try:
                async with websockets.connect(url, extra_headers=headers):
                    return None
            except websockets.InvalidStatusCode as refusal:
                return refusal.status_code

        async def run():
            self.assertEqual(await refused(Origin="https://x.example"), 403)
            for path in ("/", "/qtp/"):
                async with websockets.connect(url + path, extra_headers=ASK) as ws:
                    await ws.send(command("Reboot", cmdId="c"))
                    await ws.send(command("GetLocalIP"))
                    reply = json.loads(await ws.recv())
                    self.assertEqual([reply[key] for key in ("exception", "method", "id", "cmdId")],
                                     [-2205, "Reboot", "1", "c"])
                    self.assertIn("ManageOrigins", reply["description"])
                    self.assertEqual(await ws.recv(), "[]")
            async with websockets.connect(url, extra_headers=ASK) as ws:
                ini = self.service.ini
                ini.write_text(ini.read_text().replace("https://ask.example", ""))
                await ws.send(command("GetLocalIP"))
                self.assertIn("AllowedOrigins", json.loads(await ws.recv())["description"])
        asyncio.run(run())


if __name__ == "__main__":
    unittest.main()
