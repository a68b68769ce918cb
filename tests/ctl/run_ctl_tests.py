#!/usr/bin/env python3
"""Tests lineidctl from the outside: run_ctl_tests.py LINEIDCTL LINEID_HOST. Prints each check; fails when one does."""
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
CTL, HOST = (pathlib.Path(name).resolve() for name in sys.argv[1:3])
FOLDER = pathlib.Path(tempfile.mkdtemp(prefix="lineidctl-"))
PREFIX = f"ctl-test-{os.getpid()}"
FAILED = []
MAC = "00:00:5e:00:53:01"
LINES = "[device]\nolt_slot = 1\n[[line]]\ndefault = true\nonu_id = \"o1\"\n" + "".join(f"[[instance]]\nid = {number}\nmode = \"olt\"\n" for number in range(9))


def check(name, good, detail=""):
    print(("ok    " if good else "FAIL  ") + name + ("" if good else f"\n      {detail}"), flush=True)
    if not good:
        FAILED.append(name)


def equal(name, found, expected):
    check(name, found == expected, f"found    {found!r}\n      expected {expected!r}")


def store(name, text):
    path = FOLDER / name
    path.write_text(text)
    return path


def environment(prefix=PREFIX, tick_us=2000):
    return {**os.environ, "LINE_ID_IPC_PREFIX": prefix, "LINE_ID_TICK_US": str(tick_us),
            "LINE_ID_CONSOLE": str(FOLDER / (prefix + ".console"))}


def ctl(*arguments, env=None, **options):
    return subprocess.run([CTL, *map(str, arguments)], stdout=options.pop("stdout", subprocess.PIPE),
                          stderr=subprocess.PIPE, text=True, timeout=120, env=env or environment(), **options)


def answer(*arguments):
    """Standard output of a command that has to succeed without a word on standard error."""
    run = ctl(*arguments)
    if run.returncode != 0 or run.stderr:
        check(" ".join(map(str, arguments)), False, f"exit status {run.returncode}: {run.stderr}")
    return run.stdout


def refused(status, words, *arguments, **options):
    run = ctl(*arguments, **options)
    absent = [word for word in words if word not in run.stderr]
    check(f"refused {status}: {' '.join(map(str, arguments))}", run.returncode == status and not absent and not run.stdout,
          f"exit status {run.returncode}, lacking {absent} in {run.stderr!r}, printed {run.stdout!r}")


class Host:
    """A serving host on a prefix of its own."""

    def __init__(self, prefix):
        self.prefix, self.environment = prefix, environment(prefix)
        self.process = subprocess.Popen([HOST, "serve", "--lines", store("lines.toml", LINES)], stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True, env=self.environment)
        first = self.process.stdout.readline()
        assert first.startswith("serving; console "), first

    def freeze(self):
        """Returns when the last thread stands still: one that is late would still answer."""
        self.process.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.process.pid, os.WSTOPPED)

    def stop(self):
        self.process.kill()
        self.process.communicate()
        for name in pathlib.Path("/dev/shm").glob(self.prefix + ".*"):
            name.unlink()


class Console:
    """A reader of the console that a host publishes."""

    def __init__(self, host):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(30)
        self.socket.connect(host.environment["LINE_ID_CONSOLE"])
        self.text()

    def text(self):
        """What was printed since the last call."""
        self.socket.sendall(b"?")
        data = b""
        while not data.endswith(b"\x01end\n"):
            more = self.socket.recv(65536)
            assert more, "the console is closed"
            data += more
        return data.decode(errors="replace")


# ---- settings

