"""The access policy of packaging/phone/sepolicy, as far as tools/check_packaging.py compares it."""

import re

_STATEMENT = re.compile(r"^\s*(allow|type_transition)\s+([^;]*);", re.M)
_FOR = re.compile(r"^# For: (\S+)(?: (\S+))?$", re.M)
_PART = re.compile(r"\{[^}]*\}|[^\s:{}]+")


class Block:
    """Rules that belong together, with what in the sources needs them."""

    def __init__(self, text):
        self.text = text
        self.items = [match.groups("") for match in _FOR.finditer(text)]
        self.rules = []  # (target types, class, permissions)
        for word, body in _STATEMENT.findall(text):
            if word == "allow":
                parts = (part.strip("{}").split() for part in _PART.findall(body))
                _, targets, classes, permissions = parts
                self.rules += [(set(targets), name, set(permissions)) for name in classes]

    def targets(self):
        return set().union(*(targets for targets, _, _ in self.rules), set())

    def is_empty(self):
        return not (self.items or _STATEMENT.search(self.text))


class Policy:
    def __init__(self, folder):
        text = (folder / "peltoserviced.te").read_text()
        blocks = map(Block, re.split(r"\n\s*\n", text))
        self.blocks = [block for block in blocks if not block.is_empty()]
        self.statements = re.sub(r"#.*", "", text).split(";")
        self.types = set(re.findall(r"^type (\w+)", text, re.M))
        self.domains = set(re.findall(r"^type (\w+), domain\b", text, re.M))
        kinds = ("file", "property", "service")
        self.labels = {kind: contexts(folder / f"{kind}_contexts") for kind in kinds}

    def own_targets(self, block):
        """The types of ours that its rules grant access to, besides processes."""
        return (block.targets() & self.types) - self.domains

    def label(self, kind, name):
        """The entry for an item and the type it gives, or None twice. Later entries win."""
        for entry, given in reversed(self.labels.get(LABELLED_IN.get(kind), [])):
            if matches(kind, entry, name):
                return entry, given
        return None, None


LABELLED_IN = {
    "path": "file",
    **dict.fromkeys(("read", "set", "start"), "property"),
    **dict.fromkeys(("find", "add"), "service"),
}


def matches(kind, entry, name):
    if kind == "path":
        # An attribute below /sys/class is labelled where its device has it.
        real = name.rstrip("/").replace("/sys/class/", "/sys/devices/any/")
        return re.fullmatch(entry, real) is not None
    return entry == ("ctl.start$" + name if kind == "start" else name)


def contexts(path):
    """(entry, type) of each line of a contexts file."""
    lines = [line.split() for line in path.read_text().splitlines() if line.strip()]
    return [
        (words[0], re.fullmatch(r"u:object_r:(\w+):s0", words[1])[1])
        for words in lines
        if words[0][0] != "#"
    ]
