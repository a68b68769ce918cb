"""DHCPv6: address and prefix by Interface-ID and Remote-ID, and the relay's record in the lease file."""
import functools

import clients
import oracle
import servers
from agent import LINES, Agent
from topology import Access, expect, expect_equal, wait_for

SOLICIT, REQUEST, RENEW, RELEASE, RELAY_FORW = 1, 3, 5, 8, 12


def relayed(access, message, host):
    """What of a subscriber's messages of a kind reached the server."""
    source = host.link_local("s0")
    return oracle.frames(access.capture, f"dhcpv6.msgtype == {message} && ipv6.src == {source}", "dhcpv6.msgtype",
                         "dhcpv6.hopcount", "dhcpv6.linkaddr", "dhcpv6.peeraddr", "udp.srcport", "udp.dstport",
                         "udp.checksum.status")


def check_relayed(access, host):
    for message in (SOLICIT, REQUEST, RENEW, RELEASE):
        found = relayed(access, message, host)
        expect(found, f"no message of kind {message} of {host.role} reached the server")
        expected = (f"{RELAY_FORW},{message}", "0", "::", host.link_local("s0"), "547", "547", "1")
        for frame in found:
            expect_equal(frame, expected, "Relay-Forward: messages, hops, link, peer, ports, UDP checksum good")


def check_lease(server, address, host, line):
    relay = {"hop": 0, "link": "::", "options": "0x" + line.relay_options.upper(), "peer": host.link_local("s0")}
    expect_equal(server.record(address).get("relays"), [relay], f"the relay's record of {address}")


def life_of_a_lease(make_client, lab):
    access = Access(lab, 3)
    agent = Agent(access)
    server = servers.kea6(access, LINES).start()
    first, second, stranger = (make_client(host, 6).start() for host in access.subscribers)
    for client, address, prefix, line in ((first, servers.ADDRESS_ONE, servers.PREFIX_ONE, LINES[0]),
                                          (second, servers.ADDRESS_TWO, servers.PREFIX_TWO, LINES[1])):
        wait_for(lambda: all(client.leased()[1:]), f"address and prefix of {client.host.role}", 30)
        expect_equal(client.leased()[1:], (address, prefix), f"address and prefix of {client.host.role}")
        for given in (address, prefix):
            check_lease(server, given, client.host, line)
    wait_for(lambda: relayed(access, RENEW, first.host), "a renewal", interval=0.5)
    first.wait_renewed(1)
    check_lease(server, servers.ADDRESS_ONE, first.host, LINES[0])
    first.release()
    wait_for(lambda: not {servers.ADDRESS_ONE, servers.PREFIX_ONE} & set(server.leases()), "both to be given back")
    expect_equal([row for row in stranger.events(clients.BOUND) if any(row)], [], "leases of an unknown line")
    expect(relayed(access, SOLICIT, stranger.host), "the unknown line has asked nothing")
    check_relayed(access, first.host)
    expect_equal(oracle.frames(access.capture, "_ws.malformed", "frame.number"), [], "malformed frames")
    report = agent.stop()
    expect("dropped:" not in report.split("agent's own report")[0], f"the live host dropped frames:\n{report}")


CASES = {f"kea_{client.name}": functools.partial(life_of_a_lease, client) for client in clients.CLIENTS6}