# name, value as given, as shown, in JSON
READ_BACK = [
    *[(name, "on", "on", True) for name in
      ("option82", "option82-transparent", "option18", "option37", "pppoe-plus", "pppoe-plus-transparent", "remote-id",
       "dhcp-anti-spoofing", "dhcp-anti-spoofing-drop", "pppoe-anti-spoofing")],
    ("dhcp-binding-count", "4294967274", "4294967274", 4294967274),  # as a result, -22
    ("pppoe-binding-count", "3", "3", 3),
    ("circuit-id-format", "cnc", "cnc", "cnc"),
    ("circuit-id-template", "a%_%a/%s.%c", "a%_%a/%s.%c", "a %a/%s.%c"),
    ("remote-id-template", "%m", "%m", "%m"),
    ("option37-template", "%m-%n", "%m-%n", "%m-%n"),
    ("access-node", "x" * 50, "x" * 50, "x" * 50),
    ("rack", "65514", "65514", 65514),  # as a result, -22
    ("frame", "7", "7", 7),
    ("uplink-type", "set", "set", "set"),
    ("management-ip", "192.0.2.7", "192.0.2.7", "192.0.2.7"),
]
SET_ONLY = ["dhcpv6", "remote-id-transparent", "host-name", "core-card-mac", "gemport", "option18-level",
            "option18-relay-strip", "whitelist", "debug-all", "debug-general", "debug-config", "debug-dhcpv4",
            "debug-dhcpv6", "debug-pppoe", "debug-device", "debug-tx", "debug-rx", "debug-level"]


def test_settings():
    before = json.loads(answer("get", "--all", "--json", "--oltid", 3))["settings"]
    for name, given, _, _ in READ_BACK:
        answer("set", name, given, "--oltid", 4)
    for name, _, shown, _ in READ_BACK:
        equal(f"set and get {name}", answer("get", name, "--oltid", 4), shown + "\n")
    text = answer("get", "--all", "--json", "--oltid", "4")
    equal("JSON is one line", text.count("\n"), 1)
    expected = {**{name: value for name, _, _, value in READ_BACK}, "slot": 0, **dict.fromkeys(SET_ONLY)}
    equal("JSON of all settings", json.loads(text), {"instance": 4, "settings": expected})
    table = dict(line.split(None, 1) for line in answer("get", "--all", "--oltid", 4).splitlines())
    equal("the table of all settings", table,
          {**{name: shown for name, _, shown, _ in READ_BACK}, "slot": "0", **dict.fromkeys(SET_ONLY, "unknown")})
    equal("another instance is as it was", json.loads(answer("get", "--all", "--json", "--oltid", 3))["settings"], before)
    equal("get of two", answer("get", "rack", "frame", "--oltid", 4), "rack   65514\nframe  7\n")


def test_together():
    answer("block", "set", "slot=9", "option82=off", "option18=on", "option37=off", "pppoe-plus=on", "access-node=n5",
           "rack=1", "frame=2", "uplink-type=up", "management-ip=192.0.2.5", "host-name=h5", "--oltid", 5)
    equal("block", json.loads(answer("block", "get", "--json", "--oltid", 5))["settings"],
          {"slot": 9, "option82": False, "option18": True, "option37": False, "pppoe-plus": True, "access-node": "n5",
           "rack": 1, "frame": 2, "uplink-type": "up", "management-ip": "192.0.2.5"})
    answer("set", "host-name", "other", "--oltid", 5)
    equal("the host name leaves the rest of the block", answer("get", "slot", "--oltid", 5), "9\n")
    check("the host name", "\nH: other\n" in answer("show", "status", "--oltid", 5))
    answer("identity", "n6", 3, 65515, "--oltid", 6)
    equal("identity", answer("get", "access-node", "rack", "frame", "--oltid", 6),
          "access-node  n6\nrack         3\nframe        65515\n")
    answer("format", "set", "custom", "%a%_x", "--oltid", 6)
    answer("format", "set", "cnc", "--oltid", 6)
    equal("format", answer("format", "get", "--oltid", 6), "circuit-id-format    cnc\ncircuit-id-template  %a%_x\n")


