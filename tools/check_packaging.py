#!/usr/bin/env python3
"""Refuses packaging for the phone that does not fit the sources.   check_packaging.py [ROOT]

Every path, property, object, socket and program that the sources use is granted by the access
policy, and labelled where the label is ours; nothing is granted or labelled that no source uses;
the policy compiles. The build file lists the library's sources and the phone's libraries whose headers
they include. The init script makes the directories and starts the services. The page about the
phone names them all.
"""

import re
import sys
from pathlib import Path

import build_file_checks
import init_checks
import phone_policy
import phone_uses
import policy_checks
import sources

FOLDER = Path("packaging/phone")
PAGE = Path("docs/on-the-phone.md")


def check_page(root, uses, code):
    text = (root / PAGE).read_text()
    for kind, name in sorted(uses.found):
        if kind not in ("priority", "socket") and f"`{name}`" not in text:
            yield f"{PAGE}: does not name `{name}`"
    for tag, line in re.findall(r"`(\w+)`: `([^`]+)`", text):
        if f'"{line}' not in code:
            yield f"{PAGE}: no source logs '{line}'"
        if f'"{tag}"' not in code:
            yield f"{PAGE}: no source has the tag '{tag}'"


def check(root):
    folder = root / FOLDER
    uses = phone_uses.by_domain(root)
    service = uses[phone_policy.SERVICE]
    policy = phone_policy.Policy(folder / "sepolicy")
    code = "".join(used.code for used in uses.values())
    script = (folder / "peltoserviced.rc").read_text()
    return [
        *dict.fromkeys(problem for used in uses.values() for problem in used.problems),
        *policy_checks.check(uses, policy, folder),
        *build_file_checks.check(root, (folder / "Android.bp").read_text()),
        *init_checks.check(service, policy, script),
        *(line for used in uses.values() for line in check_page(root, used, code)),
    ]


if __name__ == "__main__":
    sys.exit(sources.report(check(sources.root_argument())))
