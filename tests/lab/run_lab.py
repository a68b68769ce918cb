#!/usr/bin/python3
"""Tests the agent between real clients and servers: run_lab.py [--build DIR] [--list] [CASE or GROUP ...]

Each case has a network of its own, in namespaces that go with it; its captures and logs stay in DIR/lab/CASE. Exit
code 0 passed, 1 failed, 77 skipped: this machine cannot run it (a failure where the environment has CI set).
"""
import argparse
import contextlib
import ctypes
import os
import pathlib
import shutil
import signal
import sys
import time
import traceback

sys.dont_write_bytecode = True
os.environ["PATH"] = "/usr/sbin:/usr/bin:/sbin:/bin"

PROGRAMS = ("ip", "tc", "ethtool", "clang", "tcpdump", "tshark", "ping", "kea-dhcp4", "kea-dhcp6", "dnsmasq", "busybox",
            "dhclient", "dhcpcd", "pppoe", "pppoe-discovery", "pppoe-server", "nft")
CASE_LIMIT = 150  # seconds
AT_A_TIME = 6     # cases wait most of their time
PR_SET_PDEATHSIG = 1
SKIPPED = 77


def obstacle():
    """Why this machine cannot run the lab; empty when it can."""
    if os.geteuid() != 0:
        return "network namespaces need root"
    missing = [program for program in PROGRAMS if not shutil.which(program)]
    if missing:
        return "these are not installed: " + " ".join(missing)
    if os.spawnlp(os.P_WAIT, "unshare", "unshare", "--net", "--mount", "true") != 0:
        return "this machine does not allow network namespaces"
    return ""


def end_on_sigterm():
    """By an exception, so that what is set up is taken down; a second signal must not disturb that."""
    def end(*_):
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
        sys.exit(1)

    signal.signal(signal.SIGTERM, end)


def run_case(function, folder):
    """In a process of its own: its exit code."""
    import oracle
    import topology
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)  # so that the network goes with the runner
    lab = topology.Lab(folder)
    failure = ""
    try:
        with lab:
            function(lab)
    except topology.LabFailure as found:
        where = traceback.extract_tb(found.__traceback__)
        lines = [f"{frame.name}:{frame.lineno}" for frame in where if "topology" not in frame.filename]
        failure = f"{found}\n({' > '.join(lines)})"
    except SystemExit:
        failure = "ended from outside"
    except Exception:
        failure = traceback.format_exc()
    if failure:
        decoded = (f"-- {capture}\n{oracle.decoding(capture)}" for capture in lab.captures)
        (folder / "failure.txt").write_text("\n".join([failure, *decoded]))
    return 1 if failure else 0


class Run:
    """The cases under way, each in a forked process."""

    def __init__(self, folder):
        self.folder = folder
        self.under_way = {}  # pid: (name, start)
        self.failed = []
        self.passed = 0

    def start(self, name, function):
        sys.stdout.flush()
        pid = os.fork()
        if pid == 0:
            end_on_sigterm()
            signal.signal(signal.SIGINT, signal.SIG_IGN)  # the runner's matter
            code = 1
            try:
                code = run_case(function, self.folder / name)
            finally:
                os._exit(code)
        self.under_way[pid] = (name, time.monotonic())

    def wait_one(self):
        while True:
            pid, status = os.waitpid(-1, os.WNOHANG)
            if pid in self.under_way:
                return self.finish(pid, status)
            for late, (_, start) in self.under_way.items():
                if time.monotonic() - start > CASE_LIMIT:
                    os.kill(late, signal.SIGTERM)
            time.sleep(0.05)

    def finish(self, pid, status):
        name, start = self.under_way.pop(pid)
        took = time.monotonic() - start
        late = f" (the limit is {CASE_LIMIT} s)" if took > CASE_LIMIT else ""
        print(f"{'ok  ' if status == 0 else 'FAIL'}  {name}  {took:.1f} s{late}", flush=True)
        if status == 0:
            self.passed += 1
            return
        self.failed.append(name)
        told = self.folder / name / "failure.txt"
        print("      " + (told.read_text() if told.exists() else "no report").replace("\n", "\n      "))
        print(f"      captures and logs: {self.folder / name}", flush=True)

    def end_all(self):
        for pid in list(self.under_way):
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGTERM)
        while self.under_way:
            self.wait_one()


def chosen(cases, wanted):
    taken = {name: function for name, function in cases.items()
             if not wanted or any(name == each or name.startswith(each + ".") for each in wanted)}
    for each in wanted:
        if not any(name == each or name.startswith(each + ".") for name in taken):
            sys.exit(f"run_lab.py: there is no case or group {each}; --list names them")
    return taken


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, help="folder of lineid-host and lineidctl (build/release)",
                        default=pathlib.Path(__file__).resolve().parents[2] / "build/release")
    parser.add_argument("--list", action="store_true", help="name the cases")
    parser.add_argument("cases", nargs="*", metavar="CASE", help="a case, or a group of cases; all when none is named")
    given = parser.parse_args()
    build = given.build.resolve()

    why = obstacle()
    if why and not given.list:
        print(f"lab {'failed' if os.environ.get('CI') else 'skipped'}: {why}")
        return 1 if os.environ.get("CI") else SKIPPED
    for program in ("lineid-host", "lineidctl"):
        if not (build / program).exists():
            sys.exit(f"run_lab.py: {build} has no {program}: build it first")
    os.environ["LINE_ID_BUILD"] = str(build)
    import cases
    taken = chosen(cases.CASES, given.cases)
    if given.list:
        print("\n".join(taken))
        return 0

    import topology
    topology.sweep()
    end_on_sigterm()
    run = Run(build / "lab")
    try:
        for name, function in taken.items():
            if len(run.under_way) >= AT_A_TIME:
                run.wait_one()
            run.start(name, function)
        while run.under_way:
            run.wait_one()
    finally:
        run.end_all()
    print(f"lab: {run.passed} passed, {len(run.failed)} failed")
    return 1 if run.failed else 0


if __name__ == "__main__":
    sys.exit(main())
