"""The certificate: made on the first start, kept, renewed in time; the operator's is sacred."""

import json
import os
import re
import socket
import ssl
import subprocess
import time
import unittest

from service import Service

MAKER = "Marvique Service (made on this machine)"


def make(service, days, maker, name="server"):
    """A pair as openssl makes it, in the folder of certificates."""
    folder = service.path("cert")
    folder.mkdir(exist_ok=True)
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
         "-nodes", "-keyout", folder / f"{name}_key.pem", "-out", folder / f"{name}.pem",
         "-days", str(days), "-subj", f"/O={maker}/CN=localhost",
         "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1"],
        check=True, capture_output=True)
    return (folder / f"{name}.pem").read_bytes(), (folder / f"{name}_key.pem").read_bytes()


def pair(service):
    return tuple(service.path("cert/" + name).read_bytes()
                 for name in ("server.pem", "server_key.pem"))


class Certificate(unittest.TestCase):
    def assert_serves(self, service):
        with socket.create_connection(("127.0.0.1", service.secure)) as plain, \
                service.tls().wrap_socket(plain, server_hostname="localhost") as client:
            end = ssl.cert_time_to_seconds(client.getpeercert()["notAfter"])
        self.assertEqual(service.ask("GetCertExpiredDate", secure=True),
                         [time.strftime("%Y-%m-%d", time.gmtime(end))])

    def test_first_start_makes_one_that_clients_verify(self):
        with Service() as s:
            s.start()
            self.assert_serves(s)
            for file, mode in (("cert", 0o700), ("cert/server_key.pem", 0o600)):
                self.assertEqual(os.stat(s.path(file)).st_mode & 0o777, mode, file)
            text = subprocess.run(["openssl", "x509", "-noout", "-text", "-in",
                                   s.path("cert/server.pem")],
                                  check=True, capture_output=True, text=True).stdout
            for part in ("DNS:localhost, IP Address:127.0.0.1, IP Address:0:0:0:0:0:0:0:1",
                         "TLS Web Server Authentication", "Digital Signature", "CA:FALSE",
                         "prime256v1"):
                self.assertIn(part, text)
            self.assertIn("cert_name=server.pem\nkey_name=server_key.pem", s.ini.read_text())
            made = pair(s)
            s.stop()
            s.start()
            self.assertEqual(pair(s), made, "kept on the next start")
            os.remove(s.path("cert/server.pem"))
            s.stop()
            s.start()
            self.assert_serves(s)
            self.assertEqual(s.path("cert/server_key.pem.old").read_bytes(), made[1])

    def test_what_was_made_here_is_renewed_when_it_ends_or_is_broken(self):
        for days, spoil in ((20, None), (100, b"no key"), (100, "remove")):
            with self.subTest(days=days, spoil=spoil), Service() as s:
                made = make(s, days, MAKER)
                key = s.path("cert/server_key.pem")
                if spoil == "remove":
                    key.unlink()
                elif spoil:
                    key.write_bytes(spoil)
                os.chmod(s.path("cert/server.pem"), 0o644)
                s.start()
                self.assert_serves(s)
                self.assertNotEqual(pair(s)[0], made[0])
                self.assertEqual(os.stat(key).st_mode & 0o777, 0o600)

    def test_a_good_pair_and_the_operators_are_used_and_not_written(self):
        for days, maker, told in ((40, MAKER, ""), (5, "The operator", "ends on")):
            with self.subTest(maker), Service() as s:
                made = make(s, days, maker)
                s.start()
                self.assert_serves(s)
                self.assertEqual(pair(s), made)
                self.assertIn(told, s.errors())
        with Service("[127.0.0.1]\ncert_name=own.pem\nkey_name=own_key.pem\n") as s:
            make(s, 100, "The operator", "own")
            s.start()
            health = json.loads(s.request("GET", "/health")[2])
            self.assertIn("The operator", health["certificate"]["subject"])
            self.assertFalse(s.path("cert/server.pem").exists())

    def test_an_unusable_pair_of_the_operators_closes_only_the_secure_port(self):
        section = "[127.0.0.1]\ncert_name="
        for settings, spoiled, told in (
                ("", "cert/server_key.pem", "does not belong to"),
                (section + "gone.pem\nkey_name=gone_key.pem\n", None, "cannot be read"),
                (section + "gone.pem\n", None, "names only one of"),
                ("", "cert/server.pem", "no certificate")):
            with self.subTest(told), Service(settings) as s:
                if spoiled:
                    make(s, 100, "The operator")
                    s.path(spoiled).write_text("nonsense")
                before = {f: f.read_bytes() for f in s.folder.glob("cert/*")}
                s.start(expect_secure=False)
                self.assertIn(told, s.errors())
                port = json.loads(s.request("GET", "/health")[2])["ports"][1]
                self.assertEqual(port["actual"], 0)
                self.assertTrue(re.search(told, port["state"]))
                self.assertEqual({f: f.read_bytes() for f in s.folder.glob("cert/*")}, before)


if __name__ == "__main__":
    unittest.main()
