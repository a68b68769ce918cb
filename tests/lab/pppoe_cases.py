"""PPPoE Discovery: the vendor tag upstream, its absence downstream, and a MAC address behind two ONUs."""
import re

import clients
import oracle
import servers
from agent import LINES, Agent
from topology import STATIONS, Access, expect, expect_equal, wait_for

PADI, PADO, PADR, PADS, PADT = "0x09", "0x07", "0x19", "0x65", "0xa7"
TAG = ("pppoed.tags.vendor_id", "pppoed.tags.circuit_id", "pppoed.tags.remote_id")


def seen(capture, *fields):
    """Code and fields of each frame, in the order of the exchange."""
    return oracle.frames(capture, "pppoed", "pppoe.code", *fields)


def tag_of(line):
    return ("3561", line.circuit_id, line.remote_id)


def session(lab):
    """A real server and client: PADI to PADS, and a PADT."""
    access = Access(lab, 2)
    agent = Agent(access)
    servers.PppoeServer(access).start()
    for host in access.subscribers:
        expect_equal(clients.pppoe_discovery(host), ["AC1"], f"access concentrators that {host.role} sees")
    host = access.subscribers[0]
    client = host.start("pppoe", "pppoe", "-I", "s0", "-S", "isp", "-U", "-d")
    number, peer = wait_for(lambda: re.search(r"^(\d+):([0-9a-f:]{17})$", client.output(), re.M),
                            "the session's number").groups()
    host.run("pppoe", "-I", "s0", "-k", "-e", f"{number}:{peer}")
    wait_for(lambda: PADT in [row[0] for row in seen(access.capture)], "the PADT")
    agent.stop()
    for host, line, codes in zip(access.subscribers, LINES, ([PADI, PADI, PADR], [PADI])):
        rows = oracle.frames(access.capture, f"pppoed && eth.src == {host.mac('s0')} && pppoe.code != {PADT}",
                             "pppoe.code", *TAG)
        expect_equal(rows, [(code, *tag_of(line)) for code in codes], f"frames of {host.role} at the server")
    answers = f"pppoed && eth.src == {access.server.mac('v0')} && pppoe.code != {PADT}"
    downstream = oracle.frames(access.capture, answers, "pppoe.code", *TAG)
    expect_equal(downstream, [(code, "", "", "") for code in (PADO, PADO, PADO, PADS)], "answers of the server")


def echoed_tag(lab):
    """A server that gives the tag back: the subscriber must not see it, and nothing else may be missing."""
    access = Access(lab, 1)
    agent = Agent(access)
    echo = access.server.start("echo", "/usr/bin/python3", STATIONS, "pppoe_echo", "v0")
    wait_for(lambda: "serving" in echo.output(), "the echo")
    host = access.subscribers[0]
    at_host = host.capture("s0")
    client = host.start("pppoe", "pppoe", "-I", "s0", "-S", "isp", "-U", "-d")
    wait_for(lambda: "77:" in client.output(), "the session's number")
    agent.stop()
    others = ("pppoed.tags.ac_name", "pppoed.tags.service_name", "pppoed.tags.host_uniq")
    at_server = seen(access.capture, *TAG)
    expect_equal(at_server, [(code, *tag_of(LINES[0])) for code in (PADI, PADO, PADR, PADS)], "at the server")
    expect_equal(seen(at_host, *TAG), [(code, "", "", "") for code in (PADI, PADO, PADR, PADS)], "at the subscriber")
    expect_equal(seen(at_host, *others), seen(access.capture, *others), "the other tags on both sides")


def is_answered(host):
    """A PADI of the host, to which its ONU added a tag: only such frames are checked."""
    return {"answered\n": True, "silence\n": False}[host.run("/usr/bin/python3", STATIONS, "onu_padi", "s0")]


def spoofing(lab):
    """The first line's MAC address behind another ONU: dropped, with an alarm; the first line goes on."""
    access = Access(lab, 3)
    agent = Agent(access)
    servers.PppoeServer(access).start()
    honest, other, thief = access.subscribers
    mac = honest.mac("s0")
    thief.run("ip", "link", "set", "dev", "s0", "address", mac)
    expect_equal([is_answered(host) for host in (honest, honest, honest, other)], [True] * 4, "PADI answered")
    expect(not is_answered(thief), "the thief's PADI was answered")
    alarm = f"spoofing detected: MAC {mac} at PON 1, ONU 3"
    wait_for(lambda: alarm in agent.process.output(), f"the alarm: {alarm}; {agent.process.output()}")
    expect(is_answered(honest), "the line is cut off after the theft")
    report = agent.stop()
    expect_equal(report.count("spoofing detected"), report.count(alarm), "all alarms, and those of the thief")
    lines = set(oracle.frames(access.capture, f"pppoe.code == {PADI}", *TAG))
    expect_equal(lines, {tag_of(LINES[0]), tag_of(LINES[1])}, "lines whose PADI reached the server")


CASES = {case.__name__: case for case in (session, echoed_tag, spoofing)}