# Commands that cannot be read back, by the code that the agent's trace names.
SENT = [
    (44, "set dhcpv6 on"), (34, "set remote-id-transparent on"), (17, "set core-card-mac " + MAC), (50, "set gemport on"),
    (46, "set option18-level on"), (47, "set option18-relay-strip 2"), (35, "whitelist set 1,2,7"), (42, "debug all on"),
    (38, "debug general on"), (18, "debug dhcpv4 off"), (19, "debug dhcpv6 off"), (20, "debug pppoe off"),
    (45, "debug device off"), (39, "debug tx off"), (40, "debug rx off"), (41, "set debug-config on"), (43, "level 2"),
    (31, "statistics reset"), (32, "override a TEXT"), (33, "release a"), (36, f"remote-id on --mac {MAC}"),
    (26, "delete binding dhcp --mac " + MAC), (27, "delete binding pppoe --mac " + MAC),
    (28, "delete binding dhcp --onu 1 2"), (29, "delete binding pppoe --onu 1 2"),
    (48, "profile add 3 circuit-id %a/%s"), (49, "profile delete 3 circuit-id"),
    (9, "set host-name h --oltid 2"), (9, "block set host-name=h"), (10, "format set ctc --oltid 2"), (10, "format set ctc"),
    (11, "identity n 1 2"),
]
SHOWN = [(0, "whitelist", "Pppoe white list num is:3"), (1, "statistics", "dhcpv4_pkt_processed:0"),
         (2, "status --oltid 1", "Option82: "), (3, "bindings dhcp", ""), (4, "bindings pppoe", ""),
         (5, "profiles --oltid 1", "Circuit Id oltid is: 1")]


def test_commands(host):
    answer("debug", "config", "on")
    answer("level", "2")
    console = Console(host)
    for code, words in SENT:
        run = ctl(*words.split())
        served = re.findall(r"line_id_set_proc_func\((\d+)\)", console.text())
        check(words, run.returncode == 0 and served == [str(code)], f"{run}, served {served}")
    for code, words, part in SHOWN:
        report = answer("show", *words.split())
        check("show " + words, f"line_id_show_proc_func({code})" in report and part in report, report)
    answer("debug", "all", "off")
    answer("level", "0")
    console.socket.close()
    report = [line for line in answer("show", "statistics").splitlines() if line]
    equal("a report has nothing else in it", (report[:2], len(report)),
          (["packet statistics is:", "dhcpv4_pkt_processed:0"], 28))
    answer("override", "u", "pinned", "--oltid", 7)
    answer("set", "uplink-type", "set", "--oltid", 7)
    check("a pinned letter", "\nu: pinned\n" in answer("show", "status", "--oltid", 7))
    run = ctl("release", "u")
    check("release says that it is for all", run.returncode == 0 and "all instances" in run.stderr, run)
    answer("set", "uplink-type", "set", "--oltid", 7)
    check("a released letter", "\nu: set\n" in answer("show", "status", "--oltid", 7))
    answer("profile", "add", 9, "remote-id", "%m%_x", "--oltid", 7)
    answer("profile", "add", 9, "circuit-id", "--template", "cnc", "--oltid", 7)
    check("profiles", "\ntemplate[ 9]:2, cirt_fmt[ 9]:cnc, rmt_fmt[ 9]:%m x\n" in answer("show", "profiles", "--oltid", 7))


