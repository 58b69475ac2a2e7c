"""Commands over HTTP, HTTPS and WebSocket, in order and side by side."""

import asyncio
import json
import unittest

import contract
from service import ServiceTest, command


class Commands(ServiceTest):
    def test_http_and_https_answer_alike(self):
        for secure in (False, True):
            status, headers, body = self.service.request(
                "POST", "/qtp/", command("Nope", 1, cmdId="c"), secure=secure)
            self.assertEqual([headers[name] for name in (
                "Content-Type", "Cache-Control", "X-Content-Type-Options")],
                ["application/json; charset=utf-8", "no-store", "nosniff"])
            reply = json.loads(body)
            self.assertEqual([status] + [reply[k] for k in ("id", "cmdId", "method", "exception")],
                             [200, "1", "c", "Nope", -2200])
        status, headers, body = self.service.request("POST", "/elsewhere", command("Nope"))
        self.assertEqual((status, headers["Content-Type"], body),
                         (200, "text/plain; charset=utf-8", b"Invalid command"))

    def test_a_kept_connection_answers_one_request_after_another(self):
        connection = self.service.http()
        long = command("Nope", "x" * 100_000).encode()
        for method, path, body, status in (
                ("POST", "/qtp/", command("Nope", 1), 200), ("HEAD", "/health", None, 200),
                ("GET", "/qtp/", None, 404), ("PUT", "/qtp/", None, 405),
                ("POST", "/qtp/", iter([long[:70_000], long[70_000:]]), 200)):
            connection.request(method, path, body, {"User-Agent": "test"})
            response = connection.getresponse()
            body = response.read()
            self.assertEqual((response.status, len(body) > 0), (status, method != "HEAD"))
            self.assertEqual(response.headers["Allow"],
                             "POST, GET, HEAD, OPTIONS" if status == 405 else None)
        self.assertEqual(json.loads(body)["result"][0], "x" * 100_000, "sent in chunks")
        connection.close()

    def test_pipelined_requests_are_answered_in_order(self):
        one = (f"POST /qtp/ HTTP/1.1\r\nHost: localhost:{self.service.plain}\r\nUser-Agent: t\r\n"
               "Content-Length: %d\r\n%s\r\n%s")
        requests = "".join(
            one % (len(t := command("Nope", i)), "Connection: close\r\n" if i == 9 else "", t)
            for i in range(10))
        replies = self.service.raw(requests.encode()).decode().split("HTTP/1.1 200 OK\r\n")[1:]
        replies = [reply.split("\r\n\r\n", 1)[1] for reply in replies]
        self.assertEqual([json.loads(reply)["result"][0] for reply in replies], list(range(10)))
        for reply in replies:
            contract.check_reply(command("Nope"), reply)

    def test_sockets_are_served_side_by_side_and_each_in_order(self):
        async def one(number, path):
            async with self.service.ws(path, secure=number % 2 == 1) as ws:
                for i in range(200):
                    await ws.send(command("Nope", number, i))
                return [json.loads(await ws.recv())["result"][:2] for _ in range(200)]

        async def run():
            return await asyncio.gather(*(one(n, path) for n, path in enumerate(
                ("/qtp/", "/", "/any/other", "/", "/", "/"))))
        self.assertEqual(asyncio.run(run()), [[[n, i] for i in range(200)] for n in range(6)])

    def test_a_socket_takes_large_messages_and_is_told_of_the_end(self):
        async def run():
            async with self.service.ws(max_size=None) as ws:
                await ws.send(command("Nope", "y" * 8_000_000))
                self.assertEqual(len(json.loads(await ws.recv())["result"][0]), 8_000_000)
                await asyncio.get_running_loop().run_in_executor(None, self.service.stop)
                await ws.wait_closed()
                return ws.close_code
        self.assertEqual(asyncio.run(run()), 1001)

    def test_health_tells_what_is_running(self):
        s, health = self.service, self.service.health()
        self.assertEqual(health["modules"], [{"alias": "qtp", "description": "hvasm2_17300531"}])
        self.assertEqual([(p["actual"], p["secure"], p["state"]) for p in health["ports"]],
                         [(s.plain, False, "listening"), (s.secure, True, "listening")])
        self.assertIn("127.0.0.1", health["ports"][0]["addresses"])
        self.assertEqual((health["connections"], health["busy"]), (1, False))
        self.assertFalse(s.errors())


if __name__ == "__main__":
    unittest.main()
