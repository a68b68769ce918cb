"""Tagged subscribers: DHCPv4 through the agent, and full frames past it."""
import functools
import time

import clients
import oracle
import servers
from agent import LINES, Agent
from topology import Access, expect_equal, put_into_vlans


def tagged(make_server, outer, inner, vlans, lab):
    """`vlans` as the Circuit-ID gives them: a single tag is the inner one."""
    access = Access(lab, 1)
    host = access.subscribers[0]
    for end, interface in ((host, "s0"), (access.server, "v0")):
        put_into_vlans(end, interface, outer, inner)
        end.run("ip", "link", "set", "dev", interface, "mtu", "1504")  # the second tag's room
    agent = Agent(access)
    line = LINES[0]._replace(circuit_id=f"lab-olt eth 3/1/1:{vlans}")
    server = make_server(access, (line, LINES[1])).start()
    client = clients.Udhcpc(host).start()
    client.wait_bound()
    time.sleep(0.5)  # it still runs its script
    client.renew()
    client.wait_renewed(1)
    expect_equal(client.leased()[0], servers.POOL_ONE, "address of the tagged line")
    printed = host.run("ping", "-c", "2", "-M", "do", "-s", "1472", "198.51.100.1")
    expect_equal("0% packet loss" in printed, True, "full frames cross")
    agent.stop()
    rows = oracle.frames(access.capture, f"dhcp.type == 1 && eth.src == {host.mac('s0')}", "vlan.id",
                         "dhcp.option.agent_information_option.agent_circuit_id", "ip.checksum.status")
    expect_equal(set(rows), {(f"{outer},{inner}" if inner else f"{outer}", line.circuit_id.encode().hex(), "1")},
                 "tags, Circuit-ID and good IP checksum of all messages")


CASES = {
    "kea_single": functools.partial(tagged, servers.kea4, 100, 0, "4096.100"),
    "dnsmasq_single": functools.partial(tagged, servers.Dnsmasq, 100, 0, "4096.100"),
    "dnsmasq_double": functools.partial(tagged, servers.Dnsmasq, 200, 7, "200.7"),
}
