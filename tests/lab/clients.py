"""Real clients on a subscriber's interface, alike to use: start, renew, release, and the events they report."""
import re
import signal

from topology import wait_for

# The script that each client calls when something happens: it writes a line of events, and sets the address as the
# client means it. dhcpcd sets addresses itself.
HOOK = """#!/bin/sh
event=${reason:-$1}
address=${new_ip_address:-$ip}
echo "$event $address ${new_ip6_address:-$new_dhcp6_ia_na1_ia_addr1}\
 ${new_ip6_prefix:-$new_dhcp6_ia_pd1_prefix1}" >>EVENTS
[ CLIENT = dhcpcd ] && exit 0
case $event in
bound | BOUND | renew | RENEW | REBIND) ip address replace "$address/24" dev s0 ;;
deconfig | RELEASE | EXPIRE) ip -4 address flush dev s0 scope global ;;
esac
exit 0
"""
DHCLIENT_CONF = "initial-interval 1; backoff-cutoff 2; timeout 60; retry 2; select-timeout 0;\n"
DHCPCD_CONF = {4: "nodelay\nnoarp\nnoipv4ll\nipv4only\n", 6: "noipv6rs\nipv6only\nduid\nia_na 1\nia_pd 1 -\n"}

BOUND = {"bound", "BOUND", "BOUND6", "REBOOT", "REBOOT6"}
RENEWED = {"renew", "RENEW", "RENEW6", "REBIND", "REBIND6"}


class Client:
    def __init__(self, host, family=4):
        self.host = host
        self.family = family
        lab = host.lab
        base = f"{host.role}-{self.name}{family}"
        self.events_file = lab.file(base + ".events", "")
        self.lease_file = lab.file(base + ".leases", "")
        self.pid_file = lab.folder / (base + ".pid")
        self.hook = lab.file(base + ".hook", HOOK.replace("EVENTS", str(self.events_file))
                             .replace("CLIENT", self.name), 0o755)
        self.config = lab.file(base + ".conf", self.configuration())
        self.process = None

    def start(self):
        self.process = self.host.start(self.name + str(self.family), *self.command())
        return self

    def events(self, kinds):
        rows = (line.split(" ") for line in self.events_file.read_text().splitlines())
        return [tuple(row[1:]) for row in rows if row[0] in kinds]

    def leased(self):
        """What the client was given: (address, IPv6 address, IPv6 prefix)."""
        rows = self.events(BOUND)
        return tuple(next((row[i].split("/")[0] for row in reversed(rows) if row[i]), "") for i in range(3))

    def wait_bound(self, seconds=25):
        wait_for(lambda: self.events(BOUND), f"{self.name} on {self.host.role} to be given a lease", seconds)
        return self.leased()

    def wait_renewed(self, times, seconds=25):
        wait_for(lambda: len(self.events(RENEWED)) >= times, f"{self.name} on {self.host.role} to renew", seconds)

    def renew(self):
        """Does not wait for T1, where the client can be told not to."""

    def configuration(self):
        return ""


class Udhcpc(Client):
    name = "udhcpc"

    def command(self):
        return ["busybox", "udhcpc", "-f", "-t", "10", "-T", "2", "-A", "2", "-i", "s0", "-s", self.hook]

    def renew(self):
        self.process.send(signal.SIGUSR1)

    def release(self):
        self.process.send(signal.SIGUSR2)


class Dhclient(Client):
    name = "dhclient"

    def configuration(self):
        return DHCLIENT_CONF

    def arguments(self):
        return [f"-{self.family}", "-sf", self.hook, "-cf", self.config, "-lf", self.lease_file, "-pf", self.pid_file]

    def command(self):
        both = ["-N", "-P"] if self.family == 6 else []
        return ["dhclient", "-d", *both, *self.arguments(), "s0"]

    def release(self):
        both = ["-N", "-P"] if self.family == 6 else []
        self.host.run("timeout", "20", "dhclient", "-r", *both, *self.arguments(), "s0")


class Dhcpcd(Client):
    name = "dhcpcd"

    def configuration(self):
        return DHCPCD_CONF[self.family]

    def command(self):
        return ["dhcpcd", "-B", "-d", "-f", self.config, "-c", self.hook, "s0"]

    def renew(self):
        self.process.send(signal.SIGUSR1)

    def release(self):
        self.process.send(signal.SIGALRM)


CLIENTS4 = (Udhcpc, Dhclient, Dhcpcd)
CLIENTS6 = (Dhclient, Dhcpcd)


def udhcpc_once(host, tries=5):
    """One whole exchange: the address that was given, or None."""
    hook = host.lab.file(f"{host.role}-once.hook", "#!/bin/sh\n[ \"$1\" != bound ] || echo \"given $ip\"\n", 0o755)
    printed = host.run("busybox", "udhcpc", "-f", "-q", "-n", "-t", tries, "-T", "2", "-i", "s0", "-s", hook,
                       check=False)
    found = re.search(r"^given (\S+)$", printed, re.M)
    return found.group(1) if found else None


def pppoe_discovery(host, seconds=5):
    """The servers that answered, by name."""
    printed = host.run("pppoe-discovery", "-I", "s0", "-a", "1", "-t", seconds, check=False)
    return re.findall(r"^Access-Concentrator: (\S+)", printed, re.M)
