"""What crossed a cable, as an independent analyser reads it from a capture."""
import subprocess


def tshark(capture, *arguments):
    done = subprocess.run(["tshark", "-r", str(capture), "-n", "-o", "ip.check_checksum:TRUE", "-o",
                           "udp.check_checksum:TRUE", *arguments], capture_output=True, text=True, timeout=60)
    return done.stdout # a capture that is still written to ends within a frame, which is no failure


def frames(capture, display_filter, *fields):
    """A tuple of the fields' texts for each frame that the filter takes; a field without a value is empty."""
    wanted = [word for field in fields for word in ("-e", field)]
    lines = tshark(capture, "-Y", display_filter, "-T", "fields", "-E", "separator=|", *wanted).splitlines()
    return [tuple(line.split("|")) for line in lines]


DECODED = ("frame.number", "frame.time_relative", "_ws.col.Source", "_ws.col.Destination", "vlan.id", "_ws.col.Info",
           "dhcp.option.agent_information_option.agent_circuit_id", "dhcpv6.interface_id", "pppoed.tags.circuit_id",
           "_ws.expert.message")


def decoding(capture, limit=100):
    """The subscriber protocols of a capture, a line for each frame."""
    rows = frames(capture, "dhcp or dhcpv6 or pppoed", *DECODED)
    more = [f"... and {len(rows) - limit} frames more"] if len(rows) > limit else []
    return "\n".join(["  ".join(filter(None, row)) for row in rows[:limit]] + more)
