"""Hostile input: a clear error or a clean close, and the service answers afterwards."""

import asyncio
import contextlib
import json
import socket
import unittest

import websockets

from service import ServiceTest, command, drain, wait_until

MIB = 1024 * 1024
KEY = "dGhlIHNhbXBsZSBub25jZQ=="


class Hostile(ServiceTest):
    arguments = ("--idle-timeout", "2")

    def tearDown(self):
        self.assert_alive()

    def head(self, *lines, method="POST", path="/qtp/", host=None):
        host = host if host is not None else f"Host: localhost:{self.service.plain}"
        return "\r\n".join([f"{method} {path} HTTP/1.1", host, "User-Agent: test", *lines,
                            "", ""]).encode()

    def last(self, *lines, **how):
        """A header after whose answer the connection ends."""
        return self.head("Connection: close", *lines, **how)

    def status(self, data):
        reply = self.service.raw(data)
        return int(reply.split(b" ", 2)[1]) if reply else None

    def test_texts_that_are_no_commands(self):
        deep = "[" * 1001 + "]" * 1001
        for text in ("", "{", "[1,2]", deep, '{"a":' * 1001, '{"method":' + deep + "}",
                     '{"id":{},"method":[],"parameter":5}', "\x01", '{"method":"\\ud800"}'):
            status, _, body = self.service.request("POST", "/qtp/", text)
            self.assertEqual(status, 200, text[:20])
            self.assertTrue(body)
        status, _, body = self.service.request(
            "POST", "/qtp/", b'{"id":"\xff\xfe","method":"a\xc3","parameter":["\xed\xa0\x80"]}')
        self.assertEqual(status, 200)
        body.decode("utf-8")  # a reply is valid whatever came in
        self.assertEqual(self.service.request("POST", "/qtp/", b'{"id":"\0"}')[0], 400)

    def test_texts_beyond_the_limit(self):
        fits = '{"id":"' + "x" * (16 * MIB - 9) + '"}'
        self.assertEqual(self.service.request("POST", "/qtp/", fits)[0], 200)
        self.assertEqual(self.service.request("POST", "/qtp/", fits + " ")[0], 413)
        self.assertEqual(self.status(self.head(f"Content-Length: {512 * MIB + 1}",
                                               path="/LoadZipFromBytes?type=1&")), 413)
        self.assertEqual(self.status(self.head("Content-Length: 99999999999999999999999")), 400)
        chunk = b"100000\r\n" + b" " * MIB + b"\r\n"
        chunked = self.head("Transfer-Encoding: chunked")
        self.assertEqual(self.status(chunked + chunk * 17 + b"0\r\n\r\n"), 413)
        self.assertEqual(self.status(chunked + b"1;" + b"x" * MIB), 400)
        self.assertEqual(
            self.status(self.head(f"Content-Length: {17 * MIB}", "Expect: 100-continue")), 413)

    def test_the_body_is_invited_when_it_may_come(self):
        text = command("GetLocalIP").encode()
        with socket.create_connection(("127.0.0.1", self.service.plain), 30) as client:
            client.sendall(self.head(f"Content-Length: {len(text)}", "Expect: 100-continue",
                                     "Connection: close"))
            self.assertTrue(client.recv(1000).startswith(b"HTTP/1.1 100 Continue\r\n"))
            client.sendall(text)
            self.assertTrue(drain(client).endswith(b"\r\n\r\n[]"))

    def test_headers(self):
        for expected, data in (
                (431, self.last(*[f"X-{i}: {'a' * 1000}" for i in range(40)])),
                (431, self.last(path="/" + "a" * 40_000)),
                (400, b"nonsense\r\n\r\n"),
                (400, b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + b"\0" * 60),
                (400, self.last("Content-Length: 1", "Content-Length: 2")),
                (400, self.last(path="*", method="OPTIONS")),
                (403, self.last(host="X: y")),
                (403, self.last(f"Host: localhost:{self.service.plain}")),
                (403, self.last("Origin: https://a.example", "Origin: https://a.example")),
                (404, self.last("Upgrade: websocket", method="GET")),
                (400, self.head("Upgrade: websocket", "Connection: Upgrade", method="GET")),
                (405, self.last(method="DELETE"))):
            self.assertEqual(self.status(data), expected, data[:60])

    def test_silence(self):
        self.assertEqual(self.status(b"POST /qtp/ HT"), 408)
        self.assertEqual(self.status(self.head("Content-Length: 10") + b"12345"), 408)
        self.assertIsNone(self.status(b""))
        s = self.service
        self.assertEqual(s.raw(b"\x16\x03", s.secure), b"")
        with socket.create_connection(("127.0.0.1", s.secure), 30) as plain, \
                s.tls().wrap_socket(plain, server_hostname="localhost") as client:
            client.sendall(b"POST /qtp/ HT")
            self.assertTrue(drain(client).startswith(b"HTTP/1.1 408 "))

    def test_more_connections_than_there_may_be(self):
        port = self.service.plain
        with contextlib.ExitStack() as many:
            for _ in range(256):
                many.enter_context(socket.create_connection(("127.0.0.1", port), 30))
            self.assertIn(b" 503 ", self.service.raw(b""))
        wait_until(lambda: b" 200 " in self.service.raw(self.last(method="GET", path="/health")),
                   "there is room again")

    def test_a_client_that_does_not_read(self):
        big = command("Nope", "x" * MIB).encode()
        request = self.head(f"Content-Length: {len(big)}") + big
        with socket.create_connection(("127.0.0.1", self.service.plain), 0.5) as client:
            with contextlib.suppress(TimeoutError, ConnectionError):
                while True:  # until the service reads no more of what nobody takes the replies to
                    client.sendall(request)
            self.assert_alive()

    def test_clients_that_go_away(self):
        text = command("GetServerInfo").encode()
        for sent in (b"", b"POST", self.head(f"Content-Length: {len(text)}") + text):
            for _ in range(20):
                client = socket.create_connection(("127.0.0.1", self.service.plain))
                client.sendall(sent)
                client.close()

        async def run():
            for _ in range(5):
                ws = await websockets.connect(f"ws://127.0.0.1:{self.service.plain}/")
                for _ in range(100):
                    await ws.send(command("GetServerInfo"))
                ws.transport.abort()
        asyncio.run(run())

    def test_messages_that_are_refused(self):
        async def close_code(message):
            async with websockets.connect(f"ws://127.0.0.1:{self.service.plain}/qtp/") as ws:
                with contextlib.suppress(websockets.ConnectionClosed):
                    await ws.send(message)
                await ws.wait_closed()
                return ws.close_code

        async def answer(message):
            async with websockets.connect(f"ws://127.0.0.1:{self.service.plain}/",
                                          max_size=None) as ws:
                await ws.send(message)
                return await ws.recv()

        for message, code in ((b"\x01", 1003), ('{"id":"\0"}', 1007), ("x" * (16 * MIB + 1), 1009)):
            self.assertEqual(asyncio.run(close_code(message)), code)
        self.assertTrue(asyncio.run(answer("{")))
        big = json.loads(asyncio.run(answer(command("Nope", "y" * (8 * MIB)))))
        self.assertEqual(len(big["result"][0]), 8 * MIB)

    def test_a_socket_that_is_silent_but_there_stays(self):
        async def run():
            async with websockets.connect(f"ws://127.0.0.1:{self.service.plain}/",
                                          ping_interval=None) as ws:
                await asyncio.sleep(5)  # more than twice the service's patience, pings are answered
                await ws.send(command("GetLocalIP"))
                self.assertEqual(await ws.recv(), "[]")
        asyncio.run(run())

    def test_a_socket_whose_client_takes_no_replies_is_closed(self):
        with socket.create_connection(("127.0.0.1", self.service.plain), 30) as client:
            client.sendall(self.head("Upgrade: websocket", "Connection: Upgrade",
                                     f"Sec-WebSocket-Key: {KEY}",
                                     "Sec-WebSocket-Version: 13", method="GET"))
            self.assertIn(b" 101 ", client.recv(1000))
            text = command("Nope", "x" * MIB).encode()
            frame = b"\x81\xff" + len(text).to_bytes(8, "big") + bytes(4) + text
            with self.assertRaises(ConnectionError):
                for _ in range(2000):
                    client.sendall(frame)


class Stopping(ServiceTest):
    def test_clients_that_do_not_listen_do_not_hold_up_the_end(self):
        head = f"Host: localhost:{self.service.plain}\r\nUser-Agent: t\r\n"
        with contextlib.ExitStack() as clients:
            for data in (f"POST /qtp/ HTTP/1.1\r\n{head}Content-Length: 5\r\n\r\nab",
                         f"GET / HTTP/1.1\r\n{head}Upgrade: websocket\r\nConnection: Upgrade\r\n"
                         f"Sec-WebSocket-Key: {KEY}\r\nSec-WebSocket-Version: 13\r\n\r\n",
                         f"GET /health HTTP/1.1\r\n{head}\r\n", "POST"):
                client = socket.create_connection(("127.0.0.1", self.service.plain), 30)
                clients.enter_context(client).sendall(data.encode())
                if not data.startswith("POST"):
                    client.recv(100)
            self.service.stop()


if __name__ == "__main__":
    unittest.main()
