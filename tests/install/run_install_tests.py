#!/usr/bin/env python3
"""Installs the build and uses it from outside: run_install_tests.py CMAKE BUILD_FOLDER CC VERSION."""
import os
import pathlib
import shlex
import signal
import subprocess
import sys
import tempfile

CMAKE, BUILD, CC, VERSION = sys.argv[1:]
CLIENT = pathlib.Path(__file__).with_name("client.c")
PREFIX = f"lineid.install{os.getpid()}"
LINES = '[device]\nolt_slot = 1\n[[instance]]\noption82 = false\n[[line]]\ndefault = true\nonu_id = "o1"\n'
EXPECTED = "running 1, attached 0, before 0, set 0, after 1"


def run(*words, **options):
    found = subprocess.run([str(word) for word in words], capture_output=True, text=True, timeout=120, **options)
    assert found.returncode == 0, f"{words}: {found.returncode}\n{found.stdout}{found.stderr}"
    return found.stdout


def equal(found, expected):
    assert found == expected, f"found {found!r}, expected {expected!r}"


def main(folder):
    run(CMAKE, "--install", BUILD, "--prefix", folder / "usr")
    [described] = (folder / "usr").rglob("lineid.pc")
    installed = described.parents[1]
    equal(os.readlink(installed / "liblineid.so"), "liblineid.so." + VERSION.split(".")[0])
    equal(os.readlink(installed / ("liblineid.so." + VERSION.split(".")[0])), "liblineid.so." + VERSION)

    os.rename(folder / "usr", folder / "moved")  # nothing in it knows where it was put
    installed = folder / "moved" / installed.relative_to(folder / "usr")
    environment = {**os.environ, "PKG_CONFIG_PATH": str(installed / "pkgconfig"), "LINE_ID_IPC_PREFIX": PREFIX,
                   "LINE_ID_CONSOLE": str(folder / "console"), "LC_ALL": "C"}
    equal(run("pkg-config", "--modversion", "lineid", env=environment), VERSION + "\n")
    flags = shlex.split(run("pkg-config", "--cflags", "--libs", "lineid", env=environment))
    run(CC, "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Werror", CLIENT, "-o", folder / "client", *flags)

    (folder / "lines.toml").write_text(LINES)
    # The client makes the agent print more than a pipe holds, and nobody reads standard error: the agent must go on.
    host = subprocess.Popen([folder / "moved/bin/lineid-host", "serve", "--lines", folder / "lines.toml"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment)
    try:
        equal(host.stdout.readline(), f"serving; console {folder / 'console'}\n")
        equal(run(folder / "client", env={**environment, "LD_LIBRARY_PATH": str(installed)}).splitlines()[-1], EXPECTED)
        equal(run(folder / "moved/bin/lineidctl", "--version", env=environment), f"lineidctl {VERSION}\n")
        host.send_signal(signal.SIGTERM)
        equal(host.wait(30), 0)
    finally:
        host.kill()
        host.wait()
        for left in pathlib.Path("/dev/shm").glob(PREFIX + ".*"):
            left.unlink()


with tempfile.TemporaryDirectory(prefix="lineid-install-") as scratch:
    main(pathlib.Path(scratch))
print("installed, compiled against, used")
