"""Hostile input: a clear error or a clean close, and the service answers afterwards."""

import asyncio
import concurrent.futures
import contextlib
import pathlib
import re
import unittest

import websockets

from service import SANITIZED, ServiceTest, command, drain, wait_until

MIB = 1024 * 1024
UPGRADE = ("Upgrade: websocket", "Connection: Upgrade", "Sec-WebSocket-Version: 13",
           "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==")


class HostileTest(ServiceTest):
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


class Hostile(HostileTest):
    def test_texts_that_are_no_commands(self):
        deep = "[" * 1001 + "]" * 1001
        for text in ("", "{", "[1,2]", deep, '{"a":' * 1001, '{"method":' + deep + "}",
                     '{"id":{},"method":[],"parameter":5}', "\x01", '{"method":"\\ud800"}',
                     b'{"id":"\xff\xfe","method":"a\xc3","parameter":["\xed\xa0\x80"]}'):
            status, _, body = self.service.request("POST", "/qtp/", text)
            self.assertEqual(status, 200, text[:20])
            self.assertTrue(body.decode("utf-8"))  # a reply is valid whatever came in
        self.assertEqual(self.service.request("POST", "/qtp/", b'{"id":"\0"}')[0], 400)

    def test_texts_beyond_the_limit(self):
        fits = '{"id":"' + "x" * (16 * MIB - 9) + '"}'
        self.assertEqual(self.service.request("POST", "/qtp/", fits)[0], 200)
        self.assertEqual(self.service.request("POST", "/qtp/", fits + " ")[0], 413)
        chunk = b"100000\r\n" + b" " * MIB + b"\r\n"
        chunked = self.head("Transfer-Encoding: chunked")
        for expected, data in (
                (413, self.head(f"Content-Length: {512 * MIB + 1}",
                                path="/LoadZipFromBytes?type=1&")),
                (400, self.head("Content-Length: 99999999999999999999999")),
                (413, chunked + chunk * 17 + b"0\r\n\r\n"),
                (400, chunked + b"1;" + b"x" * MIB),
                (413, self.head(f"Content-Length: {17 * MIB}", "Expect: 100-continue"))):
            self.assertEqual(self.status(data), expected, data[:60])

    def test_the_body_is_invited_when_it_may_come(self):
        text = command("GetLocalIP").encode()
        with self.service.connect() as client:
            client.sendall(self.last(f"Content-Length: {len(text)}", "Expect: 100-continue"))
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
        head = self.head("Content-Length: 999", method="GET", path="/health")
        replies = self.service.raw(head + self.last(method="GET", path="/health"))
        self.assertEqual(replies.count(b"HTTP/1.1 "), 1, "what is no request is not taken for one")

    def test_silent_connections_keep_nobody_away(self):
        async def run():
            async with self.service.ws() as page:
                with contextlib.ExitStack() as many:
                    silent = [many.enter_context(self.service.connect()) for _ in range(300)]
                    for secure in False, True:
                        self.assertEqual(self.service.request("GET", "/health", secure=secure)[0],
                                         200)
                    self.assertEqual(silent[0].recv(1), b"")
                    await page.send(command("GetLocalIP"))
                    self.assertEqual(await page.recv(), "[]", "who was let in stays")
        asyncio.run(run())

    def test_clients_that_go_away(self):
        text = command("GetServerInfo").encode()
        for sent in (b"", b"POST", self.head(f"Content-Length: {len(text)}") + text):
            for _ in range(20):
                with self.service.connect() as client:
                    client.sendall(sent)

        async def run():
            for _ in range(5):
                ws = await self.service.ws()
                for _ in range(100):
                    await ws.send(command("GetServerInfo"))
                ws.transport.abort()
        asyncio.run(run())

    def test_messages_that_are_refused(self):
        async def close_code(message):
            async with self.service.ws() as ws:
                with contextlib.suppress(websockets.ConnectionClosed):
                    await ws.send(message)
                await ws.wait_closed()
                return ws.close_code

        for message, code in ((b"\x01", 1003), ('{"id":"\0"}', 1007), ("x" * (16 * MIB + 1), 1009)):
            self.assertEqual(asyncio.run(close_code(message)), code)


    @unittest.skipIf(SANITIZED, "sanitizers keep what is freed")
    def test_large_commands_leave_no_memory_behind(self):
        status = pathlib.Path(f"/proc/{self.service.process.pid}/status")

        def resident():
            return int(re.search(r"VmRSS:\s+(\d+) kB", status.read_text())[1]) // 1024

        before = resident()
        long = command("Nope", "x" * (15 * MIB))
        many = command("Nope", *[1] * 99_000)
        with concurrent.futures.ThreadPoolExecutor() as pool:
            replies = pool.map(lambda text: self.service.request("POST", "/qtp/", text)[0],
                               [long, many] * 4)
            self.assertEqual(list(replies), [200] * 8)
        wait_until(lambda: resident() < before + 32, "the memory is given back")
        self.assertEqual(self.service.ask("Nope", *[1] * 101_000)["id"], "", "that is too many")


class Silence(HostileTest):
    arguments = ("--idle-timeout", "2")

    def test_requests_that_do_not_end(self):
        s = self.service
        self.assertEqual(self.status(b"POST /qtp/ HT"), 408)
        self.assertEqual(self.status(self.head("Content-Length: 10") + b"12345"), 408)
        self.assertIsNone(self.status(b""))
        self.assertEqual(s.raw(b"\x16\x03", s.secure), b"")
        with s.connect(s.secure) as plain, \
                s.tls().wrap_socket(plain, server_hostname="localhost") as client:
            client.sendall(b"POST /qtp/ HT")
            self.assertTrue(drain(client).startswith(b"HTTP/1.1 408 "))

    def test_clients_that_do_not_read(self):
        big = command("Nope", "x" * MIB).encode()
        request = self.head(f"Content-Length: {len(big)}") + big
        with self.service.connect(timeout=0.5) as client:
            with contextlib.suppress(TimeoutError, ConnectionError):
                while True:  # until the service reads no more of what nobody takes the replies to
                    client.sendall(request)
            self.assert_alive()
        with self.service.connect() as client:
            client.sendall(self.head(*UPGRADE, method="GET"))
            self.assertIn(b" 101 ", client.recv(1000))
            frame = b"\x81\xff" + len(big).to_bytes(8, "big") + bytes(4) + big
            with self.assertRaises(ConnectionError):
                for _ in range(2000):
                    client.sendall(frame)

    def test_a_socket_that_is_silent_but_there_stays(self):
        async def run():
            async with self.service.ws(ping_interval=None) as ws:
                await asyncio.sleep(5)  # more than twice the service's patience, pings are answered
                await ws.send(command("GetLocalIP"))
                self.assertEqual(await ws.recv(), "[]")
        asyncio.run(run())


class Stopping(ServiceTest):
    def test_clients_that_do_not_listen_do_not_hold_up_the_end(self):
        host = f"Host: localhost:{self.service.plain}"
        with contextlib.ExitStack() as clients:
            for lines in (["POST /qtp/ HTTP/1.1", host, "Content-Length: 5", "", "ab"],
                          ["GET / HTTP/1.1", host, *UPGRADE, "", ""],
                          ["GET /health HTTP/1.1", host, "", ""], ["POST"]):
                client = clients.enter_context(self.service.connect())
                client.sendall("\r\n".join(lines).encode())
                if lines[0].startswith("GET"):
                    client.recv(100)
            self.service.stop()


if __name__ == "__main__":
    unittest.main()
