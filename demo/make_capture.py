#!/usr/bin/env python3
"""Writes demo/subscribers.pcap: a morning of four subscribers, the same octets at each run.

The functions build frames from the outside in: eth(..., payload) around ipv4(..., payload) and so on.
"""
import pathlib
import struct
import sys

SERVER = "00:00:5e:00:53:fe"
BROADCAST = "ff:ff:ff:ff:ff:ff"
ALL_AGENTS = "33:33:00:01:00:02"  # ff02::1:2
LINK_LOCAL_SERVER = "fe80::200:5eff:fe00:53fe"

DISCOVER, OFFER, REQUEST, ACK = 1, 2, 3, 5
SOLICIT, ADVERTISE, REQUEST6, REPLY, RELAY_REPL = 1, 2, 3, 7, 13
PADI, PADO, PADR, PADS, PADT = 0x09, 0x07, 0x19, 0x65, 0xA7


def mac(text):
    return bytes.fromhex(text.replace(":", ""))


def checksum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def ipv4_address(text):
    return bytes(int(part) for part in text.split("."))


def ipv6_address(text):
    head, _, tail = text.partition("::")
    words = [[int(word, 16) for word in side.split(":") if word] for side in (head, tail)]
    middle = [0] * (8 - len(words[0]) - len(words[1]))
    return struct.pack("!8H", *words[0], *middle, *words[1])


def eth(source, destination, ether_type, payload, vlans=()):
    """Two tags: the outer one is a service tag."""
    tags = b"".join(struct.pack("!HH", 0x88A8 if i == 0 and len(vlans) > 1 else 0x8100, vlan)
                    for i, vlan in enumerate(vlans))
    return mac(destination) + mac(source) + tags + struct.pack("!H", ether_type) + payload


def udp(source_port, destination_port, payload, pseudo_header):
    length = 8 + len(payload)
    header = struct.pack("!HHHH", source_port, destination_port, length, 0)
    check = checksum(pseudo_header + header + payload) or 0xFFFF
    return header[:6] + struct.pack("!H", check) + payload


def ipv4(source, destination, source_port, destination_port, payload):
    addresses = ipv4_address(source) + ipv4_address(destination)
    body = udp(source_port, destination_port, payload, addresses + struct.pack("!HH", 17, 8 + len(payload)))
    header = struct.pack("!BBHHHBBH", 0x45, 0, 20 + len(body), 1, 0, 64, 17, 0) + addresses
    return header[:10] + struct.pack("!H", checksum(header)) + header[12:] + body


def ipv6(source, destination, source_port, destination_port, payload):
    addresses = ipv6_address(source) + ipv6_address(destination)
    body = udp(source_port, destination_port, payload, addresses + struct.pack("!IHBB", 8 + len(payload), 0, 0, 17))
    return struct.pack("!IHBB", 0x60000000, len(body), 17, 64) + addresses + body


def option(code, value):
    return bytes([code, len(value)]) + value


def bootp(op, client, message_type, options=b"", address="0.0.0.0", xid=0x5E005300):
    head = struct.pack("!BBBBIHH", op, 1, 6, 0, xid, 0, 0x8000)
    addresses = ipv4_address("0.0.0.0") + ipv4_address(address) + bytes(8)
    return (head + addresses + mac(client) + bytes(10 + 64 + 128) + b"\x63\x82\x53\x63" +
            option(53, bytes([message_type])) + options + b"\xff")


def dhcp4_up(client, message_type, options=b"", op=1, vlans=()):
    packet = ipv4("0.0.0.0", "255.255.255.255", 68, 67, bootp(op, client, message_type, options))
    return eth(client, BROADCAST, 0x0800, packet, vlans)


def dhcp4_down(client, message_type, address, options=b"", vlans=()):
    options = option(54, ipv4_address("192.0.2.1")) + option(51, struct.pack("!I", 3600)) + options
    packet = ipv4("192.0.2.1", "255.255.255.255", 67, 68, bootp(2, client, message_type, options, address))
    return eth(SERVER, BROADCAST, 0x0800, packet, vlans)


def option82(circuit_id, remote_id):
    return option(82, option(1, circuit_id) + option(2, remote_id))


def pppoe(code, source, destination, tags, session=0, vlans=()):
    body = b"".join(struct.pack("!HH", tag, len(value)) + value for tag, value in tags)
    return eth(source, destination, 0x8863, struct.pack("!BBHH", 0x11, code, session, len(body)) + body, vlans)


def onu_tag(onu, port):
    """What an ONU says of itself."""
    return 0x5516, struct.pack("!HH", onu, port)


def vendor_tag(circuit_id, remote_id):
    return 0x0105, struct.pack("!I", 3561) + option(1, circuit_id) + option(2, remote_id)


def option6(code, value):
    return struct.pack("!HH", code, len(value)) + value


def dhcp6(message_type, client, options=b""):
    return (bytes([message_type]) + bytes.fromhex("5e0053") + option6(1, b"\x00\x03\x00\x01" + mac(client)) + options)


