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
import phone_policy
import phone_uses
import policy_checks
import policy_rules
import sources

FOLDER = Path("packaging/phone")
PAGE = Path("docs/on-the-phone.md")


def check_init_script(uses, policy, text):
    services = dict(re.findall(r"^service (\S+) .*\n((?:    .*\n)+)", text, re.M))
    started = {name for kind, name in uses.found if kind == "start"}
    for name in sorted(started ^ (set(services) - {"peltoserviced"})):
        yield f"peltoserviced.rc: the service {name} is not what the sources start by name"
    for name in sorted(started & set(services)):
        if not {"oneshot", "disabled"} <= set(services[name].split()):
            yield f"peltoserviced.rc: {name} is not started by name only, or restarted"
    if f"service peltoserviced {policy_rules.PROGRAM}\n" not in text:
        yield f"peltoserviced.rc: does not start {policy_rules.PROGRAM}"
    yield from check_capabilities(policy, services.get("peltoserviced", ""))
    yield from check_directories(uses, policy, text)


def check_capabilities(policy, service):
    rules = set().union(*(block.rules for block in policy.blocks[phone_policy.SERVICE]))
    granted = {word.upper() for _, _, name, word in rules if name.startswith("capability")}
    given = re.search(r"^ +capabilities (.*)$", service, re.M)
    if granted != set(given[1].split() if given else ()):
        yield f"peltoserviced.rc: gives other capabilities than the policy's {sorted(granted)}"


def check_directories(uses, policy, text):
    made = re.findall(r"^ +mkdir (\S+) 0[0-7]{3} \w+ \w+$", text, re.M)
    wanted = {
        path[: path.rindex("/")]
        for kind, path in uses.found
        if kind == "path" and path.startswith("/data/") and policy.label(kind, path)[1]
    }
    for path in sorted(wanted - set(made)):
        yield f"peltoserviced.rc: does not make {path}"
    for path in sorted(made):
        if not any((directory + "/").startswith(path + "/") for directory in wanted):
            yield f"peltoserviced.rc: makes {path}, which no source uses"
    for path in re.findall(r"^ +restorecon_recursive (\S+)$", text, re.M):
        if not any(kind == "path" and name.startswith(path + "/") for kind, name in uses.found):
            yield f"peltoserviced.rc: labels {path}, which no source uses"


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
        *check_init_script(service, policy, script),
        *(line for used in uses.values() for line in check_page(root, used, code)),
    ]


if __name__ == "__main__":
    sys.exit(sources.report(check(sources.root_argument())))
