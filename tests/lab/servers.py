"""Servers behind the uplink, which choose by line identity alone, and what they have on record."""
import csv
import json

from topology import LabFailure, wait_for

# Leases are short, so that clients renew (T1) and rebind (T2) while a case runs.
T1, T2, LIFETIME = 4, 8, 24

POOL_ONE = "198.51.100.11"
POOL_TWO = "198.51.100.22"
ADDRESS_ONE, ADDRESS_TWO = "2001:db8:1::111", "2001:db8:1::222"
PREFIX_ONE, PREFIX_TWO = "2001:db8:1100::", "2001:db8:2200::"


class Server:
    started_with = ""  # what it prints when it serves

    def __init__(self, access, name, environment=None):
        self.host = access.server
        self.folder = access.lab.folder
        self.name = name
        self.environment = environment
        self.process = None

    def start(self):
        self.process = self.host.start(self.name, *self.command(), env=self.environment)
        wait_for(self.serves, f"{self.name} to start", 20)
        return self

    def serves(self):
        if not self.process.running():
            raise LabFailure(f"{self.name} has ended:\n{self.process.output()}")
        return self.started_with in self.process.output()


class Kea(Server):
    def __init__(self, access, family, config):
        super().__init__(access, f"kea-dhcp{family}", {
            "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "KEA_PIDFILE_DIR": str(access.lab.folder),
            "KEA_LOCKFILE_DIR": str(access.lab.folder)})
        self.family = family
        self.started_with = f"DHCP{family}_STARTED"
        self.lease_file = self.folder / f"kea-leases{family}.csv"
        self.config = access.lab.file(f"kea{family}.json", json.dumps({f"Dhcp{family}": {
            "lease-database": {"type": "memfile", "persist": True, "name": str(self.lease_file), "lfc-interval": 0},
            "renew-timer": T1, "rebind-timer": T2, "valid-lifetime": LIFETIME, "store-extended-info": True,
            "loggers": [{"name": f"kea-dhcp{family}", "severity": "INFO",
                         "output_options": [{"output": "stdout", "flush": True}]}], **config}}, indent=1))

    def command(self):
        return [self.name, "-c", self.config]

    def leases(self):
        """The last row for each address, as a dictionary; None when it was given back."""
        if not self.lease_file.exists():
            return {}
        with self.lease_file.open() as rows:
            found = {row["address"]: row for row in csv.DictReader(rows) if row.get("user_context") is not None}
        return {address: row for address, row in found.items() if int(row["valid_lifetime"]) > 0}

    def record(self, address):
        """What the server keeps of how the request arrived."""
        row = self.leases().get(address)
        context = (row or {}).get("user_context", "").replace("&#x2c", ",")
        return json.loads(context)["ISC"] if context else {}


def kea4(access, lines):
    """Line one by a class and its pool, line two by a reservation; no address for any other."""
    return Kea(access, 4, {
        "interfaces-config": {"interfaces": ["v0"], "dhcp-socket-type": "raw"},
        "client-classes": [{"name": "one", "test": f"relay4[1].hex == '{lines[0].circuit_id}' and "
                                                   f"relay4[2].hex == '{lines[0].remote_id}'"}],
        "host-reservation-identifiers": ["circuit-id"],
        "subnet4": [{"id": 1, "subnet": "198.51.100.0/24", "pools": [
            {"pool": f"{POOL_ONE} - {POOL_ONE}", "client-class": "one"}],
            "reservations": [{"circuit-id": f"'{lines[1].circuit_id}'", "ip-address": POOL_TWO}]}]})


def kea4_for_all(access):
    """An address for everybody, whatever the frame says of its line."""
    return Kea(access, 4, {
        "interfaces-config": {"interfaces": ["v0"], "dhcp-socket-type": "raw"},
        "subnet4": [{"id": 1, "subnet": "198.51.100.0/24", "pools": [{"pool": "198.51.100.100 - 198.51.100.199"}]}]})


def kea6(access, lines):
    """Line one by its Interface-ID, line two by its Remote-ID: an address and a prefix each."""
    chosen = [("one", f"relay6[0].option[18].hex == '{lines[0].circuit_id}'", ADDRESS_ONE, PREFIX_ONE),
              ("two", f"relay6[0].option[37].hex == concat(0x00000edf, '{lines[1].remote_id}')", ADDRESS_TWO,
               PREFIX_TWO)]
    return Kea(access, 6, {
        "interfaces-config": {"interfaces": ["v0"]}, "server-id": {"type": "LL", "persist": False},
        "preferred-lifetime": LIFETIME - 4,
        "client-classes": [{"name": name, "test": test} for name, test, _, _ in chosen],
        "subnet6": [{"id": 1, "subnet": "2001:db8:1::/64", "interface": "v0",
                     "pools": [{"pool": f"{address} - {address}", "client-class": name}
                               for name, _, address, _ in chosen],
                     "pd-pools": [{"prefix": prefix, "prefix-len": 56, "delegated-len": 56, "client-class": name}
                                  for name, _, _, prefix in chosen]}]})


class Dnsmasq(Server):
    started_with = "DHCP, sockets bound exclusively"

    def __init__(self, access, lines):
        super().__init__(access, "dnsmasq")
        self.lease_file = self.folder / "dnsmasq.leases"
        self.config = access.lab.file("dnsmasq.conf", f"""
port=0
no-ping
bind-interfaces
interface=v0
log-dhcp
dhcp-authoritative
dhcp-leasefile={self.lease_file}
dhcp-circuitid=set:one,"{lines[0].circuit_id}"
dhcp-remoteid=set:two,{lines[1].remote_id}
dhcp-range=tag:one,{POOL_ONE},{POOL_ONE},255.255.255.0,120
dhcp-range=tag:two,{POOL_TWO},{POOL_TWO},255.255.255.0,120
dhcp-option=option:T1,{T1}
dhcp-option=option:T2,{T2}
""")

    def command(self):
        return ["dnsmasq", "--keep-in-foreground", "--user=root", "--log-facility=-", f"--conf-file={self.config}"]

    def leases(self):
        rows = self.lease_file.read_text().splitlines() if self.lease_file.exists() else []
        return {row.split()[2]: row for row in rows}


class PppoeServer(Server):
    """To PADS: behind it a stub stands for PPP, which the kernel need not have."""

    def __init__(self, access):
        super().__init__(access, "pppoe-server")
        self.options = access.lab.file("pppoe.options", "")
        self.stub = access.lab.file("pppd-stub", "#!/bin/sh\nexec sleep 60\n", 0o755)

    def command(self):
        return ["pppoe-server", "-F", "-I", "v0", "-C", "AC1", "-S", "isp", "-L", "10.0.0.1", "-R", "10.0.0.10", "-N",
                "8", "-O", self.options, "-q", self.stub]

    def serves(self):
        return " 8863 " in self.host.run("cat", "/proc/net/packet")  # it says nothing, but listens
