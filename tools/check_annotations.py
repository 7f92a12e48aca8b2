#!/usr/bin/env python3
"""Refuses product code that switches off the thread-safety analysis.   check_annotations.py [ROOT]
"""

import re
import sys

import sources

_OFF = re.compile(r'NO_THREAD_SAFETY_ANALYSIS|no_thread_safety_analysis|ignored\s+"-Wthread-safety')


def check_file(root, path):
    text = sources.without_comments(path.read_text())
    for match in _OFF.finditer(text):
        line = text.count("\n", 0, match.start()) + 1
        yield f"{path.relative_to(root)}:{line}: '{match.group()}' hides lock mistakes"


def check(root):
    return [problem for path in sources.shipped(root) for problem in check_file(root, path)]


if __name__ == "__main__":
    sys.exit(sources.report(check(sources.root_argument())))
