"""The access node's agent: the live host between the cables, its lines, and its configuration while it runs."""
import os
import pathlib
import subprocess
from typing import NamedTuple

from topology import PREFIX, expect, wait_for

BUILD = pathlib.Path(os.environ["LINE_ID_BUILD"])  # set by the runner

HEAD = """
[device]
olt_slot = 3
[agent]
pppoe_strip = true
pppoe_circuit_id_policy = "rebuild"
pppoe_remote_id_policy = "rebuild"
pppoe_spoofing_check = true
[[instance]]
id = 0
mode = "olt"
option82 = true
option18 = true
option37 = true
pppoe_plus = true
circuit_id = true
remote_id = true
format = "custom"
circuit_format = "%a eth %S/%p/%o:%s.%c"
remote_format = "%m"
option37_format = "%m"
ani = "lab-olt"
pppoe_anti_spoofing = true
pppoe_binding_count = 2
"""


class Line(NamedTuple):
    circuit_id: str
    remote_id: str
    option82: str       # the option's value, in hexadecimal digits
    relay_options: str  # options 18 and 37 of DHCPv6, the same way


# Line n is the subscriber interface sub<n>, PON 1 and ONU n; a tag that is not there is VLAN 4096.
LINES = (
    Line("lab-olt eth 3/1/1:4096.4096", "ONU-ONE",
         "011b6c61622d6f6c742065746820332f312f313a343039362e34303936" "02074f4e552d4f4e45",
         "0012001b6c61622d6f6c742065746820332f312f313a343039362e34303936" "0025000b00000edf4f4e552d4f4e45"),
    Line("lab-olt eth 3/1/2:4096.4096", "ONU-TWO",
         "011b6c61622d6f6c742065746820332f312f323a343039362e34303936" "02074f4e552d54574f",
         "0012001b6c61622d6f6c742065746820332f312f323a343039362e34303936" "0025000b00000edf4f4e552d54574f"),
    Line("lab-olt eth 3/1/3:4096.4096", "ONU-THREE",
         "011b6c61622d6f6c742065746820332f312f333a343039362e34303936" "02094f4e552d5448524545",
         "0012001b6c61622d6f6c742065746820332f312f333a343039362e34303936" "0025000d00000edf4f4e552d5448524545"),
)


def line_map(ports):
    rows = [f'[[line]]\nname = "{port}"\ninterface = "{port}"\npon = 1\nonu = {number}\nport = 1\n'
            f'onu_id = "{LINES[number - 1].remote_id}"\n' for number, port in enumerate(ports, 1)]
    return HEAD + "\n".join(rows)


class Agent:
    def __init__(self, access, *arguments):
        self.node = access.node
        self.lab = access.lab
        self.lines = self.lab.file("lines.toml", line_map(access.ports))
        self.environment = {**os.environ, "LINE_ID_IPC_PREFIX": f"{PREFIX}-{os.getpid()}"}
        self.process = self.node.start("lineid-host", BUILD / "lineid-host", "live", "--subscriber",
                                       ",".join(access.ports), "--uplink", "uplink", "--lines", self.lines, *arguments,
                                       env=self.environment)
        wait_for(lambda: self.is_ready(access.ports) or not self.process.running(), "the live host")
        expect(self.process.running(), f"the live host has ended:\n{self.process.output()}")

    def is_ready(self, ports):
        printed = self.process.output()
        return all(f"interface {port} is up" in printed for port in (*ports, "uplink"))

    def control(self, *words):
        """Configures the agent, as an operator does."""
        done = subprocess.run([BUILD / "lineidctl", *map(str, words)], env=self.environment, capture_output=True,
                              text=True, timeout=30)
        expect(done.returncode == 0, f"lineidctl {' '.join(map(str, words))}: {done.stdout}{done.stderr}")
        return done.stdout.strip()

    def stop(self):
        """Ends the host: what it reports."""
        code = self.process.stop()
        expect(code == 0, f"the live host ended with {code}:\n{self.process.output()}")
        return self.process.output()
