"""The certificate: made on the first start, kept, renewed in time; the operator's is sacred."""

import os
import ssl
import subprocess
import time
import unittest

from service import Service

MAKER = "Marvique Service (made on this machine)"
NAMED = "[127.0.0.1]\ncert_name=own.pem\n"


def make(service, days, maker, name="server"):
    """A pair as openssl makes it, in the folder of certificates, and all files there."""
    folder = service.path("cert")
    folder.mkdir(exist_ok=True)
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
         "-nodes", "-keyout", folder / f"{name}_key.pem", "-out", folder / f"{name}.pem",
         "-days", str(days), "-subj", f"/O={maker}/CN=localhost",
         "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1"],
        check=True, capture_output=True)
    return files(service)


def files(service):
    return {f.name: f.read_bytes() for f in service.folder.glob("cert/*")}


class Certificate(unittest.TestCase):
    def assert_serves(self, service):
        with service.connect(service.secure) as plain, \
                service.tls().wrap_socket(plain, server_hostname="localhost") as client:
            end = ssl.cert_time_to_seconds(client.getpeercert()["notAfter"])
        self.assertEqual(service.ask("GetCertExpiredDate", secure=True),
                         [time.strftime("%Y-%m-%d", time.gmtime(end))])
        self.assertEqual(os.stat(service.path("cert/server_key.pem")).st_mode & 0o777, 0o600)

    def test_first_start_makes_one_that_clients_verify(self):
        with Service() as s:
            s.start()
            self.assert_serves(s)
            self.assertEqual(os.stat(s.path("cert")).st_mode & 0o777, 0o700)
            text = subprocess.run(["openssl", "x509", "-noout", "-text", "-in",
                                   s.path("cert/server.pem")],
                                  check=True, capture_output=True, text=True).stdout
            for part in ("DNS:localhost, IP Address:127.0.0.1, IP Address:0:0:0:0:0:0:0:1",
                         "TLS Web Server Authentication", "Digital Signature", "CA:FALSE",
                         "prime256v1"):
                self.assertIn(part, text)
            self.assertIn("cert_name=server.pem\nkey_name=server_key.pem", s.ini.read_text())
            made = files(s)
            s.stop()
            s.start()
            self.assertEqual(files(s), made, "kept on the next start")
            os.remove(s.path("cert/server.pem"))
            s.stop()
            s.start()
            self.assert_serves(s)
            self.assertEqual(files(s)["server_key.pem.old"], made["server_key.pem"])

    def test_what_was_made_here_is_renewed_when_it_ends_or_is_broken(self):
        for days, spoil in ((20, None), (100, b"no key"), (100, "remove"), (40, "nothing")):
            with self.subTest(days=days, spoil=spoil), Service() as s:
                made = make(s, days, MAKER)
                key = s.path("cert/server_key.pem")
                if spoil == "remove":
                    key.unlink()
                elif spoil == b"no key":
                    key.write_bytes(spoil)
                s.start()
                self.assert_serves(s)
                self.assertEqual(files(s) == made, spoil == "nothing")

    def test_the_operators_is_used_and_not_written(self):
        for settings, name in (("", "server"), (NAMED + "key_name=own_key.pem\n", "own")):
            with self.subTest(name), Service(settings) as s:
                made = make(s, 5, "The operator", name)
                s.start()
                self.assertIn("The operator", s.health()["certificate"]["subject"])
                self.assertEqual(files(s), made)
                self.assertIn("ends on", s.errors())

    def test_an_unusable_pair_of_the_operators_closes_only_the_secure_port(self):
        for settings, spoiled, told in (
                ("", "cert/server_key.pem", "does not belong to"),
                (NAMED + "key_name=own_key.pem\n", None, "cannot be read"),
                (NAMED, None, "names only one of"),
                ("", "cert/server.pem", "no certificate")):
            with self.subTest(told), Service(settings) as s:
                made = make(s, 100, "The operator")
                if spoiled:
                    s.path(spoiled).write_text("nonsense")
                    made = files(s)
                s.start(expect_secure=False)
                self.assertIn(told, s.errors())
                port = s.health()["ports"][1]
                self.assertEqual(port["actual"], 0)
                self.assertIn(told, port["state"])
                self.assertEqual(files(s), made)


if __name__ == "__main__":
    unittest.main()
