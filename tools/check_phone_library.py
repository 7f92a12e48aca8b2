#!/usr/bin/env python3
"""Refuses a phone build of the library that the phone could not load, or should not.

check_phone_library.py [--nm NM] [--platform DIR] [--needed FILE] [--stripped FILE [--most-bytes N]]
    LIBRARY
check_phone_library.py --needed FILE --write LIBRARY...

Every undefined symbol must be one of the phone's libraries, and what they and the linked libraries
are called must stand in the list --needed. With --write the list is made anew, from the libraries
of all processors.
"""

import argparse
import re
import subprocess
import sys
from pathlib import Path

import sources

_KIND = re.compile(
    r"(?:(?:vtable|typeinfo|typeinfo name|VTT|guard variable) for )?(?:(?:non-)?virtual thunk to )?"
)
_PREFIX = re.compile(_KIND.pattern + r"(?:android::)?")
# Undefined symbols that the toolchain adds to every library.
_RUNTIME = re.compile(r"_ITM_|__gmon_start__$|__cxa_finalize$|__aeabi_|__gnu_")
# Names inside the language's own libraries, which differ between compilers and processors.
_LANGUAGE = re.compile(r"_(?!_android)|std::_|operator (?:new|delete)")


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


def plain_name(name):
    """A symbol's name without version, arguments and kind, the same on every processor; "" for one
    that the compiler chose."""
    name = re.sub(r"<.*>", "", re.sub(r"[@(].*", "", name[_KIND.match(name).end() :]))
    name = name.replace("std::__cxx11::", "std::")
    if not name.startswith("operator"):
        name = name.split()[-1]  # a function template's name follows its result
    if name.startswith("std::"):
        name = "::".join(name.split("::")[:2])
    return "" if _LANGUAGE.match(name) else re.sub(r"64$", "", name)


def needed(nm, library):
    """What the library wants from outside: names of symbols, and of libraries it is linked with."""
    names = {plain_name(name) for kind, name in symbols(nm, library) if kind in "Uwv"}
    run = subprocess.run(["readelf", "-dW", library], check=True, capture_output=True, text=True)
    libraries = re.findall(r"\(NEEDED\).*\[((?!ld-)[^].]*)", run.stdout)
    return (names | {f"library {name}" for name in libraries}) - {""}


def check_needed(nm, library, listed):
    new = needed(nm, library) - set(listed.read_text().splitlines())
    again = f"tools/check_phone_library.py --needed {listed} --write"
    return [
        f"not in {listed}: {name}. If the phone has it, build both phone presets and run: "
        f"python3 -B {again} build/phone-*/libpeltoservice.so"
        for name in sorted(new)
    ]


def check_size(stripped, most_bytes):
    size = stripped.stat().st_size
    print(f"libpeltoservice.so, stripped: {size} bytes")
    return [f"{stripped}: more than {most_bytes} bytes"] if most_bytes and size > most_bytes else []


def write_needed(arguments):
    names = set().union(*(needed(arguments.nm, library) for library in arguments.library))
    arguments.needed.write_text("\n".join(sorted(names)) + "\n")
    return 0


def parse():
    parser = argparse.ArgumentParser()
    parser.add_argument("library", nargs="+")
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--platform", default="platform", help="their headers' folder")
    parser.add_argument("--needed", type=Path, help="the list of what it may want from outside")
    parser.add_argument("--write", action="store_true", help="make that list anew")
    parser.add_argument("--stripped", type=Path)
    parser.add_argument("--most-bytes", type=int, help="the limit of the stripped file")
    return parser.parse_args()


def main():
    arguments = parse()
    if arguments.write:
        return write_needed(arguments)
    problems = []
    for library in arguments.library:
        problems += check(arguments.nm, library, arguments.platform)
        if arguments.needed:
            problems += check_needed(arguments.nm, library, arguments.needed)
    if arguments.stripped:
        problems += check_size(arguments.stripped, arguments.most_bytes)
    return sources.report(problems)


if __name__ == "__main__":
    sys.exit(main())
