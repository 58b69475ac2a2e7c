"""Ports: chosen, stored, moved by a restart, in use by another program."""

import contextlib
import fcntl
import socket
import unittest
from concurrent.futures import ThreadPoolExecutor

from service import Service, ServiceTest, command, wait_until


def taken_port():
    return socket.create_server(("127.0.0.1", 0))


def number(taken):
    return taken.getsockname()[1]


def free_port():
    with taken_port() as probe:
        return number(probe)


class Ports(ServiceTest):
    settings = "[QV]\nPort=1\nPort_mn_0=hvn\nPort_mp_0=20100\n"

    def move(self, plain, secure):
        """Stores new ports and restarts; the reply to the restart still comes on the old one."""
        s = self.service
        s.ask("SetServerInfo", "", plain, secure, 20100, 20101)
        self.assertEqual(s.ask("Reboot")["result"], [True])
        s.plain, s.secure = s.listening("http", 2), s.listening("https", 2)
        self.assertEqual((s.plain, s.secure), (plain, secure))
        self.assertEqual(self.stored(), [plain, secure, 20100, 20101])

    def stored(self):
        info = self.service.ask("GetServerInfo")
        return [int(info[name][kind]) for name in ("qtp", "hvn") for kind in ("port", "sslPort")]

    def test_reboot_moves_to_the_stored_ports(self):
        s = self.service
        before = [s.plain, s.secure]
        self.assertEqual(self.stored(), before + [20100, -1])
        old = s.http()
        old.connect()
        self.move(free_port(), free_port())
        self.assertEqual(s.request("GET", "/health", secure=True)[0], 200)
        for port in before:
            self.assertRaises(ConnectionRefusedError, s.connect, port)
        old.request("GET", "/health")
        self.assertEqual(old.getresponse().status, 200, "open connections live on")
        old.close()

    def test_ports_change_places(self):
        self.move(self.service.secure, self.service.plain)

    def test_ports_that_are_set_right_after_a_restart_stay_set(self):
        s = self.service
        for number_of_lines in range(2, 42):
            first, last = ([free_port(), free_port(), 20100, 20101] for _ in range(2))
            # One open connection for all three: a new one could meet the old port as it closes.
            with s.session() as ask:
                ask("SetServerInfo", "", *first)
                ask("Reboot")
                ask("SetServerInfo", "", *last)
            # The new ports are told when all is done, and each of them is one that was asked for.
            s.plain = s.listening("http", number_of_lines)
            s.secure = s.listening("https", number_of_lines)
            self.assertIn([s.plain, s.secure], (first[:2], last[:2]))
            self.assertEqual(self.stored(), last)

    def test_commands_that_hang_hold_up_neither_pages_nor_a_restart(self):
        s = self.service
        plain = free_port()
        s.ask("SetServerInfo", "", plain, s.secure, 20100, 20101)
        with open(s.path(".QVConfiguration.ini.lock")) as lock, ThreadPoolExecutor(9) as pool:
            fcntl.flock(lock, fcntl.LOCK_EX)  # a write of a setting waits four seconds for it
            text = command("SetmDNSService", False, "", "", False, False, False, 0, False, "")

            def hang(count):
                hanging.extend(pool.submit(s.request, "POST", "/qtp/", text) for _ in range(count))
                wait_until(lambda: s.health()["connections"] > len(hanging), "they came in")
            hanging = []
            hang(2)
            s.ask("Reboot")
            s.plain = plain
            wait_until(self.answers, "the new port is open")
            hang(7)  # more than there are workers
            self.assertEqual(s.ask("GetLocalIP"), [])
            self.assertFalse([one for one in hanging if one.done()], "they do not hang any more")
            fcntl.flock(lock, fcntl.LOCK_UN)
            for one in hanging:
                self.assertEqual(one.result()[0], 200)

    def answers(self):
        with contextlib.suppress(ConnectionRefusedError):
            return self.service.health()

    def test_a_port_that_cannot_be_had_leaves_the_old_one(self):
        s = self.service
        with taken_port() as taken:
            s.ask("SetServerInfo", "", number(taken), s.secure, 20100, 20101)
            s.ask("Reboot")
            wait_until(lambda: str(number(taken)) in s.errors(), "it says which port is taken")
            wait_until(lambda: self.stored()[:2] == [s.plain, s.secure], "the truth is stored")
            port = s.health()["ports"][0]
            self.assertEqual((port["requested"], port["actual"]), (number(taken), s.plain))
            self.assertIn("in use", port["state"])


class PortsAtStart(unittest.TestCase):
    def test_ports_in_use(self):
        with taken_port() as other, Service(arguments=()) as s:
            taken = str(number(other))
            s.start("--port", taken, "--ssl-port", "0", expect_plain=False)
            self.assertEqual(s.request("GET", "/health", secure=True)[0], 200)
            self.assertIn(f"Port {taken} cannot be opened: Address already in use", s.errors())
            s.stop()
            s.start("--port", taken, "--ssl-port", taken, expect_plain=False, expect_secure=False)
            s.finish(1)
            self.assertIn("listens nowhere", s.errors())

    def test_stored_ports_are_used_again_and_nonsense_is_not(self):
        port = free_port()
        settings = f"[QV]\nPort=1\nPort_mn_0=qtp\nPort_mp_0=70000\n" \
                   f"SSLPort=1\nSSLPort_mn_0=qtp\nSSLPort_mp_0={port}\n"
        with Service(settings, arguments=()) as s:
            s.start(expect_plain=False)  # the module's own port may be in use here
            self.assertIn("70000, is no port number", s.errors())
            s.stop()
            s.start("--port", "0")
            first = s.plain
            s.stop()
            s.start()
            self.assertEqual((s.plain, s.secure), (first, port))

    def test_arguments_that_cannot_be(self):
        for argument, value, code, told in (
                ("--module", "/dev/null", 1, "/dev/null cannot be loaded"),
                ("--port", "65536", 2, "--port takes a number from 0 to 65535"),
                ("--idle-timeout", "0", 2, "--idle-timeout takes seconds from 1 to 86400")):
            with self.subTest(argument), Service(arguments=(argument, value)) as s:
                s.start(expect_plain=False, expect_secure=False)
                s.finish(code)
                self.assertIn(told, s.errors())


if __name__ == "__main__":
    unittest.main()