def test_refusals():
    rows = [
        (2, ["subcommand"], []), (2, [], ["bogus"]), (2, [], ["set", "option82"]),
        (2, ["colour", "settings"], ["set", "colour", "red"]), (2, ["0 to 8"], ["get", "rack", "--oltid", "9"]),
        (2, ["does not tell"], ["get", "host-name"]), (2, ["block set"], ["set", "slot", "3"]), (2, ["--all"], ["get"]),
        (2, ["host-name="], ["block", "set", "slot=3"]), (2, ["colour"], ["block", "set", "colour=1"]),
        (2, ["--mac", "--onu"], ["delete", "binding", "dhcp"]), (2, [], ["level", "3"]), (2, [], ["debug", "x", "on"]),
        (2, [], ["profile", "add", "65", "circuit-id", "x"]),
        (6, ["on or off", '"maybe"'], ["set", "option82", "maybe"]), (6, ["65535"], ["set", "rack", "65536"]),
        (6, ["65535"], ["set", "rack", "-1"]), (6, ["50 octets", "51"], ["set", "access-node", "x" * 51]),
        (6, ["64 octets", "65"], ["set", "host-name", "x" * 65]), (6, ["IPv4"], ["set", "management-ip", "192.0.2"]),
        (6, ["MAC"], ["set", "core-card-mac", "00:00:5e:00:53"]), (6, ["32 ONU types"], ["whitelist", "set", "1,,2"]),
        (6, ["32 ONU types"], ["whitelist", "set", ",".join(["1"] * 33)]), (6, ["letter"], ["release", "1"]),
        (6, ["empty"], ["profile", "add", "3", "remote-id"]), (6, ["MAC"], ["remote-id", "on", "--mac", "x"]),
        (6, ["built-in"], ["profile", "add", "3", "remote-id", "--template", "ctc"]),
        (9, ["behind %a", "  abc%_%axy\n         ^"], ["set", "circuit-id-template", "abc%_%axy"]),
    ]
    for status, words, arguments in rows:
        refused(status, words, *arguments)
    with open("/dev/full", "w") as full:
        run = ctl("get", "--all", stdout=full)
    check("output that cannot be written", run.returncode == 1 and "cannot write" in run.stderr, run)


# ---- templates

def test_templates():
    for arguments, expected in [
        (["%a%_eth %s:%c", "s=10", "c=20"], "0 eth 10:20"), (["%%/%1/%Y", "Y=9"], "%%/%1/9"), (["%a", "a=" + "x" * 50], "x" * 50),
        ([" ".join(["%m"] * 6), "m=" + "x" * 50], " ".join(["x" * 50] * 4) + " "),
    ]:
        equal(f"template show {arguments[0]}", answer("template", "show", *arguments), expected + "\n")
    for template, caret in [("abc%", 3), ("x%ab%_%c", 3), ("%a%_%b%", 6), ("é%_%aé", 6 - 1), ("%%ab", 3), ("x" * 257, 256)]:
        run = ctl("template", "check", template)
        lines = run.stderr.splitlines()
        check(f"template check {template[:20]}", run.returncode == 9 and lines[1:] == ["  " + template, "  " + " " * caret + "^"],
              run.stderr)
    for template, words, warnings in [
        ("%s.%c", "right: 5 octets, at most 11 when it is expanded (101", 0), ("a%_b", "right: 3 octets, at most 3 ", 0),
        ("%m %n %C %B %L", "at most 254", 1), ("%O %r %f %S %p", "at most 41 when it is expanded (254", 1), ("%Y", "at most 50", 1),
        ("%%", "right: 2", 0), ("x" * 256, "right: 256", 1),
    ]:
        run = ctl("template", "check", template)
        check(f"template check {template[:20]}", run.returncode == 0 and words in run.stdout and
              run.stderr.count("warning") == warnings, run)


# ---- state files

BAD = """colour = 1
[agent]
option82 = true
whitelist = [1, 70000]
release = ["aa"]
[[instance]]
oltid = 9
option82 = 1
rack = 70000
circuit-id-template = "abc%axy"
core-card-mac = "00:00"
slot = 3
dhcpv6 = true
option18 = false
override = { a = 7 }
access-node = "a\\u0000b"
[[instance.profile]]
number = 65
kind = "remote"
[[instance.profile]]
number = 1
kind = "remote-id"
text = ""
"""


