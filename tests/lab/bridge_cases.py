"""What else crosses the access node: other traffic, while DHCP runs, and while the agent is in trouble."""
import contextlib
import ctypes
import os
import pathlib
import threading

import clients
import oracle
import servers
from agent import Agent
from topology import STATIONS, Access, LabFailure, expect, expect_equal, wait_for

PTRACE_DETACH, PTRACE_SEIZE, PTRACE_INTERRUPT = 17, 0x4206, 0x4207
FUTEX = "202"  # the number of the system call
WALL = 0x40000000
SUBSCRIBER4, SUBSCRIBER6 = "198.51.100.50", "2001:db8:1::50"


class Exchanges:
    """Whole DHCPv4 exchanges of a host, one after another, beside what a case does."""

    def __init__(self, *hosts):
        self.done = {host.role: [] for host in hosts}  # what each was given, None for nothing
        self.ended = threading.Event()
        self.threads = [threading.Thread(target=self.work, args=(host,), daemon=True) for host in hosts]

    def work(self, host):
        with contextlib.suppress(LabFailure):  # the network has gone: the case has failed already
            while not self.ended.is_set():
                self.done[host.role].append(clients.udhcpc_once(host))
                self.ended.wait(0.5)

    def __enter__(self):
        for thread in self.threads:
            thread.start()
        return self

    def __exit__(self, *_):
        self.ended.set()
        for thread in self.threads:
            thread.join(60)

    def check(self, at_least):
        for role, given in self.done.items():
            expect(len(given) >= at_least and None not in given, f"exchanges of {role}: {given}")


def add_addresses(host):
    host.run("ip", "address", "add", f"{SUBSCRIBER4}/24", "dev", "s0")
    host.run("ip", "address", "add", f"{SUBSCRIBER6}/64", "dev", "s0", "nodad")


def check_ping(host, *arguments):
    for target in ("198.51.100.1", "2001:db8:1::1"):
        host.run("ip", "neighbour", "flush", "dev", "s0")  # so that ARP and neighbour discovery are asked again
        printed = host.run("ping", "-q", *arguments, target, check=False)
        expect(" 0% packet loss" in printed, f"ping of {target}:\n{printed}")


def traffic(lab):
    """ARP, neighbour discovery, ping and a megabyte of TCP each way, with the offloads that hosts have on."""
    access = Access(lab, 1)
    agent = Agent(access)
    servers.kea4_for_all(access).start()
    host = access.subscribers[0]
    add_addresses(host)
    offloads = host.run("ethtool", "-k", "s0")
    expect("tx-checksumming: on" in offloads and "tcp-segmentation-offload: on" in offloads, "offloads are off")
    for address in ("198.51.100.1", "2001:db8:1::1"):
        server = access.server.start(f"echo-{address}", "/usr/bin/python3", STATIONS, "tcp_echo", "v0", address)
        wait_for(lambda: "serving" in server.output(), "the echo")
    with Exchanges(host) as exchanges:
        for address in ("198.51.100.1", "2001:db8:1::1"):
            came = host.run("/usr/bin/python3", STATIONS, "tcp_transfer", "s0", address)
            expect_equal(came, "same\n", f"a megabyte to {address} and back")
        check_ping(host, "-c", "60", "-i", "0.05", "-s", "1400")
        wait_for(lambda: len(exchanges.done[host.role]) >= 5, "some exchanges")
    exchanges.check(5)
    report = agent.stop()
    expect("dropped:" not in report.split("agent's own report")[0], f"the live host dropped frames:\n{report}")
    segmented = oracle.frames(access.capture, "tcp && frame.len > 3000", "frame.number")
    expect(segmented, "no segmentation was left to the device")


def worker_of(process):
    """The agent's worker: the thread of the host that waits on the message queue, which is shared memory."""
    folder = pathlib.Path(f"/proc/{process.popen.pid}")
    areas = [[int(end, 16) for end in line.split()[0].split("-")]
             for line in (folder / "maps").read_text().splitlines() if ".q." in line]
    for task in (folder / "task").iterdir():
        call, *arguments = (task / "syscall").read_text().split()
        if call == FUTEX and any(start <= int(arguments[0], 16) < end for start, end in areas):
            return int(task.name)
    return None


@contextlib.contextmanager
def stopped(thread):
    """Stops one thread of a process, the others run on."""
    libc = ctypes.CDLL(None, use_errno=True)

    def trace(request):
        expect(libc.ptrace(request, thread, None, None) == 0, f"ptrace: {os.strerror(ctypes.get_errno())}")

    trace(PTRACE_SEIZE)
    trace(PTRACE_INTERRUPT)
    os.waitpid(thread, WALL)
    try:
        yield
    finally:
        trace(PTRACE_DETACH)


def worker_stopped(lab):
    """The worker stands still and its pool runs full: other traffic goes on, and DHCP works again afterwards."""
    access = Access(lab, 2)
    agent = Agent(access, "--pool", "100")
    servers.kea4_for_all(access).start()
    host, other = access.subscribers
    add_addresses(host)
    expect(clients.udhcpc_once(other), "no lease before")
    with stopped(wait_for(lambda: worker_of(agent.process), "the agent's worker")):
        other.run("/usr/bin/python3", STATIONS, "dhcp_flood", "s0", "500")
        expect_equal(clients.udhcpc_once(other, 2), None, "a lease from an agent that stands still")
        check_ping(host, "-c", "20", "-i", "0.05")
    expect(wait_for(lambda: clients.udhcpc_once(other), "a lease after"), "no lease after")
    report = agent.stop()
    expect("refused them with result -45" in report, f"the pool was never full:\n{report}")


def flood(lab):
    """One subscriber's burst of discovers: other traffic goes on, and the other subscriber is served afterwards."""
    access = Access(lab, 2)
    agent = Agent(access, "--pool", "4")
    servers.kea4_for_all(access).start()
    host, attacker = access.subscribers
    add_addresses(host)
    burst = attacker.start("flood", "/usr/bin/python3", STATIONS, "dhcp_flood", "s0", "20000")
    check_ping(host, "-c", "20", "-i", "0.05")
    expect_equal(burst.wait(60), 0, f"the burst: {burst.output()}")
    expect(wait_for(lambda: clients.udhcpc_once(host), "a lease after the burst"), "no lease after")
    report = agent.stop()
    expect("refused them with result -45" in report, f"the pool was never full:\n{report}")


CASES = {case.__name__: case for case in (traffic, worker_stopped, flood)}
