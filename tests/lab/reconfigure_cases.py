"""The agent is configured anew while clients come and go."""
import clients
import oracle
import servers
from agent import LINES, Agent
from bridge_cases import Exchanges
from topology import Access, expect, expect_equal

IDENTITY = ("dhcp.option.agent_information_option.agent_circuit_id",
            "dhcp.option.agent_information_option.agent_remote_id")
OWN, NONE = LINES[0].circuit_id, ""
CTC = "0 0/0/0:4096.4096 lab-olt/0/0/3/0/1/ONU-ONE GP"

# What an operator sets, and what the first line's messages carry from then on.
STEPS = (
    (None, OWN, "ONU-ONE"),
    (("option82", "off"), NONE, NONE),
    (("option82", "on"), OWN, "ONU-ONE"),
    (("option82-transparent", "on"), NONE, NONE),
    (("option82-transparent", "off"), OWN, "ONU-ONE"),
    (("circuit-id-format", "ctc"), CTC, "ONU-ONE"),
    (("remote-id", "off"), CTC, NONE),
    (("circuit-id-format", "custom"), OWN, NONE),
    (("circuit-id-template", "%a%_port%_%P"), "lab-olt port 1", NONE),
    (("remote-id", "on"), "lab-olt port 1", "ONU-ONE"),
    (("remote-id-template", "%a.%m"), "lab-olt port 1", "lab-olt.ONU-ONE"),
)


def identities(access, host):
    """Of each of a host's messages at the server."""
    rows = oracle.frames(access.capture, f"dhcp.type == 1 && eth.src == {host.mac('s0')}", *IDENTITY)
    return [tuple(bytes.fromhex(text).decode() for text in row) for row in rows]


def under_way(lab):
    """No exchange fails, and each message has the identity of its moment."""
    access = Access(lab, 3)
    agent = Agent(access)
    servers.kea4_for_all(access).start()
    first, *others = access.subscribers
    with Exchanges(*others) as exchanges:
        for setting, circuit_id, remote_id in STEPS:
            if setting is not None:
                agent.control("set", *setting, "--oltid", "0")
            before = len(identities(access, first))
            for _ in range(2):
                expect(clients.udhcpc_once(first), f"no lease after {setting}")
            found = set(identities(access, first)[before:])
            expect_equal(found, {(circuit_id, remote_id)}, f"identity after {setting}")
    exchanges.check(len(STEPS))
    agent.stop()
    for number, host in enumerate(others, 2):
        remote_id = LINES[number - 1].remote_id
        known = {text.replace("3/1/1", f"3/1/{number}").replace("ONU-ONE", remote_id) for _, text, _ in STEPS}
        found = {circuit_id for circuit_id, _ in identities(access, host)}
        expect(found <= known, f"Circuit-IDs of {host.role}: {found - known} are not its own")


CASES = {"under_way": under_way}
