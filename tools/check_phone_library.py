#!/usr/bin/env python3
"""Refuses a phone build of the library with symbols that the phone could not resolve.

check_phone_library.py [--nm NM] [--stripped FILE] [--platform DIR] LIBRARY
"""

import argparse
import re
import subprocess
import sys
from pathlib import Path

import sources

_PREFIX = re.compile(
    r"(?:(?:vtable|typeinfo|typeinfo name|VTT|guard variable) for )?"
    r"(?:(?:non-)?virtual thunk to )?(?:android::)?"
)
# Undefined symbols that the toolchain adds to every library.
_RUNTIME = re.compile(r"_ITM_|__gmon_start__$|__cxa_finalize$|__aeabi_|__gnu_")


def symbols(nm, library):
    """Pairs of kind and demangled name, of all symbols of the linked library."""
    run = subprocess.run([nm, "-DC", library], check=True, capture_output=True, text=True)
    for line in run.stdout.splitlines():
        kind, name = re.match(r"(?:[0-9a-f]+)?\s+(\S) (.*)$", line).groups()
        yield kind, name


def words_of_headers(platform):
    """Every name that the headers of the phone's libraries mention."""
    headers = Path(platform).rglob("*.h")
    return {w for path in headers for w in re.findall(r"\w+", sources.code_only(path.read_text()))}


def resolved_on_phone(name, platform_words):
    """The C and C++ libraries' symbols carry a version; other libraries' are in their headers."""
    if re.search(r"@\w+", name) or _RUNTIME.match(name):
        return True
    outermost = re.match(r"\w*", name[_PREFIX.match(name).end() :]).group()
    return outermost in platform_words


def check(nm, library, platform):
    platform_words = words_of_headers(platform)
    problems = []
    for kind, name in symbols(nm, library):
        if re.search(r"\bsim::", name):
            problems.append(f"of the simulated phone: {name}")
        elif kind in "Uwv" and not resolved_on_phone(name, platform_words):
            problems.append(f"not among the phone's libraries: {name}")
    return problems


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--stripped", type=Path)
    parser.add_argument("--platform", default="platform", help="their headers' folder")
    arguments = parser.parse_args()
    if arguments.stripped:
        print(f"libpeltoservice.so, stripped: {arguments.stripped.stat().st_size} bytes")
    return sources.report(check(arguments.nm, arguments.library, arguments.platform))


if __name__ == "__main__":
    sys.exit(main())
