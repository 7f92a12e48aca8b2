#!/usr/bin/env python3
"""Refuses #include lines that lean the wrong way.   check_includes.py [ROOT]

The product's folders lean one way only: service over kernel, gpu, logcapture and testlistener,
these over event, event over looper. Beyond that a folder may include what MAY_INCLUDE names and
the headers of the language and the system.
"""

import re
import sys

import sources

_PHONE_SIDE = {"platform", "phone"}
_LISTENER = {"event", "looper"} | _PHONE_SIDE
MAY_INCLUDE = {
    "looper": _PHONE_SIDE,
    "event": {"looper"} | _PHONE_SIDE,
    "logcapture": _LISTENER,
    "kernel": _LISTENER | {"service"},  # implements static members of the service
    "gpu": _LISTENER,
    "testlistener": _LISTENER,
    "service": set(sources.PRODUCT) | _PHONE_SIDE,
    "phone": set(),
    "platform": {"sim"},
    "sim": set(),
    "host": set(sources.PRODUCT) | {"platform", "sim"},
    "client": {"platform", "sim"},
}
# What ships, and what stands in for the phone, does without third-party libraries.
_PLAIN = set(sources.PRODUCT) | {"phone", "platform", "sim"}
_SYSTEM_DIRECTORIES = {"sys", "linux", "asm", "net", "netinet", "arpa"}
_INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"\n]+)[>"]', re.M)


def allowed(root, path):
    """The folders a file may include, beside its own."""
    folder = path.relative_to(root).parts[0]
    if folder == "platform" and path.suffix == ".h":
        return set()  # the phone has these headers too, and no sim/
    if path.relative_to(root).as_posix() == "phone/phone_workstation.cpp":
        return {"sim"}
    return MAY_INCLUDE[folder]


def folder_of(root, path, quoted, name):
    """The folder an included name belongs to: one of ours, None for the system, "" for nowhere."""
    first = name.split("/")[0]
    if (root / "platform" / name).is_file():
        return "platform"
    if quoted and (path.parent / name).is_file():
        return path.relative_to(root).parts[0]
    if first in sources.FOLDERS and "/" in name:
        return first
    return "" if quoted else None


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
    if folder == own or folder in allowed(root, path):
        return None
    return f"{own}/ may not include {folder}/ here: '{name}'"


def check_file(root, path):
    text = sources.without_comments(path.read_text())
    for match in _INCLUDE.finditer(text):
        problem = problem_of(root, path, match[1] == '"', match[2])
        if problem:
            line = text.count("\n", 0, match.start()) + 1
            yield f"{path.relative_to(root)}:{line}: {problem}"


def check(root):
    paths = [p for p in sources.files(root, MAY_INCLUDE) if not sources.is_test(p)]
    return [problem for path in paths for problem in check_file(root, path)]


if __name__ == "__main__":
    sys.exit(sources.report(check(sources.root_argument())))
