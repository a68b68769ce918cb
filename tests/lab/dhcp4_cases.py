"""DHCPv4: which address a line is given, and what the server has on record of the line."""
import functools
import time

import clients
import oracle
import servers
from agent import LINES, Agent
from topology import Access, expect, expect_equal, wait_for

REQUEST, ACK, RELEASE = 3, 5, 7
FIELDS = ("dhcp.option.agent_information_option.agent_circuit_id",
          "dhcp.option.agent_information_option.agent_remote_id", "dhcp.option.type", "ip.checksum.status",
          "udp.checksum.status")


def sent(access, host, condition):
    """The client's messages as they reached the server."""
    mine = f"dhcp.type == 1 && !icmp && dhcp.hw.mac_addr == {host.mac('s0')}"
    return oracle.frames(access.capture, f"{mine} && {condition}", *FIELDS)


def check_frames(access, host, line):
    """All of a client's messages carry its line's identity, in a whole frame, as the last option."""
    found = sent(access, host, "dhcp")
    expect(found, f"nothing of {host.role} reached the server")
    for circuit_id, remote_id, options, ip_checksum, udp_checksum in found:
        expect_equal(bytes.fromhex(circuit_id).decode(), line.circuit_id, f"Circuit-ID of {host.role}")
        expect_equal(bytes.fromhex(remote_id).decode(), line.remote_id, f"Remote-ID of {host.role}")
        expect_equal(options.split(",")[-2:], ["82", "0"], "the last options")
        expect_equal((ip_checksum, udp_checksum), ("1", "3"), "IP checksum good, UDP checksum absent")
    expect_equal(oracle.frames(access.capture, "_ws.malformed", "frame.number"), [], "malformed frames")


def check_record(server, address, line):
    if isinstance(server, servers.Kea):
        found = server.record(address).get("relay-agent-info")
        expect_equal(found, "0x" + line.option82.upper(), "the lease's Option 82")
    else:
        expect(address in server.leases(), f"{address} is not among the leases")


def rebind(access, client):
    """What the subscriber sends to its server alone is lost, until it asks everybody."""
    renewals = len(client.events(clients.RENEWED))
    client.host.run("nft", "add table ip lab; add chain ip lab out { type filter hook output priority 0; }; "
                           "add rule ip lab out ip daddr 198.51.100.1 udp dport 67 drop")
    client.renew()
    client.wait_renewed(renewals + 1)
    client.host.run("nft", "delete table ip lab")
    asked = f"dhcp.option.dhcp == {REQUEST} && ip.dst == 255.255.255.255 && dhcp.ip.client == {client.leased()[0]}"
    expect(sent(access, client.host, asked), "no rebinding request was seen")


def life_of_a_lease(make_server, make_client, lab):
    access = Access(lab, 3)
    agent = Agent(access)
    server = make_server(access, LINES).start()
    first, second, stranger = (make_client(host).start() for host in access.subscribers)
    for client, address, line in ((first, servers.POOL_ONE, LINES[0]), (second, servers.POOL_TWO, LINES[1])):
        client.wait_bound()
        expect_equal(client.leased()[0], address, f"address of {client.host.role}")
        wait_for(lambda: client.host.addresses("s0") == [address], f"{address} on {client.host.role}", 5)
        check_record(server, address, line)

    time.sleep(0.5)  # the clients still run their scripts
    first.renew()
    unicast = f"dhcp.option.dhcp == {REQUEST} && ip.dst == 198.51.100.1"
    wait_for(lambda: sent(access, first.host, unicast), "a renewing request", interval=0.5)
    first.wait_renewed(1)
    rebind(access, first)
    check_record(server, servers.POOL_ONE, LINES[0])

    first.release()
    wait_for(lambda: servers.POOL_ONE not in server.leases(), "the lease to be given back")
    expect(sent(access, first.host, f"dhcp.option.dhcp == {RELEASE}"), "no release was seen")
    expect(stranger.process.running(), "the client of the unknown line has ended")
    expect_equal(stranger.events(clients.BOUND), [], "leases of a line that the server does not know")
    for client, line in zip((first, second, stranger), LINES):
        check_frames(access, client.host, line)
    report = agent.stop()
    expect("dropped:" not in report.split("agent's own report")[0], f"the live host dropped frames:\n{report}")


CASES = {f"{server}_{client.name}": functools.partial(life_of_a_lease, make_server, client)
         for server, make_server in (("kea", servers.kea4), ("dnsmasq", servers.Dnsmasq))
         for client in clients.CLIENTS4}
