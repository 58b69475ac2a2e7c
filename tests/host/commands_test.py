"""Commands over HTTP, HTTPS and WebSocket, in order and side by side."""

import asyncio
import concurrent.futures
import json
import re
import unittest

import websockets

from service import ServiceTest, command, wait_until


class Commands(ServiceTest):
    def ws(self, path="/qtp/", secure=False, **options):
        s = self.service
        if secure:
            return websockets.connect(f"wss://localhost:{s.secure}{path}", ssl=s.tls(), **options)
        return websockets.connect(f"ws://127.0.0.1:{s.plain}{path}", **options)

    def test_http_and_https_answer_alike(self):
        for secure in (False, True):
            status, headers, body = self.service.request(
                "POST", "/qtp/", command("Nope", 1, cmdId="c"), secure=secure)
            self.assertEqual(status, 200)
            for name, value in (("Content-Type", "application/json; charset=utf-8"),
                                ("Cache-Control", "no-store"),
                                ("X-Content-Type-Options", "nosniff")):
                self.assertEqual(headers[name], value)
            reply = json.loads(body)
            self.assertEqual((reply["id"], reply["cmdId"], reply["method"], reply["exception"]),
                             ("1", "c", "Nope", -2200))
        status, headers, body = self.service.request("POST", "/elsewhere", command("Nope"))
        self.assertEqual((status, headers["Content-Type"], body),
                         (200, "text/plain; charset=utf-8", b"Invalid command"))

    def test_a_kept_connection_answers_one_request_after_another(self):
        connection = self.service.http()
        for i in range(20):
            connection.request("POST", "/qtp/", command("Nope", i), {"User-Agent": "test"})
            response = connection.getresponse()
            self.assertEqual(json.loads(response.read())["result"][0], i)
        for method, path, status in (("HEAD", "/health", 200), ("GET", "/qtp/", 404),
                                     ("PUT", "/qtp/", 405), ("GET", "/health", 200)):
            connection.request(method, path)
            response = connection.getresponse()
            body = response.read()
            self.assertEqual((response.status, len(body) > 0), (status, method != "HEAD"))
            self.assertEqual(response.headers["Allow"],
                             "POST, GET, HEAD, OPTIONS" if status == 405 else None)
        connection.close()

    def test_pipelined_requests_are_answered_in_order(self):
        one = (f"POST /qtp/ HTTP/1.1\r\nHost: localhost:{self.service.plain}\r\nUser-Agent: t\r\n"
               "Content-Length: %d\r\n%s\r\n%s")
        requests = "".join(
            one % (len(t := command("Nope", i)), "Connection: close\r\n" if i == 9 else "", t)
            for i in range(10))
        replies = self.service.raw(requests.encode()).decode().split("HTTP/1.1 200 OK\r\n")[1:]
        self.assertEqual([json.loads(r.split("\r\n\r\n", 1)[1])["result"][0] for r in replies],
                         list(range(10)))

    def test_a_body_in_chunks(self):
        text = command("Nope", "x" * 100_000).encode()
        status, _, body = self.service.request(
            "POST", "/qtp/", iter([text[:70_000], text[70_000:]]))
        self.assertEqual((status, len(json.loads(body)["result"][0])), (200, 100_000))

    def test_messages_of_one_socket_are_answered_in_order(self):
        async def run(path, secure):
            async with self.ws(path, secure) as ws:
                for i in range(200):
                    await ws.send(command("Nope", i))
                return [json.loads(await ws.recv())["result"][0] for _ in range(200)]
        for path, secure in (("/qtp/", False), ("/", True), ("/any/other", False)):
            self.assertEqual(asyncio.run(run(path, secure)), list(range(200)), path)

    def test_sockets_are_served_side_by_side(self):
        async def one(number):
            async with self.ws(secure=number % 2 == 1) as ws:
                for i in range(50):
                    await ws.send(command("Nope", number, i))
                    self.assertEqual(json.loads(await ws.recv())["result"][:2], [number, i])
        async def run():
            await asyncio.gather(*(one(n) for n in range(8)))
        asyncio.run(run())

    def test_stopping_says_so_to_open_sockets(self):
        async def run():
            async with self.ws() as ws:
                await ws.send(command("Nope"))
                await ws.recv()
                await asyncio.get_running_loop().run_in_executor(None, self.service.stop)
                await ws.wait_closed()
                return ws.close_code
        self.assertEqual(asyncio.run(run()), 1001)

    def test_health_tells_what_is_running(self):
        status, _, body = self.service.request("GET", "/health?x", secure=True)
        health = json.loads(body)
        self.assertEqual((status, health["modules"]),
                         (200, [{"alias": "qtp", "description": "hvasm2_17300531"}]))
        self.assertEqual([(p["actual"], p["secure"], p["state"]) for p in health["ports"]],
                         [(self.service.plain, False, "listening"),
                          (self.service.secure, True, "listening")])
        self.assertIn("127.0.0.1", health["ports"][0]["addresses"])
        self.assertEqual((health["connections"], health["busy"]), (1, False))
        self.assertFalse(self.service.errors())

    def test_health_is_busy_while_a_command_runs(self):
        def busy():
            return json.loads(self.service.request("GET", "/health")[2])["busy"]

        def seen():
            running = pool.submit(self.service.ask, "Nope", *range(300_000))
            while not running.done():
                if busy():
                    return running.result()
            return None
        with concurrent.futures.ThreadPoolExecutor() as pool:
            wait_until(seen, "a running command is told")
        self.assertFalse(busy())

    def test_discovery_settings_are_stored_and_in_effect(self):
        def run(method, *parameters):
            return self.service.request("POST", "/qtp/", command(method, *parameters))[2].decode()

        run("SetmDNSService", True, "me", "a,b", 0, 0, 0, 2, False, "")
        run("SetmDNSQueryService", True, "10.0.0.1", 8080, 8443, 0, 0)
        self.assertEqual(run("GetmDNSService"), '[true,2,"me","a,b",0,0,0]')
        self.assertEqual(run("GetmDNSQueryService"), '[true,"10.0.0.1",8080,8443]')
        settings = self.service.ini.read_text()
        for line in ("EnablemDNSService=TRUE", "Service_alias=me", "Service_tags=a,b",
                     "Service_am=2", "EnablemDNSQueryService=TRUE", "Proxy_IP=10.0.0.1",
                     "Proxy_Port=8080", "Proxy_SSLPORT=8443"):
            self.assertIn(line, settings.splitlines())
        self.service.ini.write_text(settings.replace("alias=me", "alias=other"))
        self.assertEqual(run("GetmDNSService"), '[true,2,"other","a,b",0,0,0]')

    def test_the_log_level_can_be_raised_while_it_runs(self):
        log, ini = self.service.path("log/qvs.log"), self.service.ini
        self.service.ask("Nope", "before")
        ini.write_text(re.sub("LogLevel=.*\n", "", ini.read_text()).replace(
            "[QV]\n", "[QV]\nLogLevel=14\n"))
        wait_until(lambda: self.service.ask("Nope", "after") and log.exists()  # lines push others
                   and "cmd = [Nope]. id = [1]" in log.read_text(), "the command is logged")
        self.assertIn('"after"', log.read_text())
        self.assertNotIn('"before"', log.read_text())


if __name__ == "__main__":
    unittest.main()
