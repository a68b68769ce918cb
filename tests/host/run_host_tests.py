#!/usr/bin/env python3
"""Tests lineid-host from the outside: run_host_tests.py LINEID_HOST. Prints each check; fails when one does."""
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading

DEMO = pathlib.Path(__file__).resolve().parents[2] / "demo"
sys.dont_write_bytecode = True
sys.path.insert(0, str(DEMO))
import make_capture as make  # noqa: E402

HOST = pathlib.Path(sys.argv[1]).resolve()
FOLDER = pathlib.Path(tempfile.mkdtemp(prefix="lineid-host-"))
OUT = FOLDER / "out.pcap"
CLIENT = "00:00:5e:00:53:01"
FAILED = []

ALL_ON = "option82 = true\noption18 = true\noption37 = true\npppoe_plus = true\nremote_id = true\n"
LINES = '[device]\nolt_slot = 1\n[[instance]]\n' + ALL_ON + '[[line]]\ndefault = true\nonu_id = "o1"\n'


def check(name, good, detail=""):
    print(("ok    " if good else "FAIL  ") + name + ("" if good else f"\n      {detail}"))
    if not good:
        FAILED.append(name)


def equal(name, found, expected):
    check(name, found == expected, f"found    {found!r}\n      expected {expected!r}")


def store(name, data):
    path = FOLDER / name
    path.write_bytes(data.encode() if isinstance(data, str) else data)
    return path


def host(*arguments, **options):
    return subprocess.run([HOST, *map(str, arguments)], capture_output=True, text=True, timeout=240, **options)


def read_pcap(path):
    """Frames as (nanoseconds, octets)."""
    data = path.read_bytes()
    assert struct.unpack("<I", data[:4])[0] == 0xA1B23C4D, "not a nanosecond pcap"
    frames, at = [], 24
    while at < len(data):
        seconds, nanoseconds, length, _ = struct.unpack("<IIII", data[at:at + 16])
        frames.append((seconds * 10**9 + nanoseconds, data[at + 16:at + 16 + length]))
        at += 16 + length
    return frames


def replay(frames, *arguments, lines=LINES):
    """Replays frames (or a whole capture file); gives the frames written, the JSON lines and standard error."""
    capture = store("in.pcap", frames if isinstance(frames, bytes) else make.pcap(frames))
    OUT.unlink(missing_ok=True)
    run = host("replay", capture, "-o", OUT, "--lines", store("lines.toml", lines), "--json", *arguments)
    if run.returncode != 0:
        check("replay", False, run.stderr)
        return [], [{}], run.stderr
    return read_pcap(OUT), [json.loads(line) for line in run.stdout.splitlines()], run.stderr


def verdicts(frames, *arguments, **options):
    return [(line["direction"], line["verdict"]) for line in replay(frames, "-v", *arguments, **options)[1][:-1]]


# ---- refusals

def refused(name, code, words, arguments, **options):
    run = host(*arguments, **options)
    absent = [word for word in words if word not in run.stderr]
    check(f"refused: {name}", run.returncode == code and not absent and "Traceback" not in run.stderr,
          f"exit code {run.returncode}, lacking {absent} in: {run.stderr!r}")
    left = [str(path) for path in FOLDER.glob("*out*")]
    check(f"refused: {name}: nothing is left", not left, left)


def test_refusals():
    good = store("good.pcap", make.pcap([make.dhcp4_up(CLIENT, make.DISCOVER)] * 3))
    whole = good.read_bytes()
    snapped = whole[:24 + 8] + struct.pack("<II", 60, 300) + whole[24 + 16:24 + 16 + 60]
    captures = [
        ("missing capture", FOLDER / "missing.pcap", ["No such file"]),
        ("a folder as capture", FOLDER, ["directory"]),
        ("text as capture", store("text", "hello, this is no capture at all"), ["unknown file format"]),
        ("empty file as capture", store("empty", b""), ["truncated"]),
        ("truncated frame", store("cut.pcap", whole[:-20]), ["frame 3", "truncated"]),
        ("truncated record header", store("cut2.pcap", whole + b"\0" * 7), ["frame 4", "truncated"]),
        ("frame cut by the snap length", store("snap.pcap", snapped), ["frame 1", "60 of 300 octets"]),
        ("wrong link type", store("raw.pcap", make.pcap([b"x" * 60], link_type=101)), ["RAW", "Ethernet"]),
    ]
    for name, path, words in captures:
        refused(name, 3, words, ["replay", path, "-o", OUT])

    outputs = [
        ("output in a folder that is not there", FOLDER / "none" / "out.pcap", ["No such file"]),
        ("a folder as output", FOLDER, ["not a regular file"]),
        ("a device as output", "/dev/null", ["not a regular file"]),
        ("the capture as output", good, ["capture itself"]),
    ]
    for name, path, words in outputs:
        refused(name, 5, words, ["replay", good, "-o", path])
    check("the capture is still there", good.read_bytes() == whole)

    usages = [
        ("no subcommand", []), ("no output", ["replay", good]), ("no capture", ["replay", "-o", OUT]),
        ("unknown option", ["replay", good, "-o", OUT, "--fast"]),
        ("empty pool", ["replay", good, "-o", OUT, "--pool", "0"]),
        ("no direction", ["replay", good, "-o", OUT, "--direction", "sideways"]),
    ]
    for name, arguments in usages:
        refused(name, 2, [], arguments)

    OUT.write_bytes(b"former")
    host("replay", FOLDER / "cut.pcap", "-o", OUT)
    equal("a former output survives a failed replay", OUT.read_bytes(), b"former")
    OUT.unlink()
    with open("/dev/full", "w") as full:
        run = subprocess.run([HOST, "replay", good, "-o", OUT], stdout=full, stderr=subprocess.PIPE, text=True)
    check("a summary that cannot be written is said", run.returncode == 5 and "summary" in run.stderr, run)
    OUT.unlink()


