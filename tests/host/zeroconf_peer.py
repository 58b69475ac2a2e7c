"""The other host's python-zeroconf. Prints one JSON line for each event.

    browse [ADDRESS]       services of the type that come and go, and what they resolve to; on all
                           interfaces, or on that with the address
    info NAME              what one name resolves to, without browsing
    announce NAME          announces a service until standard input ends
    copy NAME              the same under a name that is another's, with another port
"""
import json
import socket
import sys

from zeroconf import IPVersion, ServiceBrowser, ServiceInfo, Zeroconf

TYPE = "_privet._tcp.local."


def told(info):
    if info is None:
        return None
    return {"server": info.server, "port": info.port, "addresses": info.parsed_addresses(),
            "txt": {key.decode(): (value or b"").decode("latin-1")
                    for key, value in info.properties.items()}}


class Listener:
    def add_service(self, zeroconf, kind, name):
        self.say("add", name, told(zeroconf.get_service_info(kind, name)))

    def update_service(self, zeroconf, kind, name):
        pass

    def remove_service(self, zeroconf, kind, name):
        self.say("remove", name, None)

    @staticmethod
    def say(event, name, info):
        print(json.dumps([event, name, info]), flush=True)


def main():
    what, name = (sys.argv[1:] + [""])[:2]
    if what == "browse" and name:
        zeroconf = Zeroconf(interfaces=[name])
    else:
        zeroconf = Zeroconf(ip_version=IPVersion.All)
    try:
        if what == "browse":
            ServiceBrowser(zeroconf, TYPE, Listener())
            print(json.dumps(["ready", "", None]), flush=True)
        elif what == "info":
            print(json.dumps(told(zeroconf.get_service_info(TYPE, name + "." + TYPE))))
            return
        elif what in ("announce", "copy"):
            zeroconf.register_service(cooperating_responders=what == "copy", info=ServiceInfo(
                TYPE, name + "." + TYPE, port=8443, server="scanner.local.",
                addresses=[socket.inet_aton("10.77.0.2"),
                           socket.inet_pton(socket.AF_INET6, "fd77::2")],
                properties={"type": "twaindirect", "ty": name, "url": "https://scan.example/" + name,
                            "id": "id of " + name, "os": "Linux", "modules": "hvn,qtp",
                            "acessmode": "password_proetect", "txtvers": "1.0", "tags": "blue"}))
            print(json.dumps(["ready", name, None]), flush=True)
        sys.stdin.read()
    finally:
        zeroconf.close()


main()
