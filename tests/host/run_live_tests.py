#!/usr/bin/env python3
"""Tests lineid-host live between network namespaces: run_live_tests.py LINEID_HOST. Needs root.

Two subscribers and a server, each in a namespace of its own, around the access node: s1 - a1 [node] an - v0, s2 - a2.
"""
import ctypes
import os
import pathlib
import re
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "demo"))
import make_capture as make  # noqa: E402

HOST = pathlib.Path(sys.argv[1]).resolve()
DEMO = pathlib.Path(make.__file__).parent
TAG = f"lid{os.getpid()}"
NODE, SERVER, ONE, TWO = (f"{TAG}-{name}" for name in ("node", "srv", "s1", "s2"))
LIMIT = 20  # seconds for anything to arrive
SETTLE = 0.5
FAILED = []
LIBC = ctypes.CDLL(None, use_errno=True)


def check(name, good, detail=""):
    print(("ok    " if good else "FAIL  ") + name + ("" if good else f"\n      {detail}"), flush=True)
    if not good:
        FAILED.append(name)


def equal(name, found, expected):
    check(name, found == expected, f"found    {found!r}\n      expected {expected!r}")


def ip(*arguments, ns=None):
    subprocess.run(["ip", *(["-n", ns] if ns else []), *arguments], check=True, timeout=LIMIT)


def inside(ns, work):
    """Runs `work` in a namespace: sockets stay in the one that they were made in."""
    home = os.open("/proc/self/ns/net", os.O_RDONLY)
    there = os.open(f"/run/netns/{ns}", os.O_RDONLY)
    try:
        assert LIBC.setns(there, 0) == 0
        return work()
    finally:
        LIBC.setns(home, 0)
        os.close(home)
        os.close(there)


def link(ns, name, node_name):
    ip("link", "add", node_name, "netns", NODE, "type", "veth", "peer", "name", name, "netns", ns)
    ip("link", "set", name, "up", "mtu", "1508", ns=ns)
    ip("link", "set", node_name, "up", ns=NODE)


def build():
    for ns in (NODE, SERVER, ONE, TWO):
        ip("netns", "add", ns)
        for scope in ("all", "default"):
            # Quiet: what crosses is what the test sends.
            path = f"/proc/sys/net/ipv6/conf/{scope}/disable_ipv6"
            inside(ns, lambda: pathlib.Path(path).write_text("1"))
    link(SERVER, "v0", "an")
    link(ONE, "s1", "a1")
    link(TWO, "s2", "a2")
    ip("address", "add", "192.0.2.1/24", "dev", "v0", ns=SERVER)
    ip("address", "add", "192.0.2.11/24", "dev", "s1", ns=ONE)


def remove():
    for ns in (NODE, SERVER, ONE, TWO):
        subprocess.run(["ip", "netns", "del", ns], stderr=subprocess.DEVNULL, timeout=LIMIT)
    for path in pathlib.Path("/dev/shm").glob(f"*{TAG}*"):
        path.unlink()


class tap:
    """A raw socket in a namespace."""

    PACKET_AUXDATA, PACKET_IGNORE_OUTGOING, VLAN_VALID = 8, 23, 1 << 4

    def __init__(self, ns, interface):
        def opened():
            raw = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
            raw.bind((interface, 3))
            raw.setsockopt(263, self.PACKET_AUXDATA, 1)
            raw.setsockopt(263, self.PACKET_IGNORE_OUTGOING, 1)
            return raw

        self.raw = inside(ns, opened)

    def send(self, *frames):
        for frame in frames:
            self.raw.send(frame)

    def until(self, last):
        """All frames that come, up to the one that ends with `last`; that one left out."""
        frames, end = [], time.monotonic() + LIMIT
        while time.monotonic() < end:
            if not select.select([self.raw], [], [], 0.1)[0]:
                continue
            frame, control, _, _ = self.raw.recvmsg(70000, 256)
            for _, kind, data in control:
                status, *_, tci, tpid = struct.unpack("IIIHHHH", data)
                if kind == self.PACKET_AUXDATA and status & self.VLAN_VALID:
                    frame = frame[:12] + struct.pack("!HH", tpid, tci) + frame[12:]
            if frame.endswith(last):
                return frames
            frames.append(frame)
        check("a frame arrives", False, f"{last!r} did not come, but {frames!r}")
        return frames


def marker(text, source, destination=make.BROADCAST, vlans=()):
    return make.eth(source, destination, 0x88B5, text.ljust(60, b"."), vlans)


def crossing(sender, receivers, frames, source, settle=0.0):
    """Sends frames, then a marker: what each receiver got before the marker. Frames for the agent take another way and
    need time to settle."""
    text = os.urandom(8) * 8
    sender.send(*frames)
    time.sleep(settle)
    sender.send(make.eth(source, make.BROADCAST, 0x88B5, text))
    return [receiver.until(text) for receiver in receivers]


