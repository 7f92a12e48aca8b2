#!/usr/bin/env python3
"""Refuses #include lines in the wrong direction.   check_includes.py [ROOT]

The product's folders depend on each other in one direction only: service on kernel, gpu,
logcapture and testlistener, these on event, event on looper. Beyond that a folder may include what
MAY_INCLUDE names and the headers of the language and the system. The headers directly in
platform/LIBRARY/ may be included by the product, so they include nothing of sim/; deeper ones are
the stand-ins' own. The rooms of sim/ depend on each other as ROOMS says; sim/phone.cpp alone wires
them together. A folder with C++ files that is named nowhere here is refused.
"""

import re
import sys
from pathlib import Path

import sources

_PHONE_SIDE = {"platform", "phone"}
_WORKSTATION = {"platform", "platform's inside", "sim"}
_LISTENER = {"event", "looper"} | _PHONE_SIDE
# Every other product folder may use event/ and looper/.
MAY_INCLUDE = {
    **dict.fromkeys(sources.PRODUCT, _LISTENER),
    "looper": _PHONE_SIDE,
    "event": {"looper"} | _PHONE_SIDE,
    "kernel": _LISTENER | {"service"},  # implements static members of the service
    "service": set(sources.PRODUCT) | _PHONE_SIDE,
    "phone": set(),
    "sim": set(),
    "commandline": {"sim"},
    "host": set(sources.PRODUCT) | _WORKSTATION | {"commandline"},
    "client": _WORKSTATION | {"commandline"},
    "examples": {"platform"},  # of which tests/install_test.py offers what is installed
    "cmake": {"platform"},  # declarations of the phone's libraries, under the names in platform/
}
# These include what they need. build holds what CMake makes.
_FREE = {"tests", "bench", "fuzz", "build"}
# Allowed includes of each subfolder of sim/, besides its own.
ROOMS = {
    "base": set(),
    "kernel": {"base"},
    "userspace": {"base"},
    "shell": {"base", "kernel", "userspace"},
    "control": {"base", "kernel", "userspace"},
    "phone": {"base", "kernel", "userspace", "shell", "control"},  # sim/phone.h and sim/phone.cpp
}
# Product, platform, sim/ and the examples use no third-party libraries.
_PLAIN = set(sources.PRODUCT) | {"phone", "platform", "sim", "examples"}
_SYSTEM_DIRECTORIES = {"sys", "linux", "asm", "net", "netinet", "arpa"}
_INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"\n]+)[>"]', re.M)


def allowed(root, path):
    """The folders a file may include."""
    parts = path.relative_to(root).parts
    if parts[0] == "platform":
        is_phones = path.suffix == ".h" and len(parts) == 3
        return {"platform"} if is_phones else _WORKSTATION
    if parts == ("phone", "phone_workstation.cpp"):
        return {"phone", "sim"}
    if parts == ("host", "phone_main.cpp"):
        return set(sources.PRODUCT) | _PHONE_SIDE
    return MAY_INCLUDE[parts[0]] | {parts[0]}


def folder_of_header(root, header):
    parts = header.relative_to(root).parts
    return "platform's inside" if parts[0] == "platform" and len(parts) > 3 else parts[0]


def folder_of(root, path, quoted, name):
    """The folder an included name belongs to: one of ours, None for the system, "" for nowhere."""
    first = name.split("/")[0]
    if quoted and (path.parent / name).is_file():
        return folder_of_header(root, path.parent / name)
    if (root / "platform" / name).is_file():
        return folder_of_header(root, root / "platform" / name)
    if first in sources.FOLDERS and "/" in name:
        return first
    return "" if quoted else None


def room_of(parts):
    return parts[1] if len(parts) > 2 else "phone"


def room_problem_of(root, path, quoted, name):
    """What is wrong with an #include from one file of sim/ to another."""
    beside = quoted and (path.parent / name).is_file()
    header = path.parent.relative_to(root) / name if beside else Path(name)
    own, room = room_of(path.relative_to(root).parts), room_of(header.parts)
    if room == own or room in ROOMS.get(own, ()):
        return None
    return f"the room {own} of sim/ may not include {room}: '{name}'"


def problem_of(root, path, quoted, name):
    own = path.relative_to(root).parts[0]
    if ".." in name.split("/"):
        return f"'{name}' climbs out of its folder"
    folder = folder_of(root, path, quoted, name)
    if folder == "":
        return f"'{name}' is found neither in this tree nor beside the file"
    if folder is None:
        foreign = "/" in name and name.split("/")[0] not in _SYSTEM_DIRECTORIES
        return f"<{name}> is a third-party library's" if foreign and own in _PLAIN else None
    if folder == own == "sim":
        return room_problem_of(root, path, quoted, name)
    if folder in allowed(root, path):
        return None
    return f"{own}/ may not include {folder} here: '{name}'"


def check_file(root, path):
    text = sources.without_comments(path.read_text())
    for match in _INCLUDE.finditer(text):
        problem = problem_of(root, path, match[1] == '"', match[2])
        if problem:
            line = text.count("\n", 0, match.start()) + 1
            yield f"{path.relative_to(root)}:{line}: {problem}"


def check(root):
    known = [*MAY_INCLUDE, "platform"]
    folders = {p.name for p in root.iterdir() if p.is_dir() and p.name[0] != "."}
    unknown = [
        f"{name}/: is in no table of tools/check_includes.py"
        for name in sorted(folders - _FREE - set(known))
        if any(sources.files(root, [name]))
    ]
    unknown += [
        f"sim/{room.name}/: is no room that tools/check_includes.py knows"
        for room in sorted((root / "sim").glob("*"))
        if room.is_dir() and room.name not in ROOMS
    ]
    paths = [p for p in sources.files(root, known) if not sources.is_test(p)]
    return unknown + [problem for path in paths for problem in check_file(root, path)]


if __name__ == "__main__":
    sys.exit(sources.report(check(sources.root_argument())))