def test_apply():
    state = ROOT / "demo" / "state.toml"
    before = answer("get", "--all")
    dry = ctl("apply", state, "--dry-run")
    check("dry run", dry.returncode == 0 and "instance 0: circuit-id-format: ctc -> custom\n" in dry.stdout, dry)
    equal("a dry run changes nothing", answer("get", "--all"), before)
    first = ctl("apply", state)
    equal("apply does what the dry run says", first.stdout.splitlines()[:-1], dry.stdout.splitlines()[:-1])
    check("apply warns", first.stderr.count("warning: ") == 2 and ":27: host-name" in first.stderr, first.stderr)
    now = json.loads(answer("get", "--all", "--json"))["settings"]
    equal("applied", {name: now[name] for name in ("option82", "circuit-id-format", "circuit-id-template", "rack", "slot",
                                                   "management-ip", "pppoe-binding-count")},
          {"option82": True, "circuit-id-format": "custom", "circuit-id-template": "%a eth %S/%p/%P:%s.%c", "rack": 1,
           "slot": 3, "management-ip": "192.0.2.2", "pppoe-binding-count": 2})
    check("applied host name", "\nH: demo\n" in answer("show", "status"))
    again = ctl("apply", state)
    equal("nothing to change any more", again.stdout.splitlines()[-1].split(",")[0], "0 changed")
    answer("set", "rack", 5)
    again = ctl("apply", state)
    check("only what differs is changed", "rack: 5 -> 1\n" in again.stdout and "\n1 changed" in again.stdout, again.stdout)

    run = ctl("apply", store("bad.toml", BAD))
    lines = [int(line) for line in re.findall(r"bad\.toml:(\d+):", run.stderr)]
    equal("all faults at once", (run.returncode, lines), (8, [1, 3, 4, 5, 7, 8, 9, 10, 11, 12, 13, 15, 16, 18, 19, 23]))
    check("a caret in a file", "\n  abc%axy\n       ^\n" in run.stderr, run.stderr)
    equal("nothing of it was sent", answer("get", "--all", "--json").count('"option82":true'), 1)
    refused(8, ["bad2.toml:2:"], "apply", store("bad2.toml", "[agent]\na = \n"))
    refused(8, ["bad3.toml:2:"], "apply", store("bad3.toml", "[agent]\na = 1\u0438\n"))
    refused(8, ["No such file"], "apply", FOLDER / "none.toml")
    refused(8, ["directory"], "apply", FOLDER)


# ---- agents that are not there, stand still, or belong to others

def test_no_agent():
    refused(3, ["no agent"], "get", "option82", env=environment("ctl-test-none"))
    equal("nothing is left behind", list(pathlib.Path("/dev/shm").glob("ctl-test-none*")), [])
    run = ctl("show", "status", env={**environment(), "LINE_ID_CONSOLE": str(FOLDER / "none")})
    check("no console is published", run.returncode == 0 and not run.stdout and "agent's own standard output" in run.stderr, run)
    with socket.socket(socket.AF_UNIX) as silent:
        silent.bind(str(FOLDER / "silent"))
        silent.listen()
        threading.Thread(target=lambda: silent.accept()[0].close()).start()
        refused(5, ["console is closed"], "show", "status", env={**environment(), "LINE_ID_CONSOLE": str(FOLDER / "silent")})


