#!/usr/bin/python3
"""Unicast answers of this service beside those of an Avahi daemon on the same link: how many of a
flow of questions are answered, how long that takes, and how much processor time it costs. Both run
on one host, the questions come from another: two network namespaces that the script makes."""

import os
import pathlib
import sys
import time

TOP = pathlib.Path(__file__).resolve().parent.parent
os.environ.setdefault("QV_BIN", str(TOP / "build/bench/bin"))
os.environ.setdefault("QV_MODULE", "libqtp.so")
sys.path.insert(0, str(TOP / "tests/host"))

import namespaces  # noqa: E402
from service import Service, command  # noqa: E402

SECONDS = 2


def processor_seconds(pid):
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((task / "schedstat").read_text().split()[0])
    return total / 1e9


def measure(service_first):
    with namespaces.this_host() as host, namespaces.peer() as peer, Service() as service:
        if not service_first:
            avahi_environment = host.start_avahi()
        service.ini.write_text("[QV]\nmDNSAnswersPerSecond=10000000\n")  # one source gets a fiftieth
        service.start()
        service.request("POST", "/qtp/", command(
            "SetmDNSService", True, "Bench", "", False, False, False, 0, False, ""))
        guid = next(line.split("=")[1] for line in service.ini.read_text().splitlines()
                    if line.startswith("ServiceGuid="))
        if service_first:
            time.sleep(SECONDS)  # until its sockets are open
            avahi_environment = host.start_avahi()
        own_name = host.output("avahi-resolve", "-a", namespaces.OWN, env=avahi_environment)
        responders = [("this service", guid + ".local.", service.process.pid),
                      ("Avahi", own_name.split()[1] + ".", host.avahi.pid)]
        for count in (2000, 10000, 30000):
            for who, name, pid in responders:
                before = processor_seconds(pid)
                sent, answered, median, slow = peer.output(
                    os.environ["QV_BIN"] + "/qv_mdns_load", name, str(count), str(SECONDS)).split()
                spent = processor_seconds(pid) - before
                print(f"{sent:>15}       {who:<12} {answered:>10} {median:>6} µs {slow:>5} µs "
                      f"{spent:>8.3f} s", flush=True)
                time.sleep(2)


def main():
    namespaces.enter()
    for service_first in (False, True):
        # Who opened its socket first is handed each packet first, so both take their turn.
        print(f"{'This service' if service_first else 'Avahi'} was started first.\n"
              f"questions in {SECONDS} s   responder      answered   median     99 %   processor")
        measure(service_first)


main()