def udp_checksum_good(frame):
    at = 14
    body = frame[at + 20:]
    length = struct.unpack("!H", body[4:6])[0]
    return make.checksum(frame[at + 12:at + 20] + struct.pack("!HH", 17, length) + body[:length]) == 0


class live_host:
    def __init__(self, lines):
        environment = dict(os.environ, LINE_ID_IPC_PREFIX=TAG)
        self.lines = []
        self.process = subprocess.Popen(
            ["ip", "netns", "exec", NODE, HOST, "live", "--subscriber", "a1,a2", "--uplink", "an", "--lines", lines],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stderr:
            self.lines.append(line.rstrip())

    def says(self, text, times=1):
        """Waits until it has said so: true, or a failed check."""
        end = time.monotonic() + LIMIT
        while sum(text in line for line in self.lines) < times:
            if time.monotonic() > end or self.process.poll() is not None:
                check(f"the host says: {text}", False, self.lines)
                return False
            time.sleep(0.05)
        return True

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.output = self.process.stdout.read()
            return self.process.wait(LIMIT)
        finally:
            self.process.kill()


# ---- tests

MAC_ONE, MAC_TWO = "00:00:5e:00:53:01", "00:00:5e:00:53:02"


def test_refusals():
    def run(*arguments, **options):
        return subprocess.run([HOST, "live", *arguments], capture_output=True, text=True, timeout=LIMIT, **options)

    twice = run("-s", "a1,an", "-u", "an")
    equal("an interface given twice", (twice.returncode, "interface an is given twice" in twice.stderr), (2, True))
    plain = run("-s", "a1", "-u", "an", preexec_fn=lambda: os.setuid(65534))
    equal("without privileges", (plain.returncode, "CAP_NET_RAW" in plain.stderr), (6, True))


def test_bridge(one, two, server):
    equal("a full frame with two tags crosses",
          crossing(two, [server], [marker(b"x" * 1500, MAC_TWO, vlans=(200, 7))], MAC_TWO),
          [[marker(b"x" * 1500, MAC_TWO, vlans=(200, 7))]])
    frames = [marker(b"to two", MAC_ONE, MAC_TWO), marker(b"to all", MAC_ONE)]
    equal("subscribers reach the uplink", crossing(one, [server], frames, MAC_ONE), [frames])
    frame = marker(b"for one", make.SERVER, MAC_ONE)
    equal("and never each other; replies go to one port",
          crossing(server, [one, two], [frame], make.SERVER), [[frame], []])
    for vlans in ((0,), (100,), (200, 7)):
        frame = marker(b"tagged", make.SERVER, vlans=vlans)
        equal(f"VLANs {vlans} cross downstream", crossing(server, [one, two], [frame], make.SERVER), [[frame], [frame]])


def test_offloads():
    listener = inside(SERVER, lambda: socket.create_server(("192.0.2.1", 5000)))
    client = inside(ONE, lambda: socket.create_connection(("192.0.2.1", 5000), LIMIT))
    accepted, _ = listener.accept()
    data = os.urandom(1 << 20)
    for sender, receiver, direction in ((client, accepted, "up"), (accepted, client, "down")):
        receiver.settimeout(LIMIT)
        thread = threading.Thread(target=sender.sendall, args=(data,))
        thread.start()
        received = b""
        while len(received) < len(data) and (part := receiver.recv(1 << 20)):
            received += part
        thread.join()
        check(f"1 MiB of TCP crosses {direction}, offloads on", received == data, len(received))
    # A segmented frame whose outer tag the kernel takes out and the host puts back, with the offsets behind it.
    PACKET_VNET_HDR, NEEDS_CHECKSUM, TCP4 = 15, 1, 1
    payload = os.urandom(20000)
    tcp = struct.pack("!HHIIBBHHH", 1, 2, 0, 0, 0x50, 0x10, 1000, 0, 0) + payload
    addresses = make.ipv4_address("192.0.2.12") + make.ipv4_address("192.0.2.1")
    header = struct.pack("!BBHHHBBH", 0x45, 0, 20 + len(tcp), 1, 0, 64, 6, 0) + addresses
    header = header[:10] + struct.pack("!H", make.checksum(header)) + header[12:]
    frame = make.eth(MAC_TWO, make.SERVER, 0x0800, header + tcp, (200, 7))
    offload = struct.pack("=BBHHHH", NEEDS_CHECKSUM, TCP4, 62, 1400, 42, 16)
    sender, receiver = tap(TWO, "s2"), tap(SERVER, "v0")
    sender.raw.setsockopt(263, PACKET_VNET_HDR, 1)
    sender.send(offload + frame)
    found = receiver.until(payload[-400:])  # the last segment, if it came in several
    check("a segmented frame with two tags crosses whole", found == [], found)
    ping = inside(ONE, lambda: socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP))
    request = struct.pack("!BBHHH", 8, 0, 0, 1, 1)
    ping.sendto(request[:2] + struct.pack("!H", make.checksum(request)) + request[4:], ("192.0.2.1", 0))
    check("a ping is answered", bool(select.select([ping], [], [], LIMIT)[0]))


