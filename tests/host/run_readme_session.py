#!/usr/bin/env python3
"""Types the README's session as it is written there: run_readme_session.py BUILD_FOLDER. "..." stands for what differs."""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
TITLE = "## Configure a running agent"


def read_session():
    """Commands with the output that the README shows below them."""
    section = (ROOT / "README.md").read_text().split(TITLE + "\n")[1].split("\n## ")[0]
    session = []
    for line in re.findall(r"^    (.*)$", section, re.M):
        if line.startswith("$ "):
            session.append((line[2:].replace("build/release", str(BUILD)), []))
        else:
            session[-1][1].append(line)
    return session


def fits(output, shown):
    pattern = "".join("(?:.*\n)*?" if line == "..." else re.escape(line).replace(r"\.\.\.", ".*") + "\n" for line in shown)
    return re.fullmatch(pattern, output.replace("\r", "")) is not None


def main():
    (serve, greeting), *commands = read_session()
    assert len(commands) >= 5, "the README has no session"
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        shared = {**os.environ, "LINE_ID_IPC_PREFIX": f"lineid-readme-{os.getpid()}",
                  "LINE_ID_CONSOLE": folder + "/console"}
        host = subprocess.Popen("exec " + serve, shell=True, cwd=ROOT, env=shared, stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, text=True)
        try:
            runs = [(serve, host.stdout.readline(), greeting)]
            for command, shown in commands:
                run = subprocess.run(command, shell=True, cwd=ROOT, env=shared, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT, text=True, timeout=60)
                runs.append((command, run.stdout, shown))
            host.send_signal(signal.SIGINT)
            runs.append(("Ctrl-C", host.communicate(timeout=60)[0], ["ended"]))
        finally:
            host.kill()
            for left in pathlib.Path("/dev/shm").glob(shared["LINE_ID_IPC_PREFIX"] + ".*"):
                left.unlink()
    for command, output, shown in runs:
        good = fits(output, shown)
        failed += not good
        print(("ok    " if good else "FAIL  ") + command + ("" if good else f"\n{output}"))
    return 1 if failed else 0


sys.exit(main())
