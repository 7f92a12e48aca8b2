"""Compares the init script with what the sources use and the policy grants, line by line."""

import re

import phone_policy
import policy_rules

_LEAF = ("0770", "system", "log")
_ABOVE = ("0771", "system", "log")
_MKDIR = re.compile(r"mkdir (/\S+) (0[0-7]{3}) (\w+) (\w+)")


def sections(text):
    """The lines of each section by its first line, in their order, without comments."""
    found, lines = {}, []
    for line in text.splitlines():
        if not line.strip() or line.strip().startswith("#"):
            continue
        if line[0] != " ":
            lines = found.setdefault(line, [])
        else:
            lines.append(line.strip())
    return found


def made(text):
    """(mode, owner, group) of the directories that the script makes, in its order."""
    return {match[1]: match.groups()[1:] for match in _MKDIR.finditer(text)}


def services(uses, policy):
    """The entries of the services: the host's own, and those that the sources start by name."""
    rules = set().union(*(block.rules for block in policy.blocks[phone_policy.SERVICE]))
    capabilities = sorted(
        permission.upper()
        for who, _, name, permission in rules
        if who == phone_policy.SERVICE and name.startswith("capability")
    )
    found = {
        f"service peltoserviced {policy_rules.PROGRAM}": [
            "class main",
            "user system",
            "group system log",
            "capabilities " + " ".join(capabilities),
        ]
    }
    for kind, name in sorted(uses.found):
        if kind == "start":
            found[f"service {name} /system_ext/bin/{name}"] = [
                "user system",
                "group system audio",
                "disabled",
                "oneshot",
            ]
    return found


def written_directories(uses, policy):
    """The directories below /data whose label is ours."""
    for kind, path in sorted(uses.found):
        if kind == "path" and path.startswith("/data/") and policy.label(kind, path)[1]:
            yield path[: path.rindex("/")]


def directories(uses, policy):
    """(mode, owner, group) of each directory to make: those written to, and all above them."""
    found = {}
    for path in written_directories(uses, policy):
        parts = path.split("/")
        found |= {"/".join(parts[:end]): _ABOVE for end in range(3, len(parts))}
    return found | dict.fromkeys(written_directories(uses, policy), _LEAF)


def check_lines(section, lines, expected):
    for line in [line for line in expected if line not in lines]:
        yield f"peltoserviced.rc: '{section}' lacks '{line}'"
    for line in [line for line in lines if line not in expected]:
        yield f"peltoserviced.rc: '{section}' has '{line}', which does not belong there"
    if len(lines) != len(set(lines)):
        yield f"peltoserviced.rc: '{section}' has a line twice"


def check_order(lines):
    """Init makes no directory whose parent is missing."""
    before = {"/data"}
    for path in made("\n".join(lines)):
        if path.rpartition("/")[0] not in before:
            yield f"peltoserviced.rc: makes {path} before the directory above it"
        before.add(path)


def check(uses, policy, text):
    found = sections(text)
    labelled = {
        name.rpartition("/")[0]
        for kind, name in uses.found
        if kind == "path" and name.startswith("/sys/")
    }
    expected = services(uses, policy) | {
        "on post-fs-data": [
            f"mkdir {path} {' '.join(owner)}" for path, owner in directories(uses, policy).items()
        ],
        "on boot": [f"restorecon_recursive {path}" for path in sorted(labelled)],
    }
    for section in sorted(set(found) | set(expected)):
        if section not in found:
            yield f"peltoserviced.rc: has no '{section}'"
        elif section not in expected:
            yield f"peltoserviced.rc: has '{section}', which no source needs"
        else:
            yield from check_lines(section, found[section], expected[section])
    yield from check_order(found.get("on post-fs-data", ()))