def test_agent(one, two, server):
    def option82(frame):
        found = re.search(rb"\x52(.)\x01(.)(.*)", frame[282:], re.DOTALL)
        return found.group(3)[:found.group(2)[0]] if found else None

    discover = lambda mac, **options: make.dhcp4_up(mac, make.DISCOVER, **options)
    rows = [("port one", one, MAC_ONE, (), b"demo-olt 3/1/1:4096.4096"),
            ("port two, its own VLANs", two, MAC_TWO, (200, 7), b"demo-olt 3/1/2:200.7"),
            ("port two, the rest", two, MAC_TWO, (200,), b"demo-olt 3/1/3:4096.200")]
    for name, sender, mac, vlans, circuit in rows:
        frames = crossing(sender, [server], [discover(mac, vlans=vlans)], mac, SETTLE)[0]
        equal(f"DISCOVER of {name}", [(frame[:14 + 4 * len(vlans)], option82(frame)) for frame in frames],
              [(discover(mac, vlans=vlans)[:14 + 4 * len(vlans)], circuit)])
    padded = make.pppoe(make.PADI, MAC_ONE, make.BROADCAST, [(0x0101, b"")]).ljust(60, b"\0")
    frames = crossing(one, [server], [padded], MAC_ONE, SETTLE)[0]
    check("a padded PADI gets its tag", len(frames) == 1 and b"demo-olt 3/1/1:4096.4096" in frames[0], frames)

    offer = make.dhcp4_down(MAC_TWO, make.OFFER, "192.0.2.12")
    nobody = make.dhcp4_down("00:00:5e:00:53:99", make.OFFER, "192.0.2.99")
    two.send(marker(b"here", MAC_TWO))
    server.until(b"here".ljust(60, b"."))
    equal("a broadcast OFFER goes to its client alone", crossing(server, [one, two], [offer, nobody], make.SERVER, SETTLE),
          [[], [offer]])
    # The kernel leaves the checksums of its own sockets to the device.
    udp = inside(SERVER, lambda: socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
    udp.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    udp.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"v0")
    inside(SERVER, lambda: udp.bind(("", 67)))
    udp.sendto(make.bootp(2, MAC_TWO, make.OFFER), ("255.255.255.255", 68))
    frames = crossing(server, [two], [], make.SERVER, SETTLE)[0]
    check("its unfinished checksum is finished", len(frames) == 1 and udp_checksum_good(frames[0]), frames)


def test_interfaces(host, one, server):
    ip("link", "del", "a2", ns=NODE)
    host.says("there is no interface a2")
    ip("link", "set", "an", "down", ns=NODE)
    host.says("interface an is down")
    one.send(marker(b"lost", MAC_ONE))
    ip("link", "set", "an", "up", ns=NODE)
    host.says("interface an is up", times=2)
    equal("the uplink is picked up again",
          crossing(one, [server], [marker(b"first", MAC_ONE)], MAC_ONE)[0][-1:], [marker(b"first", MAC_ONE)])
    link(TWO, "s2", "a2")
    host.says("interface a2 is up", times=2)
    frames = crossing(tap(TWO, "s2"), [server], [make.dhcp4_up(MAC_TWO, make.DISCOVER)], MAC_TWO, SETTLE)[0]
    check("a new interface of the same name is taken", len(frames) == 1 and b"demo-olt 3/1/3" in frames[0], frames)


def run_all(folder):
    test_refusals()
    lines = pathlib.Path(folder) / "lines.toml"
    lines.write_text((DEMO / "live.toml").read_text().replace("eth1", "a1").replace("eth2", "a2"))
    build()
    host = live_host(lines)
    try:
        if not host.says("ready") or not host.says(" is up", times=3):
            return
        one, two, server = tap(ONE, "s1"), tap(TWO, "s2"), tap(SERVER, "v0")
        test_bridge(one, two, server)
        test_agent(one, two, server)
        test_offloads()
        test_interfaces(host, one, tap(SERVER, "v0"))
    finally:
        code = host.end()
    equal("SIGTERM ends it", code, 0)
    rows = {row.split()[0]: row.split()[1:] for row in host.output.splitlines() if row.startswith("a")}
    check("what crossed is printed", rows.get("a2", [])[:1] == ["subscriber"] and int(rows["a2"][2]) == 3 and
          "an: 1 dropped: replies to a subscriber that is behind no port" in host.output, host.output)


def main():
    if os.geteuid() != 0:
        print("skipped: network namespaces need root")
        return 77
    try:
        with tempfile.TemporaryDirectory(prefix="lineid-live-") as folder:
            run_all(folder)
    finally:
        remove()
    print(f"\n{len(FAILED)} checks failed" if FAILED else "\nall checks passed")
    return 1 if FAILED else 0


sys.exit(main())
