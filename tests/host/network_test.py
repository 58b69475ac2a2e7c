"""Discovery on a real link: other implementations find the service, and it finds theirs."""

import calendar
import json
import os
import queue
import re
import socket
import struct
import subprocess
import threading
import time
import unittest

import namespaces
from namespaces import wait_for
from service import Service, command

TYPE = "_privet._tcp.local."
GROUP = ("224.0.0.251", 5353)


class Events:
    """The lines of a peer's program as they come, with their time."""

    def __init__(self, process):
        self.lines = queue.Queue()
        threading.Thread(target=self.read, args=(process.stdout,), daemon=True).start()

    def read(self, stream):
        for line in stream:
            self.lines.put((time.monotonic(), json.loads(line)))

    def next(self, event, name="", patience=40):
        """The next event of a kind about a name: when it came, and what it tells."""
        end = time.monotonic() + patience
        while (left := end - time.monotonic()) > 0:
            try:
                when, (kind, about, info) = self.lines.get(timeout=left)
            except queue.Empty:
                break
            if kind == event and about.startswith(name):
                return when, info
        raise AssertionError(f"no {event} of {name}")


class Network(unittest.TestCase):
    def setUp(self):
        self.peer = namespaces.peer()
        self.addCleanup(self.peer.__exit__)
        self.service = Service("[QV]\nLogLevel=14\n")
        self.addCleanup(lambda: self.service.__exit__(None))

    def browse(self):
        events = Events(self.peer.python("zeroconf_peer.py", "browse"))
        events.next("ready")
        return events

    def tell(self, *words):
        """A command with an empty reply."""
        self.assertEqual(self.service.request("POST", "/qtp/", command(*words))[::2], (200, b""))

    def advertise(self, on, alias="Desk", tags="red"):
        self.tell("SetmDNSService", on, alias, tags, False, False, False, 1, True, "secret")

    def guid(self):
        return [line.split("=")[1] for line in self.service.ini.read_text().splitlines()
                if line.startswith("ServiceGuid=")][0]

    def asked_by_name(self):
        """What the service is without browsing."""
        peer = self.peer.python("zeroconf_peer.py", "info", self.guid())
        return json.loads(peer.communicate()[0])

    def services(self):
        return json.loads(self.service.request("GET", "/services")[2])

    def test_others_find_the_service_and_notice_that_it_goes(self):
        this_host = namespaces.this_host()
        self.addCleanup(this_host.__exit__)
        this_host.start_avahi()  # holds the port, too
        avahi = self.peer.start_avahi()
        capture = self.peer.capture("other")
        s = self.service.start()
        events = self.browse()
        begun = time.monotonic()
        self.advertise(True)
        when, info = events.next("add")
        self.assertLess(when - begun, 2)  # a second, and one for a busy machine
        guid = self.guid()
        txt = {"id": guid, "ty": "Desk", "txtvers": "1.0", "url": "", "type": "\2", "os": "Linux",
               "modules": "qtp", "acessmode": "\1"}
        self.assertEqual(info.pop("txt") | {"tags": ""}, txt | {"tags": ""})
        self.assertIn(namespaces.OWN, info["addresses"])
        self.assertTrue(any(":" in address for address in info["addresses"]), info)
        self.assertEqual((info["server"], info["port"]), (guid + ".local.", s.secure))

        found = self.peer.output("avahi-browse", "-rpt", "_privet._tcp", env=avahi)
        for family in ("IPv4", "IPv6"):
            line = [x for x in found.splitlines() if x.startswith(f"=;other;{family};{guid};")]
            self.assertEqual(len(line), 1, found)
            self.assertIn(f";{guid}.local;", line[0])
            self.assertIn(f";{s.secure};", line[0])
            self.assertIn('"ty=Desk"', line[0])
        address = self.peer.output("avahi-resolve", "-4", "-n", guid + ".local", env=avahi)
        self.assertIn(namespaces.OWN, address)
        by_name = self.asked_by_name()
        self.assertEqual(by_name["txt"], txt | {"tags": "red"})
        self.assertEqual(by_name["port"], s.secure)

        s.stop()
        events.next("remove", guid)
        s.start()
        self.assertEqual(events.next("add", guid)[1]["port"], s.secure)
        self.advertise(False)
        events.next("remove", guid)

        for family in ("ip.src==" + namespaces.OWN, "ipv6"):
            for ttl in (60, 0):
                wanted = f"{family} && dns.resp.name=={guid}.local && dns.resp.ttl=={ttl}"
                wait_for(lambda: capture.packets(wanted), "there is " + wanted)
        capture.end()
        self.assertEqual(capture.packets("_ws.malformed"), [])

    def test_interfaces_and_settings_are_followed(self):
        self.service.start()
        self.advertise(True)
        events = self.browse()
        events.next("add")
        namespaces.second_cable()
        Events(self.peer.python("zeroconf_peer.py", "browse", "10.78.0.2")).next("add", patience=8)
        namespaces.remove_second_cable()
        self.assertIn(namespaces.OWN, self.asked_by_name()["addresses"])

        # Without any link nothing gives up, and all is there again when one comes back.
        namespaces.run("ip", "link", "set", "own", "down")
        time.sleep(3)  # the service looks every second
        namespaces.run("ip", "link", "set", "own", "up")
        Events(self.peer.python("zeroconf_peer.py", "browse")).next("add", patience=15)

        self.service.set("Service_alias", "Table")
        wait_for(lambda: self.asked_by_name()["txt"]["ty"] == "Table", "it tells the new alias")

    def test_it_announces_twice_and_again_when_the_carrier_returns(self):
        capture = self.peer.capture("other")
        self.service.start()
        self.advertise(True)
        announced = (f"ip.src=={namespaces.OWN} && dns.resp.ttl==60 && dns.resp.cache_flush==1 && "
                     "dns.count.answers==1")

        def times(count):
            packets = capture.packets(announced)
            return [float(x.split()[1]) for x in packets] if len(packets) >= count else None
        first, second = wait_for(lambda: times(2), "it is announced twice")[:2]
        self.assertTrue(0.9 < second - first < 1.5, (first, second))
        # The other end of a cable is the carrier of this one. It is away for less than the second
        # after which the service looks again.
        other = os.environ["QV_OTHER_NAMESPACE"]
        namespaces.run("ip", "-n", other, "link", "set", "other", "down")
        namespaces.run("ip", "-n", other, "link", "set", "other", "up")
        wait_for(lambda: times(4), "it is announced twice more")

        # After a change of address the old one is not announced.
        namespaces.run("ip", "addr", "del", namespaces.OWN + "/24", "dev", "own")
        namespaces.run("ip", "addr", "add", "10.77.0.3/24", "dev", "own")
        self.addCleanup(namespaces.run, "ip", "addr", "add", namespaces.OWN + "/24", "dev", "own",
                        check=False)
        self.addCleanup(namespaces.run, "ip", "addr", "del", "10.77.0.3/24", "dev", "own",
                        check=False)
        moved = "ip.src==10.77.0.3 && dns.resp.ttl==60"
        wait_for(lambda: len(capture.packets(moved)) >= 2, "the new address is announced")
        capture.end()
        self.assertEqual(capture.packets(f"{moved} && dns.a=={namespaces.OWN}"), [])

    def ask(self, name, kind, source=namespaces.OTHER, port=0, unicast=False, count=1):
        """The packets that come back to one asker within a second after the last."""
        labels = b"".join(bytes([len(x)]) + x.encode() for x in name.rstrip(".").split("."))
        question = (struct.pack(">6H", 7, 0, 1, 0, 0, 0) + labels + b"\0" +
                    struct.pack(">HH", kind, 0x8001 if unicast else 1))
        script = (f"import socket; s = socket.socket(type=socket.SOCK_DGRAM); s.settimeout(2)\n"
                  f"s.setsockopt(0, socket.IP_MULTICAST_IF, socket.inet_aton('{source}'))\n"
                  f"s.bind(('{source}', {port}))\n"
                  f"for _ in range({count}): s.sendto({question!r}, {GROUP})\n"
                  f"try:\n"
                  f"  while True: print(s.recv(2048).hex())\n"
                  f"except TimeoutError: pass")
        return self.peer.output("/usr/bin/python3", "-c", script).split()

    def test_askers_of_any_kind_are_answered_within_bounds(self):
        capture = self.peer.capture("other")
        self.service.start()
        self.advertise(True)
        announced = f"ip.src=={namespaces.OWN} && dns.resp.ttl==60 && dns.resp.cache_flush==1"
        wait_for(lambda: len(capture.packets(announced)) >= 2, "it is announced")
        host = self.guid() + ".local."
        # A simple resolver, which does not hear the group: its own question, ten seconds.
        answer = bytes.fromhex(self.ask(host, 1)[0])
        self.assertEqual(struct.unpack(">6H", answer[:12]), (7, 0x8400, 1, 1, 0, 0))
        self.assertEqual(answer[-14:-4], struct.pack(">HHIH", 1, 1, 10, 4))
        # A neighbour of another subnet on the same link.
        other = os.environ["QV_OTHER_NAMESPACE"]
        namespaces.run("ip", "-n", other, "addr", "add", "192.168.55.2/24", "dev", "other")
        self.addCleanup(namespaces.run, "ip", "-n", other, "addr", "del", "192.168.55.2/24", "dev",
                        "other")
        self.assertEqual(len(self.ask(host, 1, source="192.168.55.2", unicast=True)), 1)
        # A flood of one asker, which takes less than three seconds.
        self.assertLessEqual(len(self.ask(host, 255, unicast=True, count=2000)), 300)
        self.assertEqual(len(self.ask(host, 1)), 1)
        capture.end()
        self.assertEqual(capture.packets("_ws.malformed"), [])

    def test_it_tells_what_runs_and_why_not(self):
        s = self.service.start()
        self.assertEqual(self.services()["advertising_problem"], "It is switched off.")
        holder = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)  # of both families, for itself
        with holder:
            holder.bind(("::", 5353))
            self.advertise(True)
            told = wait_for(lambda: (x := self.services())["advertising_problem"] not in
                            ("It is starting.",) and x, "it tells the problem")
            self.assertFalse(told["advertising"])
            self.assertRegex(told["advertising_problem"], "port 5353 .*: Address already in use")
        wait_for(lambda: self.services()["advertising"], "it is advertised when the port is free")
        self.assertNotIn("same_name", self.services())

        # A copy of this machine, with its name.
        guid = self.guid()
        fake = self.peer.python("zeroconf_peer.py", "copy", guid)
        rival = wait_for(lambda: self.services().get("same_name"), "the other one is noticed")
        # By either family: over IPv6 packets come from an address of the link.
        self.assertRegex(rival["address"], rf"^({re.escape(namespaces.OTHER)}|fe80:.*)$")
        fake.stdin.close()
        s.stop()

    def test_it_lists_what_others_announce_until_they_are_gone(self):
        avahi = self.peer.start_avahi()
        publish = self.peer.start("avahi-publish", "-s", "Copier", "_privet._tcp", "8080",
                                  "type=TwainDirect", "ty=Copier", "url=http://copier",
                                  env=avahi, stderr=subprocess.DEVNULL)
        scanner = self.peer.python("zeroconf_peer.py", "announce", "Scanner")
        Events(scanner).next("ready")
        s = self.service.start()
        self.tell("SetmDNSQueryService", True, "", 0, 0, "", "")
        begun = time.time()
        s.stop()
        s.start()

        def both():
            found = {item["name"]: item for item in self.services()["services"]}
            return found if {"Scanner", "Copier"} <= found.keys() else None
        found = wait_for(both, "both are listed", 60)
        seen = found["Scanner"].pop("last_seen")
        seen = calendar.timegm(time.strptime(seen, "%Y-%m-%dT%H:%M:%SZ"))
        self.assertTrue(begun - 1 < seen < time.time() - 8, "a list follows ten silent seconds")
        self.assertEqual(found["Scanner"], {
            "name": "Scanner", "kind": "twaindirect", "id": "id of Scanner", "os": "Linux",
            "url": "https://scan.example/Scanner", "ipv4": namespaces.OTHER,
            "ipv6": namespaces.OTHER6, "modules": "hvn,qtp", "password_protected": True,
            "text_version": "1.0"})
        # Avahi answers each record by itself, which makes each a service of its own.
        copier = found["Copier"]
        self.assertEqual((copier["kind"], copier["url"], copier["ipv4"]),
                         ("twaindirect", "http://copier", ""))

        scanner.stdin.close()
        self.peer.end(scanner)
        self.peer.end(publish)
        wait_for(lambda: self.services()["services"] == [], "they are gone", 60)
        self.tell("SetmDNSQueryService", False, "", 0, 0, "", "")
        self.assertFalse(self.services()["browsing"])


if __name__ == "__main__":
    namespaces.enter()
    unittest.main()
