#!/usr/bin/env python3
"""Checks the rules of this house that no compiler knows. Prints every break and exits with 1.

- Who may include whom, folder by folder, and no circle of includes; a header and its source count
  as one, so two pairs may not include each other either.
- What differs between operating systems stands in the bodies of os/system.h and nowhere else.
- Files stay short enough to be read in one sitting.
- No file names a path below a developer's own folders, and no text speaks of what is not here.
"""
import os
import re
import subprocess
import sys

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# A room of the house and the rooms that it may include from, beside itself.
ROOMS = {
    "os": [],
    "platform": ["os"],
    "util": ["platform", "os"],
    "environment": ["util", "platform", "os"],
    "discovery": ["environment", "util", "platform", "os"],
    "command": ["environment", "platform", "os"],
    "package": ["environment", "util", "platform", "os"],
    "manager": ["command", "package", "environment", "discovery", "util", "platform", "os"],
    "frame": ["manager", "command", "environment", "discovery", "util", "platform", "os"],
    "updater": ["package", "environment", "util", "platform", "os"],
    "host": ["updater", "frame", "manager", "command", "package", "environment", "discovery",
             "util", "platform", "os"],
}
# Of some rooms another may use a part only: discovery logs, the host ends what an updater left.
DOORS = {
    ("discovery", "environment"): {"src/environment/logging.h"},
    ("host", "updater"): {"updater/records.h", "updater/recovery.h", "updater/update_paths.h"},
    ("manager", "discovery"): {"src/discovery/service_info.h"},
    ("host", "discovery"): {"src/discovery/browser_worker.h", "src/discovery/responder_worker.h"},
}

LONGEST_FILE = 450
OS_WORDS = re.compile(r"#\s*(if|ifdef|ifndef|elif).*\b(__APPLE__|__linux__|_WIN32|__MACH__|TARGET_OS)")
OWN_FOLDERS = re.compile(r"/(home|Users)/[a-z]|/work/")
ABSENT = re.compile(
    r"\bparts? [1-6][.][1-6]\b|\b(the|per) sp[e]c(ification)?\b|as sp[e]cified in", re.IGNORECASE)
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def tracked():
    listing = subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard"],
        cwd=TOP, check=True, capture_output=True, text=True)
    return [name for name in listing.stdout.splitlines() if os.path.isfile(os.path.join(TOP, name))]


def room_of(name):
    parts = name.split("/")
    if parts[0] in ("host", "updater"):
        return parts[0]
    if parts[0] != "src" or len(parts) < 3:
        return None
    return parts[1]


def included(name, text, known):
    """The files of this house that a file includes."""
    for target in INCLUDE.findall(text):
        for place in ("src/" + target, "include/" + target, target, os.path.join(os.path.dirname(name), target)):
            if place in known:
                yield place
                break


def check_includes(sources, say):
    edges = {name: list(included(name, text, sources)) for name, text in sources.items()}
    for name, targets in edges.items():
        room = room_of(name)
        if room is None:
            continue
        for target in targets:
            other = room_of(target)
            if other not in (None, room) and other not in ROOMS.get(room, []):
                say(name, f"{room} may not include {target}")
            door = DOORS.get((room, other))
            if door is not None and target not in door:
                say(name, f"of {other}, {room} may include only {', '.join(sorted(door))}, "
                          f"not {target}")
    # A header and the source of the same name are one node.
    pairs = {}
    for name, targets in edges.items():
        pair = os.path.splitext(name)[0]
        pairs.setdefault(pair, set()).update(os.path.splitext(target)[0] for target in targets)
        pairs[pair].discard(pair)
    done = set()

    def walk(pair, path):
        if pair in path:
            say(pair, "includes itself by way of " + " -> ".join(path[path.index(pair):] + [pair]))
            return
        if pair in done:
            return
        for target in sorted(pairs.get(pair, ())):
            walk(target, path + [pair])
        done.add(pair)

    for pair in sorted(pairs):
        walk(pair, [])


def main():
    broken = []

    def say(name, what):
        broken.append(f"{name}: {what}")

    sources = {}
    for name in tracked():
        try:
            with open(os.path.join(TOP, name), encoding="utf-8") as file:
                text = file.read()
        except UnicodeDecodeError:
            continue
        if name != "tools/house_rules.py":
            for number, line in enumerate(text.splitlines(), 1):
                if OWN_FOLDERS.search(line):
                    say(f"{name}:{number}", "names a folder of somebody's machine")
                if ABSENT.search(line) and name != "DEVELOPERS.md":
                    say(f"{name}:{number}", "speaks of a text that is not here")
        if not name.endswith((".cpp", ".h", ".c", ".py", ".sh")):
            continue
        length = text.count("\n")
        if length > LONGEST_FILE:
            say(name, f"has {length} lines; split it by subject (at most {LONGEST_FILE})")
        if not name.endswith((".cpp", ".h", ".c")):
            continue
        sources[name] = text
        for number, line in enumerate(text.splitlines(), 1):
            if OS_WORDS.search(line):
                say(f"{name}:{number}", "belongs into src/os/system_linux.cpp or system_macos.cpp")
    check_includes(sources, say)
    if not any(name.startswith("src/os/") for name in sources):
        say("tools/house_rules.py", "found no sources: it looks in the wrong place")

    for line in broken:
        print(line)
    print(f"House rules: {len(sources)} files, {len(broken)} breaks")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
