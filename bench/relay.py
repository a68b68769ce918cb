#!/usr/bin/env python3
"""Runs relays and the live host in turn between two interfaces under load.

usage: relay.py BUILD [--rounds N] [--seconds N] [--json FILE]

Everything lives in network namespaces of its own, which are removed whatever happens. The contender has one core, the
load another one. Processor time is that of the contender's threads, with what the kernel does on their account: their
system calls, and the receiving end of what they send."""
import argparse
import json
import os
import pathlib
import signal
import statistics
import subprocess
import sys
from typing import NamedTuple

TOP = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TOP / "tests" / "lab"))
import topology  # noqa: E402

LINES = """
[device]
olt_slot = 3
[[instance]]
id = 0
mode = "olt"
option82 = true
option18 = true
option37 = true
pppoe_plus = true
circuit_id = true
remote_id = true
format = "custom"
circuit_format = "%a eth %S/%p/%o:%s.%c"
remote_format = "%m"
option37_format = "%m"
ani = "lab-olt"
[[line]]
name = "all"
interface = "sub1"
pon = 1
onu = 1
onu_id = "ONU-ONE"
"""
LIVE = "lineid-host live"
FORWARDER = "bare forwarder"
SERVER4 = "198.51.100.1"
LOAD_CORE, CONTENDER_CORE = "0", "1"
FIGURES = ("lossless", "lost_at_twice", "us_a_frame", "us_at_40000")


class Contender(NamedTuple):
    kind: str
    name: str
    words: list
    ready: str = ""   # what it prints when it works
    pid_file: str = ""   # of a contender that goes into the background: there it prints nothing for each frame
    family: str = ""     # of the addresses that it works with


class Target(NamedTuple):
    kind: str
    relay: str
    figure: str
    limit: float
    at_least: bool = False


TARGETS = (
    Target("dhcp4", "dhcrelay", "us_a_frame", 0.45), Target("dhcp6", "dhcrelay -6", "us_a_frame", 0.2),
    Target("pppoe", "pppoe-relay", "us_a_frame", 1.1),
    Target("dhcp4", "dhcrelay", "lossless", 2, True), Target("dhcp6", "dhcrelay -6", "lossless", 6, True),
    Target("pppoe", "pppoe-relay", "lossless", 1, True),
    Target("dhcp4", "dhcrelay", "us_at_40000", 0.75),
)


def contenders(build, folder):
    lines = folder / "lines.toml"
    lines.write_text(LINES)
    yield Contender("dhcp4", "dhcrelay", ["dhcrelay", "-4", "-q", "-a", "-pf", folder / "4.pid", "-id", "sub1", "-iu", "uplink",
                                          SERVER4], pid_file=folder / "4.pid", family="-4")
    yield Contender("dhcp6", "dhcrelay -6", ["dhcrelay", "-6", "-q", "-I", "-pf", folder / "6.pid", "-l", "sub1", "-u",
                                             "uplink"], pid_file=folder / "6.pid", family="-6")
    yield Contender("pppoe", "pppoe-relay", ["pppoe-relay", "-F", "-C", "sub1", "-S", "uplink"])
    for kind in ("dhcp4", "dhcp6", "pppoe"):
        yield Contender(kind, FORWARDER, [build / "bench/relay_forwarder", "sub1", "uplink"])
        yield Contender(kind, LIVE, [build / "lineid-host", "live", "--subscriber", "sub1", "--uplink", "uplink", "--lines",
                                     lines], "interface uplink is up")


