"""Compares the page about the phone with the sources, the policy and the init script."""

import re

import init_checks
import phone_policy

PAGE = "docs/on-the-phone.md"
CHILDREN = "what it runs by `system()`"


def rows(text, heading):
    """The cells of the table below a heading."""
    part = text.partition(f"\n## {heading}\n")[2].partition("\n## ")[0]
    lines = [line for line in part.splitlines() if line.startswith("|")][2:]
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines]


def names(text):
    return re.findall(r"`([^`]+)`", text)


def differences(what, found, expected):
    for name in sorted(expected - set(found)):
        yield f"{PAGE}: {what} lacks `{name}`"
    for name in sorted(set(found) - expected):
        yield f"{PAGE}: {what} has `{name}`, which does not belong there"
    if len(found) != len(set(found)):
        yield f"{PAGE}: {what} has a name twice"


def check_paths(text, uses, policy, script):
    owners = init_checks.made(script)
    table = [(row[0].strip("`"), row[1:3]) for row in rows(text, "Paths")]
    used = {name for kind, name in uses.found if kind == "path"}
    yield from differences("the table of paths", [path for path, _ in table], used)
    for path, cells in table:
        if path not in used:
            continue
        owner, maker = [*cells, "", ""][:2]
        mode = owners.get(path[: path.rindex("/")])
        if path.startswith("/sys/"):
            right = maker == "the driver"
        elif mode is None:
            right = (owner, maker) == ("the phone's", "the phone")
        else:
            expected = " ".join([*mode[1:], mode[0]])
            plain = owner.removesuffix(" (its directory)")
            right = (plain, maker) == (expected, "init")
        if not right:
            yield f"{PAGE}: `{path}` has another owner, mode or maker than the init script gives it"


def check_processes(text, uses, script):
    table = rows(text, "What runs as what")
    expected = {}
    for section, lines in init_checks.sections(script).items():
        if not section.startswith("service "):
            continue
        options = {line.split()[0]: line.split()[1:] for line in lines}
        user, groups = options.get("user", []), options.get("group", [])
        groups = [name for name in groups if name not in user]
        expected[section.split()[1]] = (user + groups, options.get("capabilities", []))
    found = {row[0].strip("`"): tuple(map(names, row[1:3])) for row in table if row[0] != CHILDREN}
    for name in sorted(set(found) | set(expected)):
        if found.get(name) != expected.get(name):
            yield f"{PAGE}: `{name}` has another user, group or capability than in the init script"
    programs = {name for kind, name in uses.found if kind == "program"}
    listed = [name for row in table if row[0] == CHILDREN for name in names(row[-1])]
    yield from differences("the row of programs", listed, programs)


def check_lists(text, domain, uses, lists):
    """Each list stands between its heading and the next full stop."""
    for heading, kinds in lists.items():
        found = re.search(rf"\b{heading}:\s((?:`[^`]+`|[^`.])*)\.", text)
        expected = {name for kind, name in uses.found if kind in kinds}
        yield from differences(
            f"'{heading}' of {domain}", names(found[1]) if found else [], expected
        )


def check_log_lines(text, code):
    for tag, line in re.findall(r"`(\w+)`: `([^`]+)`", text):
        if f'"{line}' not in code:
            yield f"{PAGE}: no source logs '{line}'"
        if f'"{tag}"' not in code:
            yield f"{PAGE}: no source has the tag '{tag}'"


def check(text, uses, policy, script):
    service, capture = uses[phone_policy.SERVICE], uses[phone_policy.CAPTURE]
    yield from check_paths(text, service, policy, script)
    yield from check_processes(text, service, script)
    lists = {
        "Properties set": {"set"},
        "Started by init": {"start"},
        "Read": {"read"},
        "Published": {"add"},
        "Called": {"find"},
        "Sockets": {"socket"},
    }
    yield from check_lists(text, phone_policy.SERVICE, service, lists)
    lists = {"Its programs": {"program"}, "Dumped": {"dump"}}
    yield from check_lists(text, phone_policy.CAPTURE, capture, lists)
    yield from check_log_lines(text, service.code + capture.code)
