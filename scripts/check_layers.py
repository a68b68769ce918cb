#!/usr/bin/env python3
"""Checks that includes point one way: each file may include its own layer or a lower one, without cycles."""
import fnmatch
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# Lowest first. The first pattern that fits decides.
LAYERS = [
    ["include/*"],
    ["platform/*"],
    ["core/records.*", "core/log.*", "core/device_if.*", "core/init_flag.*"],
    ["packet/frame.*", "packet/check.*", "packet/closing.*", "packet/pool.*", "packet/protocol_table.*"],
    ["lineid/params.*"],
    ["config/settings.def", "config/store*", "config/policy.*", "config/white_list.*", "config/trap_rule.*",
     "config/statistics.*", "config/channel.*"],
    ["lineid/*", "config/vlan_profile.*"],
    ["antispoof/*"],
    ["packet/*", "agents/*"],
    ["config/*"],
    ["core/*"],
]
# These stand beside the layers and see only what is listed.
BESIDE = {
    "client/*": ["include/*", "platform/*", "core/records.*", "core/log.*", "core/init_flag.*", "config/channel.*",
                 "config/settings.def", "client/*"],
    "host/*": ["include/*", "host/*"],
    "ctl/*": ["include/*", "ctl/*", "host/console_path.h", "host/toml_parser.h"],
}
FOLDERS = ["include", "platform", "core", "packet", "lineid", "config", "antispoof", "agents", "client", "host", "ctl"]
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def fits(name, patterns):
    return any(fnmatch.fnmatch(name, pattern) for pattern in patterns)


def layer_of(name):
    return next((i for i, patterns in enumerate(LAYERS) if fits(name, patterns)), None)


def main():
    faults = []
    includes = {}
    for folder in FOLDERS:
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix in (".h", ".cpp", ".def"):
                includes[path.relative_to(ROOT).as_posix()] = INCLUDE.findall(path.read_text())

    for name, targets in includes.items():
        beside = next((seen for pattern, seen in BESIDE.items() if fnmatch.fnmatch(name, pattern)), None)
        for target in targets:
            if not (ROOT / target).exists():
                faults.append(f"{name}: includes {target}, which is not a file of this project")
            elif beside is not None:
                if not fits(target, beside):
                    faults.append(f"{name}: may not include {target}")
            elif layer_of(target) is None or layer_of(target) > layer_of(name):
                faults.append(f"{name}: includes {target}, which lies higher")

    done, path = set(), []

    def walk(name):
        if name in path:
            faults.append("cycle: " + " -> ".join(path[path.index(name):] + [name]))
            return
        if name in done:
            return
        path.append(name)
        for target in includes.get(name, []):
            walk(target)
        path.pop()
        done.add(name)

    for name in includes:
        walk(name)
    for fault in faults:
        print(fault)
    print(f"layers: {len(includes)} files, {len(faults)} faults")
    return 1 if faults else 0


sys.exit(main())