def test_stopped_and_killed():
    host = Host(PREFIX + "-stop")
    env = host.environment
    threads = [int(name) for name in os.listdir(f"/proc/{host.process.pid}/task")]
    equal("threads that do not interrupt others", [os.sched_getscheduler(each) for each in threads].count(os.SCHED_BATCH), 1)
    # After each of these the area holds another answer: none of them may be taken for a new one.
    for left in ("option82", "rack", "management-ip", "access-node", "circuit-id-template"):
        ctl("get", left, env=env)
        host.freeze()
        start = time.monotonic()
        refused(5, ["does not answer in time"], "get", left, env=env)
        check(f"in time: {left}", time.monotonic() - start < 20, time.monotonic() - start)
        host.process.send_signal(signal.SIGCONT)
        equal(f"going on: {left}", ctl("get", left, env=env).returncode, 0)
    host.freeze()
    refused(5, ["does not answer in time"], "set", "option82", "on", env=env)
    refused(5, ["does not take commands"], "set", "option82", "off", env=env)
    waiting = subprocess.Popen([CTL, "get", "rack"], env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    time.sleep(0.3)
    host.process.kill()
    host.process.wait()
    out, errors = waiting.communicate(timeout=60)
    check("the agent is killed meanwhile", waiting.returncode == 3 and "ended meanwhile" in errors and not out,
          (waiting.returncode, errors))
    refused(3, ["no agent"], "get", "rack", env=env)
    host.stop()


def test_other_user():
    if os.geteuid() != 0:
        return
    nobody = {"user": 65534, "group": 65534, "extra_groups": []}
    program = shutil.copy(CTL, FOLDER / "lineidctl")
    FOLDER.chmod(0o755)
    library = next(CTL.parent.glob("liblineid.so.?"))
    shutil.copy(library, FOLDER / library.name)
    env = {**environment(), "LD_LIBRARY_PATH": str(FOLDER)}
    run = subprocess.run([program, "get", "rack"], env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                         timeout=60, **nobody)
    check("another user's agent", run.returncode == 4 and "another user" in run.stderr and not run.stdout, run)


# ---- completion and the page

COMPLETIONS = [
    ("se", "set settings"), ("set option8", "option82 option82-transparent"), ("set option82 ", "on off"),
    ("set circuit-id-format ", "custom ctc cnc"), ("set --oltid ", "0 1 2 3 4 5 6 7 8"), ("set --oltid 3 pppoe-plus o", "on off"),
    ("get rack ra", "rack"), ("get sl", "slot"), ("show bindings ", "dhcp pppoe"), ("block set host", "host-name="),
    ("debug dhcpv4 ", "on off"), ("delete binding pppoe --o", "--onu --oltid"), ("profile add 3 ", "circuit-id remote-id"),
    ("profile add 3 circuit-id x --template ", "text ctc cnc"), ("--queue-key 7 app", "apply"),
]


def test_completion():
    script = store("lineidctl.bash", ctl("completion", "bash").stdout)
    ask = (f"cd {FOLDER}; . {script}; complete -p lineidctl >/dev/null || exit 1; IFS= read -r line; IFS=' ' read -ra COMP_WORDS <<<\"$line\"; "
           '[ "${line% }" != "$line" ] && COMP_WORDS+=(""); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _lineidctl; echo "${COMPREPLY[*]}"')
    store("wanted.toml", "")
    for line, expected in [*COMPLETIONS, ("apply wan", "wanted.toml")]:
        run = subprocess.run(["bash", "-c", ask], input=f"lineidctl {line}\n", capture_output=True, text=True, timeout=60)
        equal(f"completion of {line!r}", (run.stdout.rstrip("\n"), run.stderr), (expected, ""))


def test_page():
    page = (ROOT / "docs" / "lineidctl.md").read_text()
    check("the page has the table of the settings", ctl("settings").stdout in page)
    run = ctl("--help")
    equal("the page has the exit statuses", re.findall(r"^\| (\d) \|", page, re.M),
          re.findall(r"\b(\d) [a-z]", run.stdout[run.stdout.index("Exit status"):]))
    equal("version", ctl("--version").stdout, "lineidctl 1.0.0\n")


def main():
    host = Host(PREFIX)
    try:
        test_settings()
        test_together()
        test_commands(host)
        test_refusals()
        test_apply()
        test_no_agent()
        test_other_user()
    finally:
        host.stop()
    test_templates()
    test_stopped_and_killed()
    test_completion()
    test_page()
    shutil.rmtree(FOLDER)
    print(f"{len(FAILED)} failed" if FAILED else "all passed")
    return 1 if FAILED else 0


sys.exit(main())