def test_interrupt():
    fifo = FOLDER / "fifo"
    os.mkfifo(fifo)
    frame = make.dhcp4_up(CLIENT, make.DISCOVER)
    run = subprocess.Popen([HOST, "replay", fifo, "-o", OUT], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    with open(fifo, "wb") as capture:
        capture.write(make.pcap([frame] * 200))
        capture.flush()
        run.send_signal(signal.SIGINT)
        try:
            capture.write(make.pcap([frame] * 20000)[24:])
        except BrokenPipeError:
            pass
    _, errors = run.communicate(timeout=60)
    check("interrupted", run.returncode == 130 and "interrupted" in errors, (run.returncode, errors))
    equal("interrupted: nothing is left", list(FOLDER.glob("*out*")), [])


# ---- hosts that other processes configure

CONSOLE = FOLDER / "console"
SHARED = {**os.environ, "LINE_ID_IPC_PREFIX": f"lineid-host-test-{os.getpid()}", "LINE_ID_CONSOLE": str(CONSOLE)}


def start(*arguments, **options):
    return subprocess.Popen([HOST, *map(str, arguments)], stdout=subprocess.PIPE, text=True, env=SHARED, **options)


class Reader(socket.socket):
    def __init__(self):
        super().__init__(socket.AF_UNIX)
        self.settimeout(30)
        self.connect(str(CONSOLE))

    def until_mark(self):
        self.sendall(b"?")
        data = b""
        while not data.endswith(b"\x01end\n"):
            more = self.recv(65536)
            if not more:
                return None
            data += more
        return data[:-5].decode()


def test_serve():
    for number in (signal.SIGINT, signal.SIGTERM):
        with start("serve", "--lines", store("lines.toml", LINES), stderr=subprocess.DEVNULL) as serving:
            equal("serving", serving.stdout.readline(), f"serving; console {CONSOLE}\n")
            refused("one host at a time", 1, ["another agent serves already"], ["serve"], env=SHARED)
            with Reader() as reader:
                equal("a mark without lines", reader.until_mark(), "")
            serving.send_signal(number)
            equal("ended", serving.communicate(timeout=30)[0], "ended\n")
            check("the console is gone", serving.returncode == 0 and not CONSOLE.exists(), serving.returncode)
    with socket.socket(socket.AF_UNIX) as dead:
        dead.bind(str(CONSOLE))  # left over: nobody listens
    with start("serve", stderr=subprocess.DEVNULL) as serving:
        equal("a dead host's console", serving.stdout.readline(), f"serving; console {CONSOLE}\n")
        check("open to its owner alone", CONSOLE.stat().st_mode & 0o077 == 0)
        serving.terminate()


def test_hold():
    traced = LINES.replace("[[instance]]\n", "[agent]\ndebug_level = 2\n[[instance]]\ndebug_dhcpv4 = true\n")
    capture = store("in.pcap", make.pcap([make.dhcp4_up(CLIENT, make.DISCOVER)] * 4000))
    held = start("replay", capture, "-o", OUT, "--lines", store("lines.toml", traced), "--json", "--hold",
                 stdin=subprocess.PIPE, stderr=subprocess.PIPE)
    errors = held.stderr.readline()
    while errors and "holding" not in errors:
        errors = held.stderr.readline()
    with Reader() as reader, Reader() as idle:
        check("the capture is held back", held.poll() is None)
        seen = []

        def read_all():
            while more := reader.recv(65536):
                seen.append(more)
        threads = [threading.Thread(target=read_all), threading.Thread(target=held.stderr.read)]
        for thread in threads:
            thread.start()
        held.stdin.write("go\n")
        held.stdin.close()
        equal("held frames came through", (held.wait(120), len(read_pcap(OUT))), (0, 4000))
        for thread in threads:
            thread.join(30)
        lines = b"".join(seen)
        equal("a reader gets every line", lines.count(b"dhcpv4 pkt rev from"), 4000)
        taken = 0
        while more := idle.recv(65536):
            taken += len(more)
        check("a reader that does not keep up is cut off", taken < len(lines), (taken, len(lines)))
    OUT.unlink()


def test_bad_line_maps():
    capture = FOLDER / "good.pcap"
    cases = [
        ("syntax", LINES + "port = = 1\n", [":12:"]),
        ("unknown key", LINES + "ponn = 1\n", [":12: line.ponn: unknown key, expected one of", "pon, port"]),
        ("unknown section", LINES + "[lines]\n", [":12: lines: unknown key"]),
        ("single brackets", LINES.replace("[[line]]", "[line]"), [":9: line: expected sections in double brackets"]),
        ("wrong type", LINES + 'pon = "one"\n', [":12: line.pon: expected a number from 0 to 65535, found 'one'"]),
        ("out of range", LINES + "pon = 65536\n", [":12: line.pon: expected a number from 0 to 65535, found 65536"]),
        ("float", LINES + "pon = 1.0\n", [":12: line.pon: expected a number"]),
        ("switch", LINES.replace("option82 = true", "option82 = 1"), [":4: instance.option82: expected true or false"]),
        ("choice", LINES + 'technology = "lte"\n', [':12: line.technology: expected one of "gp", "ep"', "'lte'"]),
        ("mode", LINES.replace("[[instance]]", '[[instance]]\nmode = "ont"'),
         [':4: instance.mode: expected one of "olt"']),
        ("MAC", LINES + 'onu_mac = "00:00:5e:00:53"\n', [":12: line.onu_mac: expected a MAC address"]),
        ("MAC list", LINES + 'macs = ["00:00:5e:00:53:0g"]\n', [":12: line.macs: expected a list of MAC addresses"]),
        ("VLAN", LINES + 'vlans = ["4096"]\n', [":12: line.vlans: expected a list of texts"]),
        ("VLAN twice", LINES + 'vlans = ["5", "5"]\n', [":12: line.vlans: \"5\" is taken already"]),
        ("two defaults", LINES + "[[line]]\ndefault = true\n", [":13: line.default: another line is the default"]),
        ("nowhere to match", LINES + "[[line]]\npon = 2\n", [":12: line.vlans: expected vlans, macs, interface or default"]),
        ("one ONU, two names", LINES + '[[line]]\nvlans = ["5"]\nonu_id = "o2"\n', ["same PON and ONU"]),
        ("no such instance", LINES + "instance = 3\n", [":12: line.instance: there is no [[instance]]"]),
        ("instance twice", LINES + "[[instance]]\n", [":12: instance.id: this instance is already there"]),
        ("OLT without slot", LINES.replace("olt_slot = 1", ""), ["olt_slot"]),
        ("DSL without ports", LINES.replace("[[instance]]", '[[instance]]\nmode = "dsl"'), ["port_type"]),
        ("half of the ONU slots", LINES.replace("olt_slot", "onu_slot = 1\nolt_slot"),
         [":2: device.onu_slot: expected together"]),
        ("template", LINES.replace("option18", 'remote_format = "%aX"\noption18'),
         [":5: instance.remote_format: expected a template"]),
        ("long text", LINES + 'text_n = "' + "x" * 51 + '"\n',
         [":12: line.text_n: expected a text of at most 50 characters"]),
        ("override", LINES.replace("option18", 'override = { Ab = "1" }\noption18'),
         [":5: instance.override: expected a letter"]),
        ("address", LINES.replace("option18", 'manage_ip = "192.0.2"\noption18'),
         [":5: instance.manage_ip: expected an IPv4"]),
        ("profile", LINES + '[[profile]]\nnumber = 65\ntext = "%a"\n',
         [":13: profile.number: expected a number from 1 to 64"]),
        ("profile without text", LINES + "[[profile]]\nnumber = 1\n", [":12: profile.text: expected a template"]),
        ("strip", LINES + "[agent]\ndhcpv6_strip = 0\n", [":13: agent.dhcpv6_strip: expected a number from 1 to 2"]),
        ("white list", LINES + f"[white_list]\nonu_types = {list(range(33))}\n",
         [":13: white_list.onu_types: expected at most 32"]),
        ("nothing", "", ["expected at least one [[instance]]", "expected at least one [[line]]"]),
        ("two faults", LINES + "port = -1\npon = -1\n", [":12: line.port", ":13: line.pon"]),
    ]
    for name, text, words in cases:
        path = store("lines.toml", text)
        refused(f"line map: {name}", 4, [str(path) if words[0].startswith(":") else "", *words],
                ["replay", capture, "-o", OUT, "--lines", path])
    refused("line map: missing", 4, ["No such file"], ["replay", capture, "-o", OUT, "--lines", FOLDER / "none.toml"])


# ---- frames

def test_order():
    """Trapped frames and others in turn; the transaction number tells them apart."""
    def frame(i):
        if i % 3 == 2:
            return make.arp(1, CLIENT, CLIENT, "192.0.2.1", f"10.{i >> 16}.{i >> 8 & 255}.{i & 255}")
        packet = make.ipv4("0.0.0.0", "255.255.255.255", 68, 67, make.bootp(1, CLIENT, make.DISCOVER, xid=i))
        return make.eth(CLIENT, make.BROADCAST, 0x0800, packet)

    def mark(frame_octets):
        return frame_octets[38:42] if frame_octets[12:14] == b"\x08\x06" else frame_octets[46:50]

    for pool, count in ((1, 300), (2, 3000), (7, 3000), (1000, 9000)):
        frames = [frame(i) for i in range(count)]
        source = read_pcap(store("order.pcap", make.pcap(frames)))
        written, summary, _ = replay(frames, "--pool", pool, "--statistics")
        equal(f"pool {pool}: order and times", [(time, mark(data)) for time, data in written],
              [(time, mark(data)) for time, data in source])
        check(f"pool {pool}: others unchanged", all(written[i][1] == frames[i] for i in range(2, count, 3)))
        counters = summary[-1]["statistics"]["counters"]
        equal(f"pool {pool}: nothing lost", (summary[-1]["rebuilt"], counters["dhcpv4_pkt_processed__up"],
                                             counters["dhcpv4_pkt_dropped"]), (count // 3 * 2, count // 3 * 2, 0))

    # More frames than the number that comes back with each can tell apart, and a long wait behind one trapped frame.
    padi = make.pppoe(make.PADI, CLIENT, make.BROADCAST, [(0x0101, b"")])
    _, summary, _ = replay([padi] * 70000)
    equal("70000 frames", (summary[-1]["rebuilt"], summary[-1]["written"]), (70000, 70000))
    quiet = make.arp(1, CLIENT, CLIENT, "192.0.2.1", "192.0.2.2")
    written, _, _ = replay([padi] + [quiet] * 9000 + [padi])
    check("one trapped frame before 9000 others", len(written) == 9002 and written[1][1] == quiet)


def test_untouched():
    dhcp = make.dhcp4_up(CLIENT, make.DISCOVER)
    fragment = bytearray(dhcp)
    fragment[20] = 0x20
    fragment[21] = 0x10
    frames = [
        make.arp(1, CLIENT, CLIENT, "192.0.2.1", "192.0.2.2"),
        make.dhcp4_up(CLIENT, make.DISCOVER, vlans=(1, 2, 3, 4, 5)),
        bytes(fragment),
        make.eth(CLIENT, make.BROADCAST, 0x0800, make.ipv4("192.0.2.1", "192.0.2.2", 68, 53, b"dns")),
        make.eth(CLIENT, make.BROADCAST, 0x8864, b"\x11\0\0\1\0\0"),
        make.eth(CLIENT, make.BROADCAST, 0x88B5, b"x" * 9000),
        b"\xff" * 14,
        b"short",
    ]
    written, summary, _ = replay(frames)
    equal("frames that are not trapped are unchanged", [data for _, data in written], frames)
    equal("frames that are not trapped are counted", (summary[-1]["read"], summary[-1]["untouched"]), (8, 8))
    check("four tags are trapped", verdicts([make.dhcp4_up(CLIENT, 1, vlans=(1, 2, 3, 4))]) == [("up", "rebuilt")])


def test_formats():
    frames = [make.dhcp4_up(CLIENT, make.DISCOVER), make.arp(1, CLIENT, CLIENT, "192.0.2.1", "192.0.2.2")]
    block = lambda kind, body: struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)
    times = [1_700_000_000_123_456_789, 1_700_000_001_000_000_001]
    pcapng = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
    pcapng += block(1, struct.pack("<HHI", 1, 0, 0) + struct.pack("<HHB3x", 9, 1, 9) + struct.pack("<HH", 0, 0))
    for time, frame in zip(times, frames):
        head = struct.pack("<IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(frame), len(frame))
        pcapng += block(6, head + frame + b"\0" * (-len(frame) % 4))
    written, _, _ = replay(pcapng)
    equal("pcapng: times to the nanosecond", [time for time, _ in written], times)
    equal("pcapng: frames", (len(written[0][1]) > len(frames[0]), written[1][1]), (True, frames[1]))

    micro = struct.pack(">IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
    micro += struct.pack(">IIII", 7, 999999, len(frames[1]), len(frames[1])) + frames[1]
    written, _, _ = replay(micro)
    equal("pcap of microseconds, other byte order", written, [(7_999_999_000, frames[1])])
    equal("an empty capture", (replay([])[0], replay([])[1][-1]["read"]), ([], 0))


def test_directions():
    server = make.SERVER
    relay = make.eth(CLIENT, make.ALL_AGENTS, 0x86DD, make.ipv6(
        "fe80::1", "ff02::1:2", 547, 547, bytes([12, 0]) + bytes(32) + make.option6(9, make.dhcp6(1, CLIENT))))
    relayed = make.eth(CLIENT, server, 0x0800, make.ipv4("192.0.2.9", "192.0.2.1", 67, 67, make.bootp(1, CLIENT, 1)))
    cases = [
        ("DHCPv4 by ports", [make.dhcp4_up(CLIENT, 1), make.dhcp4_down(CLIENT, 2, "192.0.2.5")],
         [("up", "rebuilt"), ("down", "passed")]),
        ("DHCPv4 between servers by operation", [relayed], [("up", "refused")]),
        ("DHCPv6", [make.dhcp6_up(CLIENT, 1), make.dhcp6_down(CLIENT, 2), relay],
         [("up", "rebuilt"), ("down", "rebuilt"), ("up", "rebuilt")]),
        ("PADT by the learnt side", [make.pppoe(make.PADI, CLIENT, make.BROADCAST, []),
                                     make.pppoe(make.PADO, server, CLIENT, []),
                                     make.pppoe(make.PADT, CLIENT, server, []),
                                     make.pppoe(make.PADT, server, CLIENT, [])],
         [("up", "rebuilt"), ("down", "passed"), ("up", "rebuilt"), ("down", "refused")]),
        ("PADT by its destination", [make.pppoe(make.PADI, CLIENT, make.BROADCAST, []),
                                     make.pppoe(make.PADT, server, CLIENT, [])],
                                     [("up", "rebuilt"), ("down", "refused")]),
        ("PADT of strangers", [make.pppoe(make.PADT, CLIENT, server, [])], [("up", "rebuilt")]),
    ]
    for name, frames, expected in cases:
        equal(f"direction: {name}", verdicts(frames), expected)
    equal("direction: all down", verdicts([make.dhcp4_up(CLIENT, 1)], "--direction", "down"), [("down", "refused")])
    equal("direction: all up", verdicts([make.dhcp4_down(CLIENT, 2, "192.0.2.5")], "--direction", "up"),
          [("up", "refused")])


# ---- line maps

def ids(frame, lines, *arguments):
    line = replay([frame], "-v", *arguments, lines=lines)[1][0]
    return line["verdict"], line.get("circuit_id"), line.get("remote_id")


def test_line_facts():
    letters = "%a,%r,%f,%S,%T,%M,%O,%u,%H,%B,%L,%z,%s,%c,%p,%m,%n,%C,%o,%g,%P,%t,%X,%x,%F,%h,%Y".replace(",", " ")
    lines = f"""
[device]
access_type = "acc"
card_type = "card"
olt_slot = 3
onu_slot = 4
onu_sub_slot = 5
[[instance]]
{ALL_ON}
format = "custom"
circuit_format = "{letters}"
remote_format = "%m"
ani = "an"
rack = 7
frame = 8
uplink_type = "ge"
manage_ip = "192.0.2.2"
hostname = "hn"
core_card_mac = "00:00:5e:00:53:f0"
override = {{ Y = "pinned" }}
[[line]]
name = "full"
vlans = ["100.7"]
pon = 9
registered_pon = 10
onu = 11
port = 12
gem = 13
onu_id = "id\\\\é"
text_n = "tn"
text_c = "tc"
technology = "xgs"
port_type = "atm"
circuit_x = 14
circuit_y = 15
port_number = 4660
"""
    expected = ("an 7 8 3 4 5 192.0.2.2 ge hn acc card 00005e0053f0 100 7 10 id\\\\\\xc3\\xa9 "
                "tn tc 11 13 12 atm 14 4660 XGS 00005e005301 pinned")
    equal("every letter of a line", ids(make.dhcp4_up(CLIENT, 1, vlans=(100, 7)), lines),
          ("rebuilt", expected, "id\\\\\\xc3\\xa9"))
    with_own_tags = lines + "svlan = 33\ncvlan = 44\n"
    check("VLANs of the line instead of the frame's",
          " 33 44 " in str(ids(make.dhcp4_up(CLIENT, 1, vlans=(100, 7)), with_own_tags)[1]))

    profiles = LINES + ('circuit_profile = 5\nremote_profile = 6\n[[profile]]\nnumber = 5\ntext = "c %s"\n'
                        '[[profile]]\nnumber = 6\ntype = "remote-id"\ntext = "r %c"\n')
    equal("profiles", ids(make.dhcp4_up(CLIENT, 1, vlans=(20, 30)), profiles), ("rebuilt", "c 20", "r 30"))
    by_vlan = LINES + "circuit_by_vlan = true\n"
    equal("identity taken out", ids(make.dhcp4_up(CLIENT, 1, make.option82(b"a", b"b")), by_vlan),
          ("rebuilt", None, None))

    choice = '[device]\nolt_slot = 1\n' + "".join(
        f'[[instance]]\nid = {i}\n{ALL_ON}format = "custom"\ncircuit_format = "{i} %o"\n' for i in (0, 8))
    choice += ('[[line]]\nvlans = ["5"]\nonu = 1\n[[line]]\nvlans = ["6.7", "untagged"]\ninstance = 8\nonu = 2\n'
               f'[[line]]\nmacs = ["{CLIENT}"]\nonu = 3\n[[line]]\ndefault = true\ninstance = 8\nonu = 4\n')
    other = "00:00:5e:00:53:77"
    cases = [("one tag", CLIENT, (5,), "0 1"), ("two tags", CLIENT, (6, 7), "8 2"), ("untagged", other, (), "8 2"),
             ("address", CLIENT, (9,), "0 3"), ("default", other, (9,), "8 4")]
    for name, client, vlans, circuit_id in cases:
        equal(f"line by {name}", ids(make.dhcp4_up(client, 1, vlans=vlans), choice)[1], circuit_id)
    down = replay([make.dhcp4_down(CLIENT, 2, "192.0.2.5", vlans=(9,))], "-v", lines=choice)[1][0]
    equal("line of a reply to everybody", down["line"], "line 3")


def test_settings():
    discover, solicit = make.dhcp4_up(CLIENT, 1), make.dhcp6_up(CLIENT, 1)
    padi = make.pppoe(make.PADI, CLIENT, make.BROADCAST, [])
    mode = lambda name, extra="": LINES.replace("[[instance]]", f'[[instance]]\nmode = "{name}"\n{extra}')
    for name in ("olt", "sfu", "mdu"):
        equal(f"mode {name} starts", verdicts([discover], lines=mode(name)), [("up", "rebuilt")])
    equal("mode dsl starts", verdicts([discover], lines=mode("dsl") + 'port_type = "eth"\n'), [("up", "rebuilt")])

    off = LINES
    for switch in ("option82", "option18", "option37", "pppoe_plus"):
        off = off.replace(f"{switch} = true", f"{switch} = false")
    equal("protocols that are off are not trapped", verdicts([discover, padi, solicit], lines=off),
          [("up", "untouched")] * 3)
    setting = lambda text: LINES.replace("[[instance]]\n", "[[instance]]\n" + text)
    agent = lambda text: LINES + "[agent]\n" + text
    spoof_lines = setting("pppoe_anti_spoofing = true\npppoe_binding_count = 1\n")
    spoof_lines += '[[line]]\nvlans = ["5"]\nonu = 2\n'
    information = [make.onu_tag(1, 1)], [make.onu_tag(2, 1)]
    spoof = [make.pppoe(make.PADI, CLIENT, make.BROADCAST, information[0]),
             make.pppoe(make.PADI, CLIENT, make.BROADCAST, information[1], vlans=(5,))]
    echoed = make.pppoe(make.PADO, make.SERVER, CLIENT, [make.vendor_tag(b"c", b"r")])
    cases = [
        ("transparent", setting("option82_transparent = true\npppoe_plus_transparent = true\n"), [discover, padi],
         ["passed"] * 2, None),
        ("line-ID switch", LINES + "line_id_switch = 0\n", [discover, padi, solicit], ["passed"] * 3,
         "line_id_switch is 0"),
        ("exception policy pass", agent('exception_policy = "pass"\n'), [discover, padi], ["passed"] * 2, None),
        ("exception policy drop", agent('exception_policy = "drop"\n'), [discover, padi], ["dropped"] * 2, None),
        ("strip off", agent("pppoe_strip = false\n"), [echoed], ["passed"], None),
        ("strip on", agent("pppoe_strip = true\n"), [echoed], ["rebuilt"], None),
        ("no agent", agent("dhcpv4_agent = false\n"), [discover, padi], ["passed", "rebuilt"],
         "agent.dhcpv4_agent is not"),
        ("white list", LINES + "onu_type = 7\n[white_list]\npass = true\ndhcp = true\nonu_types = [6, 7]\n",
         [discover], ["passed"], None),
        ("white list of others", LINES + "onu_type = 8\n[white_list]\npass = true\ndhcp = true\nonu_types = [6, 7]\n",
         [discover], ["rebuilt"], None),
        ("slot 0", LINES.replace("olt_slot = 1", "olt_slot = 0"), [solicit], ["passed"], "olt_slot is 0"),
        ("keep", agent('dhcp_remote_id_policy = "keep"\n'), [discover], ["rebuilt"], 'is "keep": no Remote-ID'),
        ("spoofing", spoof_lines, spoof, ["rebuilt", "dropped"], "alarm: spoofing detected"),
        ("spoofing without its check", spoof_lines + "[agent]\npppoe_spoofing_check = false\n", spoof, ["dropped"] * 2,
         "pppoe_spoofing_check is not"),
        ("DHCP spoofing", setting("dhcp_anti_spoofing = true\n"), [discover], ["rebuilt"], "learns nothing"),
        ("modes that disagree", LINES + '[[instance]]\nid = 1\nmode = "sfu"\n', [], [], "give them in [agent]"),
        ("no line", LINES.replace("default = true", 'vlans = ["5"]'), [discover], ["untouched"],
         "1 frames belong to no line"),
        ("traces", agent("debug_all = true\ndebug_level = 2\n"), [discover], ["rebuilt"], "agent: [LNID_INFO]"),
    ]
    for name, lines, frames, expected, message in cases:
        _, output, errors = replay(frames, "-v", lines=lines)
        equal(f"setting: {name}", [line["verdict"] for line in output[:-1]], expected)
        if message is not None:
            check(f"setting: {name}: said", message in errors, errors)


def test_balances():
    padded = make.dhcp4_up(CLIENT, 1) + b"\0" * 4
    long_dhcp = make.dhcp4_up(CLIENT, 1, b"".join(make.option(60, b"x" * 248) for _ in range(5)))
    long_dhcp = long_dhcp[:1535] if len(long_dhcp) > 1535 else long_dhcp + b"\0" * (1535 - len(long_dhcp))
    written, output, _ = replay(make.morning() + [padded, long_dhcp], "-v", "-s",
                                lines=(DEMO / "lines.toml").read_text())
    *frames, summary = output
    equal("balance", {key: summary[key] for key in ("read", "trapped", "rebuilt", "passed", "dropped", "refused",
                                                    "untouched", "written", "without_line", "alarms")},
          {"read": 30, "trapped": 27, "rebuilt": 17, "passed": 6, "dropped": 2, "refused": 2, "untouched": 3,
           "written": 26, "without_line": 0, "alarms": 2})
    equal("balance: refusals", summary["refusals"], {"-40": 1, "-1": 1})
    equal("balance: frames of the output", len(written), 26)
    equal("balance: a line for each frame", [line["frame"] for line in frames], list(range(1, 31)))
    equal("balance: DHCPv4", [row for row in summary["protocols"] if row["protocol"] == "dhcpv4"],
          [{"protocol": "dhcpv4", "direction": "up", "read": 10, "trapped": 10, "rebuilt": 7, "passed": 0,
            "dropped": 1, "refused": 2},
           {"protocol": "dhcpv4", "direction": "down", "read": 6, "trapped": 6, "rebuilt": 0, "passed": 6,
            "dropped": 0, "refused": 0}])
    counters = summary["statistics"]["counters"]
    equal("balance: the agent's report", (counters["dhcpv4_pkt_processed"], counters["pppoe_pkt_processed__up"]),
          (13, 4))
    alarms = {line["frame"]: line["alarms"] for line in frames if "alarms" in line}
    equal("balance: alarms stand at their frames", sorted(alarms), [25, 27])

    run = host("replay", DEMO / "subscribers.pcap", "-o", OUT)
    check("table", run.returncode == 0 and run.stdout.splitlines()[-1] == f"27 frames written to {OUT}", run.stdout)
    check("standard output is the host's alone", "agent:" not in run.stdout and "LNID" not in run.stdout, run.stdout)


def test_demo():
    equal("the demo's capture is what its generator writes", (DEMO / "subscribers.pcap").read_bytes(),
          make.pcap(make.morning()))
    run = host("replay", DEMO / "subscribers.pcap", "-o", OUT, "--lines", DEMO / "lines.toml", "--json")
    equal("the demo's lines bring no warning", [line for line in run.stderr.splitlines() if "warning" in line], [])
    text = (DEMO / "lines.toml").read_text()
    for header in ("[x]", "[device]", "[agent]", "[white_list]", "[[instance]]", "[[profile]]", "[[line]]"):
        run = host("replay", DEMO / "subscribers.pcap", "-o", OUT, "--lines",
                   store("lines.toml", header + "\n" + ("" if header == "[x]" else "x = 1\n")))
        keys = run.stderr.split("unknown key, expected one of ")[1].splitlines()[0].split(", ")
        absent = [key for key in keys if not re.search(rf"^(# )?(\[\[?)?{key}\b", text, re.MULTILINE)]
        equal(f"the demo's line map shows every key: {header}", absent, [])
    if shutil.which("tshark") is None:
        print("      (no tshark: its view of the output is not checked)")
        return

    def tshark(shown, *fields):
        command = ["tshark", "-r", OUT, "-n", "-o", "ip.check_checksum:TRUE", "-o", "udp.check_checksum:TRUE", "-Y",
                   shown,
                   "-T", "fields", "-E", "separator=|"]
        for field in fields:
            command += ["-e", field]
        run = subprocess.run(command, capture_output=True, text=True, timeout=60)
        return run.stdout.splitlines()

    head = "0 0/0/0:{} demo-olt/1/2/3/0/1/"
    v4 = [(head + "{}").format(vlans, onu) for vlans, onu in
          [("4096.4096", "ONU0001 GP")] * 2 + [("4096.100", "ONU0002 GP")] * 2 + [("200.7",
                                                                                   "ONU0003 GP")] * 2 + [("200.7", "")]]
    in_hex = lambda text: text.encode().hex()
    equal("tshark: Option 82", tshark("dhcp.option.type == 82", "dhcp.option.agent_information_option.agent_circuit_id",
                                      "dhcp.option.agent_information_option.agent_remote_id", "ip.checksum.status",
                                      "udp.checksum.status"),
          [f"{in_hex(text)}|{in_hex('ONU000' + onu)}|1|3" for text, onu in zip(v4, "1122333")])
    v6 = head.format("4096.100") + "ONU0002 "
    equal("tshark: Relay-Forward", tshark("dhcpv6.msgtype == 12", "dhcpv6.option.type", "dhcpv6.interface_id",
                                          "dhcpv6.remoteid_enterprise_id", "udp.checksum.status"),
          [f"9,1,3,18,37|{in_hex(v6)}|{in_hex('ONU0002')}|1"] * 2)
    equal("tshark: unwrapped replies", tshark("dhcpv6 and udp.dstport == 546", "dhcpv6.msgtype", "ipv6.dst",
                                              "udp.checksum.status"),
          ["2|fe80::200:5eff:fe00:5302|1", "7|fe80::200:5eff:fe00:5302|1"])
    tag = "3561|{}|{}".format
    three = tag(head.format("200.7") + "ONU0003 GP", "ONU0003")
    four = tag(head.format("200.8") + "ONU0004 XGS", "ONU0004")
    equal("tshark: PPPoE", tshark("pppoed", "pppoe.code", "pppoed.tags.vendor_id", "pppoed.tags.circuit_id",
                                  "pppoed.tags.remote_id"),
          ["0x09|" + three, "0x07|||", "0x19|" + three, "0x65|||", "0x09|" + four, "0xa7|" + three])
    equal("tshark: nothing malformed", tshark("_ws.malformed or ip.checksum.status == 0 or udp.checksum.status == 0",
                                              "frame.number"), [])


def main():
    tests = [test_refusals, test_interrupt, test_serve, test_hold, test_bad_line_maps, test_order, test_untouched, test_formats,
             test_directions,
             test_line_facts, test_settings, test_balances, test_demo]
    try:
        for test in tests:
            print(f"== {test.__name__[5:]}")
            test()
    finally:
        shutil.rmtree(FOLDER)
        for left in pathlib.Path("/dev/shm").glob(SHARED["LINE_ID_IPC_PREFIX"] + ".*"):
            left.unlink()
    print(f"\n{len(FAILED)} checks failed" if FAILED else "\nall checks passed")
    return 1 if FAILED else 0


sys.exit(main())
