#!/usr/bin/env python3
"""Refuses packaging for the phone that does not fit the sources.   check_packaging.py [ROOT]

The access policy has exactly the rules that the sources' uses of the phone need, and labels
exactly what is ours; it compiles. The build file lists the library's sources and the phone's
libraries whose headers they include. The init script makes the directories and starts the
services. The page about the phone says the same.
"""

import sys
from pathlib import Path

import build_file_checks
import init_checks
import phone_page_checks
import phone_policy
import phone_uses
import policy_checks
import sources

FOLDER = Path("packaging/phone")


def check(root):
    folder = root / FOLDER
    uses = phone_uses.by_domain(root)
    policy = phone_policy.Policy(folder / "sepolicy")
    service = uses[phone_policy.SERVICE]
    script = (folder / "peltoserviced.rc").read_text()
    page = (root / phone_page_checks.PAGE).read_text()
    return [
        *dict.fromkeys(problem for used in uses.values() for problem in used.problems),
        *policy_checks.check(uses, policy, folder),
        *build_file_checks.check(root, (folder / "Android.bp").read_text()),
        *init_checks.check(service, policy, script),
        *phone_page_checks.check(page, uses, policy, script),
    ]


if __name__ == "__main__":
    try:
        sys.exit(sources.report(check(sources.root_argument())))
    except OSError as error:
        sys.exit(f"check_packaging.py: {error.filename}: {error.strerror}")
