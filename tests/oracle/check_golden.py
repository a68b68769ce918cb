#!/usr/bin/env python3
"""Has tshark decode what the agent rebuilt, and compares it with what was meant: check_golden.py [EMULATOR...] GOLDEN_FRAMES"""
import pathlib
import subprocess
import sys
import tempfile

FIELDS = [
    "frame.number", "_ws.malformed", "_ws.expert.message", "vlan.id", "ip.checksum.status", "udp.checksum.status",
    "dhcp.option.agent_information_option.agent_circuit_id", "dhcp.option.agent_information_option.agent_remote_id",
    "pppoed.tags.vendor_id", "pppoed.tags.circuit_id", "pppoed.tags.remote_id",
    "dhcpv6.msgtype", "dhcpv6.interface_id", "dhcpv6.remoteid.enterprise", "dhcpv6.remoteid_enterprise_id",
]
CHECKSUM_GOOD, CHECKSUM_NOT_PRESENT = "1", "3"


def text(value):
    """A field of octets, as tshark prints it (hexadecimal, with or without colons), as text."""
    try:
        return bytes.fromhex(value.replace(":", "")).decode("latin-1")
    except ValueError:
        return value


def faults_of(row, found):
    protocol, tags, circuit, remote, _ = row
    wanted = {"_ws.malformed": ""}
    if protocol == "dhcp4":
        wanted |= {"ip.checksum.status": CHECKSUM_GOOD, "udp.checksum.status": CHECKSUM_NOT_PRESENT}
        ids = [text(found["dhcp.option.agent_information_option.agent_circuit_id"]),
               text(found["dhcp.option.agent_information_option.agent_remote_id"])]
    elif protocol == "pppoe":
        wanted |= {"pppoed.tags.vendor_id": "3561"}
        ids = [found["pppoed.tags.circuit_id"], found["pppoed.tags.remote_id"]]
    else:
        wanted |= {"udp.checksum.status": CHECKSUM_GOOD}
        wanted |= {"dhcpv6.remoteid.enterprise": "3807"} if circuit else {"dhcpv6.msgtype": "7"}
        ids = [text(found["dhcpv6.interface_id"]), text(found["dhcpv6.remoteid_enterprise_id"])]
    for field, value in wanted.items():
        if found[field] != value:
            yield f"{field} is {found[field]!r}, not {value!r}"
    if ids != [circuit, remote]:
        yield f"identifiers are {ids}, not {[circuit, remote]}"
    if len([v for v in found["vlan.id"].split(",") if v]) + ("802.1ad" in row[4]) < int(tags):
        yield f"VLANs are {found['vlan.id']!r}, not {tags} tags"


def main():
    with tempfile.TemporaryDirectory() as folder:
        capture, table = pathlib.Path(folder, "golden.pcap"), pathlib.Path(folder, "golden.tsv")
        subprocess.run([*sys.argv[1:], capture, table], check=True, stdout=subprocess.DEVNULL)
        rows = [line.split("\t") for line in table.read_text().splitlines()]
        command = ["tshark", "-r", capture, "-n", "-o", "ip.check_checksum:TRUE", "-o", "udp.check_checksum:TRUE",
                   "-T", "fields", "-E", "separator=|"]
        for field in FIELDS:
            command += ["-e", field]
        printed = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    bad = 0
    for row, line in zip(rows, printed, strict=True):
        for fault in faults_of(row, dict(zip(FIELDS, line.split("|")))):
            bad += 1
            print(f"{row[4]}, {row[1]} tags: {fault}")
    print(f"{len(rows)} frames decoded, {bad} faults")
    return 1 if bad or len(rows) < 50 else 0


sys.exit(main())
