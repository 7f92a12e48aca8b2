"""Compares the access policy with what the sources use, and compiles it."""

import re
import shutil
import subprocess
import tempfile
from pathlib import Path

import phone_policy

PROGRAM = "/system_ext/bin/peltoserviced"
START_UP = ("start-up", "")

# By the kind of an item: the permission that it takes, as class and name, and all classes that
# rules for it may name.
_FILES = {"dir", "file", "lnk_file"}
_NEEDS = {
    "start-up": ("process transition", {"binder", "dir", "file", "process"}),
    "path": ("", _FILES),
    "program": (
        "file execute_no_trans",
        {"binder", "capability2", "fd", "fifo_file", "file", "sock_file", "system"}
        | {"unix_stream_socket"},
    ),
    "read": ("file read", {"file"}),
    "set": (
        "property_service set",
        {"property_service", "file", "sock_file", "unix_stream_socket"},
    ),
    "start": ("property_service set", {"property_service"}),
    "find": ("service_manager find", {"service_manager", "binder"}),
    "add": ("service_manager add", {"service_manager", "binder"}),
    "socket": ("", set()),  # its own class
    "priority": ("capability sys_nice", {"capability", "process"}),
}
# Permissions that nothing else needs than what they are named for above.
_TELLING = {permission for permission, _ in _NEEDS.values()} - {"", "file read"}
_CHANGES = {f"file {word}" for word in ("append", "create", "setattr", "unlink", "write")}
_CHANGES |= {f"dir {word}" for word in ("add_name", "create", "remove_name", "setattr", "write")}


def show(item):
    return " ".join(item).strip()


def check_items(uses, policy):
    granted = {item for block in policy.blocks for item in block.items}
    for item, place in sorted(uses.found.items()):
        if item not in granted:
            yield f"{place}: uses {show(item)}, which the policy does not grant"
    for item in sorted(granted - set(uses.found) - {START_UP}):
        yield f"the policy grants {show(item)}, which no source uses"


def check_statements(policy):
    """Nothing but the few plain forms that are compared here."""
    for statement in policy.statements:
        word = (statement.split() or ["type"])[0]
        plain = word in ("allow", "attribute", "type", "type_transition")
        if not plain or re.search(r"[*~(]", statement):
            yield f"the policy has '{statement.strip()}': only plain rules can be compared"


def needed_permission(kind, name):
    return f"{name}_socket create" if kind == "socket" else _NEEDS[kind][0]


def check_block(block):
    if not block.items:
        yield f"rules without a line 'For:': {block.text.splitlines()[0]}"
        return
    kinds = {kind for kind, _ in block.items}
    if not kinds <= set(_NEEDS):
        yield f"'For:' with a kind that is none of {sorted(_NEEDS)}: {sorted(kinds)}"
        return
    what = show(block.items[0])
    given = {f"{name} {word}" for _, name, permissions in block.rules for word in permissions}
    needed = {needed_permission(*item) for item in block.items} - {""}
    for permission in sorted(needed - given):
        yield f"the rules for {what} lack {permission}"
    for permission in sorted(given & (_TELLING - needed)):
        yield f"the rules for {what} grant {permission}, which none of them needs"
    classes = set().union(*(_NEEDS[kind][1] for kind in kinds))
    classes |= {f"{name}_socket" for kind, name in block.items if kind == "socket"}
    for name in sorted({name for _, name, _ in block.rules} - classes):
        yield f"the rules for {what} grant the class {name}, which none of them needs"
    written = any(kind == "path" and not name.startswith("/sys/") for kind, name in block.items)
    for permission in sorted(given & _CHANGES) if not written else ():
        yield f"the rules for {what} grant {permission}, but they change no file"


def check_labels(policy):
    """Every label of ours is used by the rules of what it labels, and labels something."""
    labelled = {("file", policy.label("path", PROGRAM)[0])}
    for block in policy.blocks:
        here = {policy.label("path", PROGRAM)[1]} if START_UP in block.items else set()
        for kind, name in block.items:
            entry, given = policy.label(kind, name)
            labelled.add((phone_policy.LABELLED_IN.get(kind), entry))
            here.add(given)
        for name in sorted(policy.own_targets(block) - here):
            what = show(block.items[0])
            yield f"the rules for {what} name {name}, which labels nothing of theirs"
    for kind, entries in policy.labels.items():
        for entry, given in entries:
            if (kind, entry) not in labelled:
                yield f"{kind}_contexts labels {entry}, which no source uses"
            if given not in policy.types:
                yield f"{kind}_contexts gives {entry} the type {given}, which the policy has not"


def check_granted_where_labelled(policy):
    """What is labelled with a type of ours is granted through that type."""
    for item in sorted({item for block in policy.blocks for item in block.items} - {START_UP}):
        given = policy.label(*item)[1]
        blocks = [block for block in policy.blocks if item in block.items]
        if given is not None and not any(given in block.targets() for block in blocks):
            yield f"no rule for {show(item)} names its type {given}"
        if given is None and all(policy.own_targets(block) for block in blocks):
            yield f"{show(item)} has no label, but rules that name a type of ours"


def compile_policy(folder):
    if shutil.which("checkmodule") is None:
        print("the policy is not compiled: there is no checkmodule here")
        return []
    parts = ("stubs.te", "sepolicy/peltoserviced.te")
    text = "".join((folder / part).read_text() for part in parts)
    with tempfile.TemporaryDirectory() as scratch:
        (Path(scratch) / "peltoserviced.te").write_text(text)
        command = ["checkmodule", "-m", "-M", "-o", "peltoserviced.mod", "peltoserviced.te"]
        run = subprocess.run(command, cwd=scratch, capture_output=True, text=True)
    return [f"the policy does not compile: {run.stderr.strip()}"] if run.returncode else []


def check_stubs(folder):
    stubs = (folder / "stubs.te").read_text()
    policy = re.sub(r"#.*", "", (folder / "sepolicy/peltoserviced.te").read_text())
    for name in re.findall(r"^ +(?:type|attribute|class) (\w+)", stubs, re.M):
        if not re.search(rf"\b{name}\b", policy):
            yield f"stubs.te has {name}, which the policy does not name"


def check(uses, policy, folder):
    return [
        *check_items(uses, policy),
        *check_statements(policy),
        *(problem for block in policy.blocks for problem in check_block(block)),
        *check_labels(policy),
        *check_granted_where_labelled(policy),
        *compile_policy(folder),
        *check_stubs(folder),
    ]
