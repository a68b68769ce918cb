"""A case's network: namespaces joined by virtual cables, the processes inside them, and their removal."""
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

PREFIX = "lineidlab"
STATIONS = pathlib.Path(__file__).with_name("stations.py")
SHARED = pathlib.Path("/dev/shm")


class LabFailure(Exception):
    """What a case expected did not come about."""


def expect(good, what):
    if not good:
        raise LabFailure(what)


def expect_equal(found, expected, what):
    expect(found == expected, f"{what}:\n  found    {found!r}\n  expected {expected!r}")


def wait_for(check, what, seconds=30.0, interval=0.1):
    """The first true result of `check`; fails after `seconds`."""
    end = time.monotonic() + seconds
    while not (found := check()):
        expect(time.monotonic() < end, f"waited {seconds:g} s for {what}")
        time.sleep(interval)
    return found


def run(*command, check=True):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=60)
    expect(not check or done.returncode == 0, f"{' '.join(map(str, command))}: {done.stdout}{done.stderr}")
    return done.stdout


class Process:
    """A program in a namespace. What it prints goes to a file of the case's folder."""

    def __init__(self, command, log, **options):
        self.log = log
        with open(log, "ab") as out:
            self.popen = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=out,
                                          stderr=out, start_new_session=True, **options)

    def output(self):
        return self.log.read_text(errors="replace")

    def send(self, number):
        self.popen.send_signal(number)

    def running(self):
        return self.popen.poll() is None

    def wait(self, seconds=20.0):
        try:
            return self.popen.wait(seconds)
        except subprocess.TimeoutExpired:
            raise LabFailure(f"{self.log.stem} does not end:\n{self.output()}") from None

    def stop(self, number=signal.SIGTERM):
        if self.running():
            self.send(number)
        return self.wait()


class Namespace:
    def __init__(self, lab, role):
        self.lab = lab
        self.role = role
        self.name = f"{PREFIX}-{os.getpid()}-{role}"
        run("ip", "netns", "add", self.name)
        lab.namespaces.append(self)
        self.run("ip", "link", "set", "dev", "lo", "up")

    def command(self, *words):
        # Programs see run-time folders of their own, so that none of them meets the machine's.
        private = "for d in /run /var/lib/dhcpcd; do [ ! -d $d ] || mount -t tmpfs lab $d; done; exec \"$@\""
        return ["ip", "netns", "exec", self.name, "sh", "-c", private, "sh", *map(str, words)]

    def run(self, *words, check=True):
        return run(*self.command(*words), check=check)

    def start(self, name, *words, **options):
        return Process(self.command(*words), self.lab.folder / f"{self.role}-{name}.log", **options)

    def sysctl(self, key, value):
        self.run("sysctl", "-q", "-w", f"{key}={value}")

    def mac(self, interface):
        return self.run("cat", f"/sys/class/net/{interface}/address").strip()

    def link_local(self, interface):
        words = self.run("ip", "-6", "-o", "address", "show", "dev", interface, "scope", "link").split()
        return words[words.index("inet6") + 1].split("/")[0]

    def addresses(self, interface, family="-4"):
        words = self.run("ip", family, "-o", "address", "show", "dev", interface, "scope", "global").split()
        return [words[i + 1].split("/")[0] for i, word in enumerate(words) if word in ("inet", "inet6")]

    def capture(self, interface):
        """Starts a capture; its file is of the case's folder."""
        file = self.lab.folder / f"{self.role}-{interface}.pcap"
        process = self.start(f"tcpdump-{interface}", "tcpdump", "-i", interface, "-U", "--immediate-mode", "-Z", "root",
                             "-s", "0", "-w", file)
        wait_for(lambda: "listening on" in process.output(), f"tcpdump on {interface}")
        self.lab.captures.append(file)
        return file

    def remove(self):
        for number in (signal.SIGTERM, signal.SIGKILL):
            end = time.monotonic() + 3
            for pid in self.pids():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGCONT)
                    os.kill(pid, number)
            while self.pids() and time.monotonic() < end:
                time.sleep(0.05)
        run("ip", "netns", "delete", self.name, check=False)

    def pids(self):
        return [int(pid) for pid in run("ip", "netns", "pids", self.name, check=False).split()]


class Lab:
    """The network of one case; a context manager that takes everything down again."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.namespaces = []
        self.captures = []

    def __enter__(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        return self

    def __exit__(self, *_):
        for namespace in self.namespaces:
            namespace.remove()
        self.namespaces.clear()
        remove_shared(os.getpid())

    def file(self, name, text, mode=0o644):
        path = self.folder / name
        path.write_text(text)
        path.chmod(mode)
        return path


def cable(a, name_a, b, name_b):
    run("ip", "link", "add", name_a, "netns", a.name, "type", "veth", "peer", "name", name_b, "netns", b.name)
    for side, name in ((a, name_a), (b, name_b)):
        side.run("ip", "link", "set", "dev", name, "up")


def put_into_vlans(host, interface, outer, inner=0):
    """The host's frames are tagged on the cable; the host itself knows nothing of it."""
    program = host.lab.folder / f"{host.role}-vlan.o"
    run("clang", "-target", "bpf", "-O2", "-Wall", "-Werror", f"-DOUTER={outer}", f"-DINNER={inner}", "-c",
        pathlib.Path(__file__).with_name("vlan.bpf.c"), "-o", program)
    host.run("tc", "qdisc", "add", "dev", interface, "clsact")
    for direction, section in (("egress", "push"), ("ingress", "pop")):
        host.run("tc", "filter", "add", "dev", interface, direction, "bpf", "da", "obj", program, "sec", section)


class Access:
    """subscribers `s0` <-> `sub1`, `sub2`, ... [access node] `uplink` <-> `v0` server."""

    def __init__(self, lab, subscribers):
        self.lab = lab
        self.node = Namespace(lab, "access")
        for family in ("all", "default"):
            self.node.sysctl(f"net.ipv6.conf.{family}.disable_ipv6", 1)
        self.server = self.end_host("server")
        cable(self.node, "uplink", self.server, "v0")
        self.ports = [f"sub{number + 1}" for number in range(subscribers)]
        self.subscribers = []
        for port in self.ports:
            self.subscribers.append(self.end_host(port))
            cable(self.node, port, self.subscribers[-1], "s0")
        self.server.run("ip", "address", "add", "198.51.100.1/24", "dev", "v0")
        self.server.run("ip", "address", "add", "2001:db8:1::1/64", "dev", "v0")
        self.capture = self.server.capture("v0")

    def end_host(self, role):
        host = Namespace(self.lab, role)
        for family in ("all", "default"):
            host.sysctl(f"net.ipv6.conf.{family}.accept_dad", 0)
        return host


def owner_of(name):
    """The process that named a namespace or a shared object."""
    return re.match(rf"{PREFIX}-(\d+)", name).group(1)


def remove_shared(owner):
    """The agent leaves its shared objects for clients that outlive it."""
    for path in SHARED.glob(f"{PREFIX}-{owner}.*"):
        path.unlink(missing_ok=True)


def sweep():
    """Removes what runs that were killed have left behind."""
    for line in run("ip", "netns", "list").splitlines():
        name = line.split()[0]
        if name.startswith(PREFIX) and not pathlib.Path("/proc", owner_of(name)).exists():
            stale = Namespace.__new__(Namespace)
            stale.name = name
            stale.remove()
    for path in SHARED.glob(f"{PREFIX}-*"):
        if not pathlib.Path("/proc", owner_of(path.name)).exists():
            path.unlink(missing_ok=True)
