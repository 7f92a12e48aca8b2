#!/usr/bin/env python3
"""Refuses product code that reaches the world past its two doors.   check_doors.py [ROOT]

Paths, commands, address families and times go through phone:: or a platform library. A member
function that has the name of a system call is called through its object (`this->poll(...)`).
"""

import re
import sys

import sources

_CALLS = """
    open openat creat fopen freopen opendir scandir glob stat lstat access mkdir mkdtemp mkstemp
    tmpfile remove unlink rmdir rename link symlink readlink chmod chown truncate chdir pread
    poll ppoll select system popen execl execlp execle execv execvp execve execvpe fork vfork
    posix_spawn posix_spawnp socket socketpair bind connect send sendto sendmsg recv recvfrom
    recvmsg sleep usleep nanosleep
    clock_nanosleep time gettimeofday clock_gettime getenv setenv putenv inotify_init inotify_init1
""".split()
_IN_STD = {"fopen", "freopen", "tmpfile", "remove", "rename", "system", "time", "getenv"}
_NAMES = [
    r"std\s*::\s*filesystem\b",
    r"std\s*::\s*this_thread\s*::\s*sleep_(?:for|until)\b",
    r"\b(?:steady|system|high_resolution)_clock\b",
    r"\b(?:i|o|)fstream\b",
]
_CALL = re.compile(r"\b(?P<name>%s)\s*\(" % "|".join(_CALLS))
_NAME = re.compile("|".join(_NAMES))
_STATEMENT_WORDS = {"return", "else", "do", "case", "throw", "and", "or", "not", "co_return"}


def is_bare(code, match):
    """Whether the name is called as the system's: unqualified, `::name(` or `std::name(`."""
    before = code[: match.start()].rstrip()
    if before.endswith((".", "->")):
        return False
    if before.endswith("::"):
        return scope_is_system(before[:-2], code, match)
    word = re.search(r"\w+$", before)  # `bool remove(` declares; `return remove(` calls
    return word is None or word.group() in _STATEMENT_WORDS


def scope_is_system(before, code, match):
    scope = re.search(r"(\w+)\s*$", before)
    if scope is None or scope.group(1) in _STATEMENT_WORDS:
        return True
    erase_idiom = match["name"] == "remove" and "," in code[match.end() :].split(";")[0]
    return scope.group(1) == "std" and match["name"] in _IN_STD and not erase_idiom


def check_file(root, path):
    code = sources.code_only(path.read_text())
    matches = [m for m in _CALL.finditer(code) if is_bare(code, m)] + list(_NAME.finditer(code))
    for match in sorted(matches, key=lambda m: m.start()):
        line = code.count("\n", 0, match.start()) + 1
        yield f"{path.relative_to(root)}:{line}: '{match.group()}' goes past phone::"


def check(root):
    return [problem for path in sources.shipped(root) for problem in check_file(root, path)]


if __name__ == "__main__":
    sys.exit(sources.report(check(sources.root_argument())))