def link_local(text):
    octets = mac(text)
    return "fe80::%02x%02x:%02xff:fe%02x:%02x%02x" % (octets[0] ^ 2, *octets[1:])


def dhcp6_up(client, message_type, vlans=()):
    message = dhcp6(message_type, client, option6(3, bytes.fromhex("000000010000000000000000")))
    return eth(client, ALL_AGENTS, 0x86DD, ipv6(link_local(client), "ff02::1:2", 546, 547, message), vlans)


def dhcp6_down(client, message_type, vlans=()):
    lease = ipv6_address("2001:db8::100") + struct.pack("!II", 1800, 3600)
    server_id = option6(2, b"\x00\x03\x00\x01" + mac(SERVER))
    message = dhcp6(message_type, client, server_id + option6(3, bytes.fromhex("000000010000038400000708") +
                                                              option6(5, lease)))
    reply = (bytes([RELAY_REPL, 0]) + bytes(16) + ipv6_address(link_local(client)) + option6(18, b"port 1") +
             option6(9, message))
    return eth(SERVER, client, 0x86DD, ipv6(LINK_LOCAL_SERVER, link_local(client), 547, 547, reply), vlans)


def arp(operation, source, target, sender_ip, target_ip, vlans=()):
    body = (struct.pack("!HHBBH", 1, 0x0800, 6, 4, operation) + mac(source) + ipv4_address(sender_ip) + mac(target) +
            ipv4_address(target_ip))
    return eth(source, BROADCAST if operation == 1 else target, 0x0806, body, vlans)


def pcap(frames, link_type=1, start=1735689600):
    """Nanosecond pcap; the frames are 1.000001001 s apart."""
    out = [struct.pack("<IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 262144, link_type)]
    for i, frame in enumerate(frames):
        nanoseconds = i * 1_000_001_001
        out.append(struct.pack("<IIII", start + nanoseconds // 10**9, nanoseconds % 10**9, len(frame), len(frame)))
        out.append(frame)
    return b"".join(out)


def morning():
    one, two, three, thief = ("00:00:5e:00:53:%02x" % i for i in (1, 2, 3, 4))
    untagged, tagged, stacked, neighbour = (), (100,), (200, 7), (200, 8)
    frames = [arp(1, one, "00:00:00:00:00:00", "192.0.2.11", "192.0.2.1", untagged)]
    # A lease on each line: no tag, one tag, two tags.
    for client, address, vlans in ((one, "192.0.2.11", untagged), (two, "192.0.2.12", tagged),
                                   (three, "192.0.2.13", stacked)):
        wanted = option(50, ipv4_address(address))
        frames += [dhcp4_up(client, DISCOVER, vlans=vlans), dhcp4_down(client, OFFER, address, vlans=vlans),
                   dhcp4_up(client, REQUEST, wanted, vlans=vlans), dhcp4_down(client, ACK, address, vlans=vlans)]
    frames.append(arp(2, SERVER, one, "192.0.2.1", "192.0.2.11", untagged))
    # A home gateway that writes an Option 82 of its own, and a subscriber who plays the server.
    frames.append(dhcp4_up(three, DISCOVER, option82(b"mine", b"also mine"), vlans=stacked))
    frames.append(dhcp4_up(two, OFFER, op=2, vlans=tagged))
    # DHCPv6: the replies come from the server wrapped, as it was asked.
    for asked, answered in ((SOLICIT, ADVERTISE), (REQUEST6, REPLY)):
        frames += [dhcp6_up(two, asked, tagged), dhcp6_down(two, answered, tagged)]
    # A PPPoE session behind an ONU that adds its information tag; the concentrator echoes the vendor tag.
    service, cookie, onu = (0x0101, b""), (0x0104, b"cookie"), onu_tag(3, 1)
    echoed = vendor_tag(b"0 0/0/0:200.7 demo-olt/1/2/3/0/1/ONU0003 GP", b"ONU0003")
    frames += [
        pppoe(PADI, three, BROADCAST, [service, onu], vlans=stacked),
        pppoe(PADO, SERVER, three, [service, (0x0102, b"AC1"), cookie, echoed], vlans=stacked),
        pppoe(PADR, three, SERVER, [service, cookie, onu], vlans=stacked),
        pppoe(PADS, SERVER, three, [service, echoed], session=1, vlans=stacked),
        # The neighbour borrows the address while its owner is bound.
        pppoe(PADI, three, BROADCAST, [service, onu_tag(4, 2)], vlans=neighbour),
        pppoe(PADI, thief, BROADCAST, [service, onu_tag(4, 2)], vlans=neighbour),
        pppoe(PADT, three, SERVER, [onu], session=1, vlans=stacked),
    ]
    frames.append(arp(1, three, "00:00:00:00:00:00", "192.0.2.13", "192.0.2.1", stacked))
    return frames


if __name__ == "__main__":
    target = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).with_name("subscribers.pcap")
    target.write_bytes(pcap(morning()))
    print(f"{target}: {len(morning())} frames")
