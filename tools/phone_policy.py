"""The access policy of packaging/phone/sepolicy, as far as tools/check_packaging.py compares it."""

import re

# The domain of the service, and the attribute of the programs that capture logs: each has a file.
SERVICE = "peltoserviced"
CAPTURE = "pelto_capture"

_FOR = re.compile(r"^# For: (\S+)(?: (\S+))?$", re.M)
_SET = r"(\w+|\{[\w\s]+\})"
_ALLOW = re.compile(rf"allow\s+{_SET}\s+{_SET}\s*:\s*{_SET}\s+{_SET}")
_TRANSITION = re.compile(r"type_transition\s+(\w+)\s+(\w+)\s*:\s*(\w+)\s+(\w+)")
_TYPE = re.compile(r"type\s+(\w+)((?:\s*,\s*\w+)*)")
_ATTRIBUTE = re.compile(r"attribute\s+(\w+)")
_LABEL = {
    "file": re.compile(r"(\S+)\s+u:object_r:(\w+):s0"),
    "property": re.compile(r"(\S+)\s+u:object_r:(\w+):s0(?:\s+exact (?:string|bool|int))?"),
    "service": re.compile(r"(\S+)\s+u:object_r:(\w+):s0"),
}


class Statements:
    """Rules as (subject, object, class, permission), each permission its own rule; types with
    their attributes; and the statements of any other form."""

    def __init__(self, text):
        self.rules, self.types, self.others = set(), {}, []
        *statements, rest = re.sub(r"#.*", "", text).split(";")
        for statement in statements:
            self._read(statement.strip())
        if rest.strip():
            self.others.append(rest.strip())

    def _read(self, statement):
        if match := _ALLOW.fullmatch(statement):
            subjects, objects, classes, permissions = (
                words.strip("{}").split() for words in match.groups()
            )
            self.rules |= {
                (subject, object_, name, permission)
                for subject in subjects
                for object_ in objects
                for name in classes
                for permission in permissions
            }
        elif match := _TRANSITION.fullmatch(statement):
            subject, object_, name, becomes = match.groups()
            self.rules.add((subject, object_, name, f"-> {becomes}"))
        elif match := _TYPE.fullmatch(statement):
            self.types[match[1]] = set(re.findall(r"\w+", match[2]))
        elif statement and not _ATTRIBUTE.fullmatch(statement):
            self.others.append(statement)


class Block(Statements):
    """Rules that belong together, with what in the sources needs them."""

    def __init__(self, text):
        super().__init__(text)
        self.items = [match.groups("") for match in _FOR.finditer(text)]


class Policy:
    """`blocks` by the name of the file; `types` of all files; `labels` by the kind of a contexts
    file; `problems` are the lines that cannot be read."""

    def __init__(self, folder):
        self.blocks, self.types, self.problems = {}, {}, []
        for domain in (SERVICE, CAPTURE):
            text = (folder / f"{domain}.te").read_text()
            self.blocks[domain] = [Block(part) for part in re.split(r"\n\s*\n", text)]
            for block in self.blocks[domain]:
                self.types |= block.types
                for statement in block.others:
                    self.problems.append(
                        f"{domain}.te: '{statement}': only plain rules can be compared"
                    )
        self.labels = {kind: self._contexts(folder, kind) for kind in _LABEL}

    def _contexts(self, folder, kind):
        """(entry, type) of each line of a contexts file."""
        found = []
        for line in (folder / f"{kind}_contexts").read_text().splitlines():
            if match := _LABEL[kind].fullmatch(line.strip()):
                found.append(match.groups())
            elif line.strip() and line[0] != "#":
                self.problems.append(f"{kind}_contexts: '{line}' is no label that can be compared")
        return found

    def label(self, kind, name):
        """The entry for an item and the type it gives; None for the type if there is no entry."""
        entry = entry_for(kind, name)
        return entry, dict(self.labels.get(LABELLED_IN.get(kind), ())).get(entry)


LABELLED_IN = {
    "path": "file",
    **dict.fromkeys(("read", "set", "start"), "property"),
    **dict.fromkeys(("find", "add", "dump"), "service"),
}


def entry_for(kind, name):
    """What a label of ours is given to: of a path, its directory and all in it."""
    if kind == "path":
        # An attribute below /sys/class is labelled where its device has it.
        return name.rpartition("/")[0].replace("/sys/class/", "/sys/devices/.+/") + "(/.*)?"
    return "ctl.start$" + name if kind == "start" else name
