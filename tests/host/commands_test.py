"""Commands over HTTP, HTTPS and WebSocket, in order and side by side."""

import asyncio
import json
import unittest

import websockets

from service import ServiceTest, command


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
            self.assertEqual(headers["Content-Type"], "application/json; charset=utf-8")
            self.assertEqual(headers["Cache-Control"], "no-store")
            self.assertEqual(headers["X-Content-Type-Options"], "nosniff")
            reply = json.loads(body)
            self.assertEqual((reply["id"], reply["cmdId"], reply["method"], reply["exception"]),
                             ("1", "c", "Nope", -2200))
        status, headers, body = self.service.request("POST", "/elsewhere", command("Nope"))
        self.assertEqual((status, headers["Content-Type"], body),
                         (200, "text/plain; charset=utf-8", b"Invalid command"))

    def test_a_client_without_a_name_is_not_served(self):
        request = b"POST /qtp/ HTTP/1.1\r\nHost: localhost:%d\r\nConnection: close\r\n" \
                  b"Content-Length: %d\r\n\r\n%s"
        text = command("GetServerInfo").encode()
        reply = self.service.raw(request % (self.service.plain, len(text), text))
        self.assertIn(b"-2205", reply)

    def test_a_kept_connection_answers_one_request_after_another(self):
        connection = self.service.http()
        for i in range(20):
            connection.request("POST", "/qtp/", command("Nope", i), {"User-Agent": "test"})
            response = connection.getresponse()
            self.assertEqual(json.loads(response.read())["result"][0], i)
        connection.request("HEAD", "/health")
        response = connection.getresponse()
        self.assertGreater(int(response.headers["Content-Length"]), 100)
        self.assertEqual(response.read(), b"")
        connection.request("GET", "/qtp/")
        response = connection.getresponse()
        self.assertEqual(response.status, 404)
        self.assertIn(b"POST", response.read())
        connection.request("PUT", "/qtp/")
        response = connection.getresponse()
        response.read()
        self.assertEqual((response.status, response.headers["Allow"]),
                         (405, "POST, GET, HEAD, OPTIONS"))
        connection.close()

    def test_pipelined_requests_are_answered_in_order(self):
        text = command("Nope")
        one = (f"POST /qtp/ HTTP/1.1\r\nHost: localhost:{self.service.plain}\r\nUser-Agent: t\r\n"
               "Content-Length: %d\r\n%s\r\n%s")
        requests = "".join(
            one % (len(t := command("Nope", i)), "Connection: close\r\n" if i == 9 else "", t)
            for i in range(10))
        replies = self.service.raw(requests.encode()).decode().split("HTTP/1.1 200 OK\r\n")[1:]
        self.assertEqual([json.loads(r.split("\r\n\r\n", 1)[1])["result"][0] for r in replies],
                         list(range(10)), text)

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
        for path in ("/qtp/", "/", "/any/other"):
            for secure in (False, True):
                self.assertEqual(asyncio.run(run(path, secure)), list(range(200)), path)

    def test_sockets_are_served_side_by_side(self):
        async def one(number):
            async with self.ws(secure=number % 2 == 1) as ws:
                for i in range(50):
                    await ws.send(command("Nope", number, i))
                    reply = json.loads(await ws.recv())
                    self.assertEqual(reply["result"][:2], [number, i])
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
        self.assertRegex(health["certificate"]["not_after"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertEqual(health["connections"], 1)
        self.assertFalse(self.service.errors())


if __name__ == "__main__":
    unittest.main()