class Bench:
    """Subscriber `s0` <-> `sub1` [contender] `uplink` <-> `v0` server; both ends in one namespace."""

    def __init__(self, lab, build, seconds):
        self.build = build
        self.seconds = seconds
        self.node = topology.Namespace(lab, "node")
        self.ends = topology.Namespace(lab, "ends")
        for side in (self.node, self.ends):
            for family in ("all", "default"):
                side.sysctl(f"net.ipv6.conf.{family}.accept_dad", 0)
                side.sysctl(f"net.ipv6.conf.{family}.disable_ipv6", 1)
        topology.cable(self.node, "sub1", self.ends, "s0")
        topology.cable(self.node, "uplink", self.ends, "v0")
        self.environment = {**os.environ, "LINE_ID_IPC_PREFIX": f"{topology.PREFIX}-{os.getpid()}"}

    def address(self, family):
        """The addresses that a relay of that family works with, and no others."""
        for port, number in (("sub1", 1), ("uplink", 2)):
            self.node.run("ip", "address", "flush", "dev", port)
            self.node.sysctl(f"net.ipv6.conf.{port}.disable_ipv6", 0 if family == "-6" else 1)
            if family == "-4":
                self.node.run("ip", "address", "add", f"198.51.{99 + number - 1}.{10 + number}/24", "dev", port)
            elif family == "-6":
                self.node.run("ip", "address", "add", f"2001:db8:{number}::2/64", "dev", port)
        if family == "-4":
            self.node.run("ip", "neighbour", "replace", SERVER4, "lladdr", self.ends.mac("v0"), "dev", "uplink")

    def measure(self, contender):
        self.address(contender.family)
        process = self.node.start(contender.name.replace(" ", ""), "taskset", "-c", CONTENDER_CORE, *contender.words,
                                  env=self.environment)
        pid = process.popen.pid
        if contender.pid_file:
            process.wait()
            topology.wait_for(contender.pid_file.exists, contender.name)
            pid = int(contender.pid_file.read_text())
        try:
            topology.wait_for(lambda: contender.ready in process.output() or not process.running(), contender.name)
            done = subprocess.run(["ip", "netns", "exec", self.ends.name, "taskset", "-c", LOAD_CORE,
                                   str(self.build / "bench/relay_load"), contender.kind, "s0", "v0", str(pid),
                                   str(self.seconds)], capture_output=True, text=True, timeout=60 + 20 * self.seconds)
            topology.expect(done.returncode == 0, f"{contender.name}: {done.stderr}{process.output()}")
            return json.loads(done.stdout)
        finally:
            os.kill(pid, signal.SIGTERM)
            process.wait()
            topology.wait_for(lambda: not pathlib.Path(f"/proc/{pid}").exists(), f"{contender.name} to end")
            if contender.pid_file:
                contender.pid_file.unlink(missing_ok=True)


def run_rounds(bench, every, rounds):
    """{(kind, name): [figures of a round, ...]}"""
    found = {(one.kind, one.name): [] for one in every}
    for number in range(rounds):
        for one in every[number:] + every[:number]:
            figures = bench.measure(one)
            found[one.kind, one.name].append(figures)
            print(f"round {number + 1}, {one.kind}, {one.name}: {figures}", file=sys.stderr, flush=True)
    return found


def judge(found, target):
    """The ratio to the relay, round by round."""
    ratios = [ours[target.figure] / theirs[target.figure] for ours, theirs in
              zip(found[target.kind, LIVE], found[target.kind, target.relay])]
    met = min(ratios) >= target.limit if target.at_least else max(ratios) <= target.limit
    return {"kind": target.kind, "relay": target.relay, "figure": target.figure, "median": statistics.median(ratios),
            "lowest": min(ratios), "highest": max(ratios), "limit": target.limit, "at_least": target.at_least, "met": met}


def report(found, targets):
    print(f"{'':<6} {'':<18} {'octets':>11} {'frames/s':>9} {'lost at':>8} {'us a frame':>11} {'us a frame':>11}")
    print(f"{'':<6} {'':<18} {'in, out':>11} {'lossless':>9} {'twice':>8} {'saturated':>11} {'at 40,000':>11}")
    for (kind, name), rounds in found.items():
        middle = {figure: statistics.median(one[figure] for one in rounds) for figure in FIGURES}
        octets = f"{rounds[0]['octets_in']}, {rounds[0]['octets_out']}"
        print(f"{kind:<6} {name:<18} {octets:>11} {middle['lossless']:>9.0f} {middle['lost_at_twice']:>8.1%} "
              f"{middle['us_a_frame']:>11.2f} {middle['us_at_40000']:>11.2f}")
    print()
    for row in targets:
        sign = ">=" if row["at_least"] else "<="
        print(f"{row['kind']:<6} {row['figure']:<12} live host / {row['relay']:<12} {row['median']:6.2f}   "
              f"{row['lowest']:5.2f} - {row['highest']:<5.2f} {sign} {row['limit']:<5g} {'met' if row['met'] else 'NOT MET'}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--seconds", type=float, default=0.4, help="of one measurement; a contender has nine in a round")
    parser.add_argument("--json", type=pathlib.Path, help="keep the figures here")
    arguments = parser.parse_args()
    if arguments.rounds < 1 or arguments.seconds <= 0:
        parser.error("there must be a round, and some time")
    build = arguments.build.resolve()
    topology.sweep()
    with topology.Lab(build / "relay") as lab:
        bench = Bench(lab, build, arguments.seconds)
        found = run_rounds(bench, list(contenders(build, lab.folder)), arguments.rounds)
    targets = [judge(found, target) for target in TARGETS]
    report(found, targets)
    if arguments.json:
        rows = [{"kind": kind, "name": name, "rounds": rounds} for (kind, name), rounds in found.items()]
        arguments.json.write_text(json.dumps({"contenders": rows, "targets": targets}, indent=1) + "\n")


if __name__ == "__main__":
    try:
        main()
    except topology.LabFailure as failure:
        sys.exit(f"relay: {failure}")
