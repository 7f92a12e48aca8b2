"""What the code that ships to the phone uses of it, read from the text of the sources."""

import functools
import re
from pathlib import Path

import phone_policy
import sources

HOST = "host/phone_main.cpp"
# Runs in programs of its own, which capture logs: nothing of the service makes it.
_CAPTURE = "logcapture/KelvoPeltoLogThread"

_LITERAL = re.compile(r'"((?:\\.|[^"\\\n])*)"')
_LOG_CALL = re.compile(r"\b(?:__android_log_\w+|LOG_\w+|fail|static_assert)\(")
_CONSTANT = re.compile(r'\bconst(?:expr)?\b[^;="]*?\b(k\w+)(?:\[\])?\s*=\s*(?:"([^"]*)"|(-?\d+));')
_PATH = re.compile(r"(?<![\w%./-])/\w[\w.@-]*(?:/[\w.@-]+)*/?")
_PROGRAM = re.compile(r"(?:/system/bin/)?([a-z][a-z0-9_]*)(?: |$)")
_NEXT_PROGRAM = re.compile(r"[|&;(`]\s*(?:/system/bin/)?([a-z][a-z0-9_]*)")
_READ = r"(?:property_get|GetBoolProperty|GetIntProperty|GetUintProperty|GetProperty)"
_SET = r"(?:property_set|SetProperty)"
_NAME = r"\s*\(\s*([^\s,()]+)"


class Uses:
    """`found` maps (kind, name) to the first file; `code` is the whole text without comments.

    Kinds: path, program, clear (what dmesg prints), read and set (properties), start (services of
    init), find, add and dump (published objects), socket, priority.
    """

    def __init__(self, root, paths):
        self.found = {}
        self.problems = []
        headers = [path for path in sources.files(root, ["platform", *sources.PRODUCT])]
        self._shared = constants(text_of(path) for path in headers if path.suffix == ".h")
        self.code = "\n".join(map(text_of, paths))
        for path in paths:
            self._file = path.relative_to(root)
            self._own = constants([text_of(path)])
            self._read(text_of(path))

    def _add(self, kind, name):
        if name is not None:
            self.found.setdefault((kind, name), self._file)

    def _value(self, word):
        """The text or number that a word of the sources stands for."""
        if word.startswith('"'):
            return word.strip('"')
        name = word.split("::")[-1]
        value = self._own.get(name, self._shared.get(name))
        if value is None:
            self.problems.append(f"{self._file}: '{word}' is neither a literal nor a constant")
        return value

    def _read(self, code):
        quiet = without_log_calls(code)
        self._paths(quiet)
        if re.search(r"\bphone::system\(|\brunGuarded\(|\brunReported\(", code):
            self._programs(quiet)
        self._properties(quiet)
        self._objects(quiet)
        self._sockets(quiet)
        for priority in re.findall(r'\b(?:run|start)\(\s*"\w+",\s*([^\s,]+),', quiet):
            value = priority if priority.lstrip("-").isdigit() else self._value(priority)
            if value is not None and int(value) < 0:
                self._add("priority", "raised")

    def _paths(self, code):
        for literal in _LITERAL.findall(code):
            for path in _PATH.findall(literal):
                if not path.startswith("/system/bin/"):
                    self._add("path", path)

    def _programs(self, code):
        """A command line begins with a lower-case word that others follow; one without arguments
        stands first in the call that runs it."""
        if "phone::system(" in code:
            self._add("program", "sh")
        for match in _LITERAL.finditer(code):
            first = _PROGRAM.match(match[1])
            alone = " " not in match[1]
            if first is None or (alone and code[match.start() - 1] != "("):
                continue
            for program in (first[1], *_NEXT_PROGRAM.findall(match[1])):
                self._add("program", program)
            if first[1] == "dumpsys":
                self._add("dump", match[1].split()[1])
            if match[1].startswith("dmesg -c"):
                self._add("clear", "dmesg")

    def _properties(self, code):
        for word in re.findall(rf"\b{_READ}{_NAME}", code):
            self._add("read", self._value(word))
        for word, rest in re.findall(rf"\b{_SET}{_NAME}(?:\s*,\s*([^\s,()]*))?", code):
            name = self._value(word)
            if name == "ctl.start":
                self._add("start", self._value(rest))
            else:
                self._add("set", name)

    def _objects(self, code):
        name = r"\(\s*String16\(\s*([^\s()]+)\s*\)"
        for word in re.findall(rf"\b(?:get|check|waitFor)Service{name}", code):
            self._add("find", self._value(word))
        for word in re.findall(rf"\baddService{name}", code):
            self._add("add", self._value(word))
        if "PeltoEventUploadUtils::getInstance" in code:
            self._add("find", self._value("kPeltoServiceName"))

    def _sockets(self, code):
        for family in re.findall(r"\bphone::socket\(\s*(\w+)", code):
            protocols = re.findall(r"\bNETLINK_[A-Z_]+\b", code) if family == "AF_NETLINK" else []
            for name in protocols or [family]:
                self._add("socket", name.lower())


