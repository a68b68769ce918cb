#!/usr/bin/python3
"""Stations that no ready program is: stations.py NAME INTERFACE [ARGUMENT ...]. Each runs in a namespace."""
import hashlib
import socket
import struct
import sys

PPPOE_DISCOVERY = 0x8863
PADI, PADO, PADR, PADS = 0x09, 0x07, 0x19, 0x65
SERVICE_NAME, AC_NAME, VENDOR_SPECIFIC = 0x0101, 0x0102, 0x0105
MEGABYTE = bytes(range(256)) * 4096


def packet_socket(interface, protocol):
    link = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(protocol))
    link.bind((interface, protocol))
    return link


def pppoe_echo(interface):
    """An access concentrator that gives back all tags of a request, the line's identity among them."""
    link = packet_socket(interface, PPPOE_DISCOVERY)
    mac = link.getsockname()[4]
    print("serving", flush=True)
    while True:
        frame = link.recv(2048)
        code, _, length = struct.unpack("!xBHH", frame[14:20])
        if code not in (PADI, PADR):
            continue
        tags = struct.pack("!HH", AC_NAME, 4) + b"ECHO" + frame[20:20 + length]
        answer, session = (PADO, 0) if code == PADI else (PADS, 77)
        link.send(frame[6:12] + mac + struct.pack("!HBBHH", PPPOE_DISCOVERY, 0x11, answer, session, len(tags)) + tags)


def onu_padi(interface):
    """A PADI that the ONU gave a tag of its own on the way; prints who answers."""
    link = packet_socket(interface, PPPOE_DISCOVERY)
    link.settimeout(3)
    tags = struct.pack("!HHHHI", SERVICE_NAME, 0, VENDOR_SPECIFIC, 9, 3561) + b"\x01\x03onu"
    header = b"\xff" * 6 + link.getsockname()[4] + struct.pack("!HBBHH", PPPOE_DISCOVERY, 0x11, PADI, 0, len(tags))
    link.send(header + tags)
    try:
        while link.recv(2048)[15] != PADO:
            pass
        print("answered")
    except TimeoutError:
        print("silence")


def tcp_echo(_, address):
    """Sends back what it gets, connection by connection."""
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    with socket.create_server((address, 7000), family=family) as server:
        print("serving", flush=True)
        while True:
            connection, _ = server.accept()
            with connection:
                while data := connection.recv(65536):
                    connection.sendall(data)


def tcp_transfer(_, address):
    """A megabyte to the echo and back."""
    came = hashlib.sha256()
    with socket.create_connection((address, 7000), timeout=30) as connection:
        for at in range(0, len(MEGABYTE), 65536):
            connection.sendall(MEGABYTE[at:at + 65536])
            left = 65536
            while left > 0:
                data = connection.recv(left)
                came.update(data)
                left -= len(data)
    print("same" if came.digest() == hashlib.sha256(MEGABYTE).digest() else "different")


def dhcp_flood(interface, count):
    """Discovers of as many clients, as fast as they go."""
    link = packet_socket(interface, 0x0003)
    for number in range(int(count)):
        mac = b"\x02\x00\x00" + struct.pack("!I", number)[1:]
        bootp = struct.pack("!BBBBIHHIIII16s192xI", 1, 1, 6, 0, number, 0, 0x8000, 0, 0, 0, 0, mac, 0x63825363)
        message = bootp + b"\x35\x01\x01\x37\x02\x01\x03\xff"
        udp = struct.pack("!HHHH", 68, 67, 8 + len(message), 0) + message
        ip = struct.pack("!BBHHHBBHI4s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0, 0, b"\xff" * 4)
        total = sum(struct.unpack("!10H", ip))
        total = ~((total & 0xFFFF) + (total >> 16)) & 0xFFFF
        ip = ip[:10] + struct.pack("!H", total) + ip[12:]
        link.send(b"\xff" * 6 + mac + b"\x08\x00" + ip + udp)
    print(f"sent {count}")


if __name__ == "__main__":
    STATIONS = {each.__name__: each for each in (pppoe_echo, onu_padi, tcp_echo, tcp_transfer, dhcp_flood)}
    STATIONS[sys.argv[1]](*sys.argv[2:])
