"""Two hosts on one machine: network namespaces joined by a cable, made and removed by the test.

A script calls `enter` first: it runs again inside a namespace that stands for this machine, or ends
with a plain message where the rights for that are missing. `Peer` then is the other host."""

import contextlib
import os
import shutil
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

SKIPPED = 77
OWN, OTHER = "10.77.0.1", "10.77.0.2"
OWN6, OTHER6 = "fd77::1", "fd77::2"


def run(*words, check=True):
    return subprocess.run(words, check=check, capture_output=True, text=True)


def enter():
    """In the namespace of this machine: its end of the cable is `own`."""
    if os.environ.get("QV_NAMESPACE"):
        return
    here, there = f"qv{os.getpid()}a", f"qv{os.getpid()}b"
    if not shutil.which("ip") or run("ip", "netns", "add", here, check=False).returncode != 0:
        print("Skipped: this test needs the right to make network namespaces.")
        sys.exit(SKIPPED)
    try:
        run("ip", "netns", "add", there)
        connect(here, there, "own", "other", OWN, OTHER, OWN6, OTHER6)
        for name in (here, there):
            run("ip", "-n", name, "link", "set", "lo", "up")
        inside = {**os.environ, "QV_NAMESPACE": here, "QV_OTHER_NAMESPACE": there}
        sys.exit(subprocess.run(
            ["ip", "netns", "exec", here, sys.executable, "-B", *sys.argv], env=inside).returncode)
    finally:
        for name in (here, there):
            run("ip", "netns", "del", name, check=False)


def connect(here, there, own, other, own4, other4, own6, other6):
    run("ip", "link", "add", own, "netns", here, "type", "veth", "peer", "name", other,
        "netns", there)
    for name, end, ipv4, ipv6 in ((here, own, own4, own6), (there, other, other4, other6)):
        run("ip", "-n", name, "addr", "add", f"{ipv4}/24", "dev", end)
        run("ip", "-n", name, "addr", "add", f"{ipv6}/64", "dev", end, "nodad")
        run("ip", "-n", name, "link", "set", end, "up")


def second_cable():
    """A further network that this machine joins, with the ends `own2` and `other2`."""
    connect(os.environ["QV_NAMESPACE"], os.environ["QV_OTHER_NAMESPACE"], "own2", "other2",
            "10.78.0.1", "10.78.0.2", "fd78::1", "fd78::2")


def remove_second_cable():
    run("ip", "link", "del", "own2")


class Host:
    """Programs in one of the namespaces; those still running end with the context."""

    def __init__(self, namespace):
        self.prefix = ["ip", "netns", "exec", namespace]
        self.stack = contextlib.ExitStack()
        self.folder = pathlib.Path(self.stack.enter_context(
            tempfile.TemporaryDirectory(prefix="qv_peer_", ignore_cleanup_errors=True)))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stack.close()

    def start(self, *words, **more):
        process = subprocess.Popen([*self.prefix, *words], text=True, **more)
        self.stack.callback(self.end, process)
        return process

    @staticmethod
    def end(process, how=signal.SIGTERM):
        if process.poll() is None:
            process.send_signal(how)
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        for stream in (process.stdin, process.stdout, process.stderr):
            if stream is not None:
                stream.close()

    def output(self, *words, env=None, timeout=60):
        return subprocess.run([*self.prefix, *words], env=env, check=True, capture_output=True,
                              text=True, timeout=timeout).stdout

    def python(self, script, *words):
        """A script beside this one, whose lines are read as they come."""
        path = pathlib.Path(__file__).with_name(script)
        return self.start(sys.executable, "-B", "-u", path, *words, stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE)

    def start_avahi(self):
        """An Avahi daemon with a bus of its own. Returns the environment for its programs."""
        bus = self.folder / "bus"
        (self.folder / "bus.conf").write_text(
            f"<busconfig><type>system</type><listen>unix:path={bus}</listen>"
            "<auth>EXTERNAL</auth><policy context='default'><allow send_destination='*'/>"
            "<allow receive_sender='*'/><allow own='*'/><allow user='*'/></policy></busconfig>")
        (self.folder / "avahi.conf").write_text(
            "[server]\nuse-ipv4=yes\nuse-ipv6=yes\nratelimit-burst=1000\n"
            "[publish]\npublish-workstation=no\n")
        environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={bus}"}
        self.start("dbus-daemon", f"--config-file={self.folder}/bus.conf", "--nofork",
                   "--nopidfile", stderr=subprocess.DEVNULL)
        wait_for(bus.exists, "the bus is there")
        # The daemon's own folder is fixed; each host has its own one.
        self.avahi = self.start(
            "sh", "-c", "mount -t tmpfs none /run/avahi-daemon && exec avahi-daemon "
            f"-f {self.folder}/avahi.conf --no-drop-root --no-chroot --no-rlimits",
            env=environment, stderr=subprocess.DEVNULL)
        wait_for(lambda: subprocess.run(
            [*self.prefix, "avahi-browse", "-t", "_none._tcp"], env=environment,
            capture_output=True).returncode == 0, "Avahi answers")
        return environment

    def capture(self, interface):
        """Records the packets of multicast DNS."""
        file = self.folder / f"{interface}.pcap"
        process = self.start("dumpcap", "-q", "-i", interface, "-f", "udp port 5353", "-w", file,
                             stderr=subprocess.PIPE)
        while "Capturing on" not in process.stderr.readline():
            assert process.poll() is None, "the capture does not start"
        return Capture(file, process)


def peer():
    os.makedirs("/run/avahi-daemon", exist_ok=True)
    return Host(os.environ["QV_OTHER_NAMESPACE"])


def this_host():
    os.makedirs("/run/avahi-daemon", exist_ok=True)
    return Host(os.environ["QV_NAMESPACE"])


def wait_for(condition, what, patience=30):
    end = time.monotonic() + patience
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        time.sleep(0.05)
    raise AssertionError("waited in vain until " + what)


class Capture:
    """Packets on their way into a file, which they reach a while later."""

    def __init__(self, file, process):
        self.file, self.process = file, process

    def packets(self, wanted):
        """Those that a filter of tshark's lets pass, a line each."""
        running = self.process.poll() is None
        done = subprocess.run(["tshark", "-r", self.file, "-Y", wanted], capture_output=True,
                              text=True)
        assert done.returncode == 0 or running, done.stderr
        return done.stdout.splitlines()

    def end(self):
        Host.end(self.process, signal.SIGINT)