def by_domain(root):
    """What each domain of the policy uses."""
    capture = with_includes(root, [*root.glob(_CAPTURE + ".*")])
    every = [*sources.shipped(root), root / HOST, root / "phone/phone_device.cpp"]
    service = [path for path in every if path.stem != Path(_CAPTURE).name]
    uses = {phone_policy.SERVICE: Uses(root, service), phone_policy.CAPTURE: Uses(root, capture)}
    name = Path(_CAPTURE).name
    if re.search(rf"\b{name}\b", uses[phone_policy.SERVICE].code):
        uses[phone_policy.SERVICE].problems.append(
            f"a source of the service names {name}, which has the grants of a capturing program"
        )
    return uses


def with_includes(root, paths):
    """These files, all headers of the tree that they include, and the sources of those."""
    found, left = [], sorted(paths)
    while left:
        path = left.pop()
        if path in found or not path.is_file():
            continue
        found.append(path)
        for name in re.findall(r'^#include "([\w/.]+)"', path.read_text(), re.M):
            left += [root / name, (root / name).with_suffix(".cpp")]
    return sorted(found)


@functools.lru_cache(maxsize=None)
def without_comments(text):
    return sources.without_comments(text)


def text_of(path):
    return without_comments(path.read_text())


def constants(texts):
    found = [match for code in texts for match in _CONSTANT.findall(code)]
    return {name: text or number for name, text, number in found}


def without_log_calls(code):
    """The code without the calls that only log: what they name is not used there."""
    kept, end = [], 0
    for match in _LOG_CALL.finditer(code):
        if match.start() < end:
            continue
        kept.append(code[end : match.start()])
        end = end_of_call(code, match.end())
    return "".join(kept) + code[end:]


def end_of_call(code, position):
    depth = 1
    for match in re.compile(r'"(?:\\.|[^"\\\n])*"|[()]').finditer(code, position):
        depth += {"(": 1, ")": -1}.get(match.group(), 0)
        if depth == 0:
            return match.end()
    return len(code)


def library_sources(root):
    """The source files of the library as it ships."""
    found = ["phone/phone_device.cpp"]
    for folder in sources.PRODUCT:
        text = (root / folder / "CMakeLists.txt").read_text()
        for names in re.findall(r"target_sources\(pelto_product PRIVATE([^)]*)\)", text):
            found += [f"{folder}/{name}" for name in names.split()]
    return found


_LIBRARIES = {
    "android": "liblog",
    "android-base": "libbase",
    "binder": "libbinder",
    "cutils": "libcutils",
    "utils": "libutils",
}


def phone_libraries(root, paths):
    """The phone's libraries whose headers these files include."""
    folders = {
        folder
        for path in paths
        for folder in re.findall(r"#include <([\w-]+)/", path.read_text())
        if (root / "platform" / folder).is_dir()
    }
    return {_LIBRARIES.get(folder, "lib" + folder) for folder in folders}
