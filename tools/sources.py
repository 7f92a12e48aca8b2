"""The tree's C++ sources, and their text without comments and strings."""

import re
import sys
from pathlib import Path

_BUILD_FILE = (Path(__file__).resolve().parent.parent / "CMakeLists.txt").read_text()
PRODUCT = tuple(re.search(r"set\(PELTO_PRODUCT_FOLDERS ([^)]*)\)", _BUILD_FILE)[1].split())
FOLDERS = PRODUCT + ("phone", "platform", "sim", "commandline", "host", "client", "tests", "bench", "fuzz")

_TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/"""
    r"""|R"(?P<raw>[^(\s]*)\(.*?\)(?P=raw)\""""
    r"""|"(?:\\.|[^"\\\n])*\""""
    r"""|(?<![0-9A-Za-z_])'(?:\\.|[^'\\\n])*'""",
    re.S,
)


def _blank(match):
    text = match.group()
    quotes = text[0] if text[0] in "\"'" else '"' if text[0] == "R" else ""
    return quotes * 2 + "\n" * text.count("\n")


def without_comments(text):
    return _TOKEN.sub(lambda m: _blank(m) if m.group().startswith("/") else m.group(), text)


def code_only(text):
    """The text with comments gone and strings empty; lines keep their numbers."""
    return _TOKEN.sub(_blank, text)


def is_test(path):
    """Tests stand beside the code as *_test.cpp, what they share in a folder testing/."""
    return re.search(r"_test\.(h|cpp)$", path.name) is not None or path.parent.name == "testing"


def files(root, folders):
    for folder in folders:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in (".h", ".cpp") and path.is_file():
                yield path


def shipped(root):
    """The product's own files: its folders without the tests that stand beside the code."""
    return (path for path in files(root, PRODUCT) if not is_test(path))


def report(problems):
    """Prints what was found and returns the exit code."""
    for problem in problems:
        print(problem)
    return 1 if problems else 0


def root_argument():
    return Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
