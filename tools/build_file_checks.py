"""Compares the phone's build file with the library's sources and the headers they include."""

import re

import phone_uses
import sources

_MODULE = re.compile(r"^(\w+) \{\n(.*?)^\}$", re.S | re.M)
_LIST = r'\[((?:\s*"[^"\n]*",)*(?:\s*"[^"\n]*")?\s*)\]'
_SETTING = re.compile(rf'\s*(\w+): (?:{_LIST}|("[^"]*"|\w+)),')


def modules(text):
    """The settings of each module by its name, and what is left of the text besides."""
    found = {}
    text = re.sub(r"//.*", "", text)
    for kind, body in _MODULE.findall(text):
        settings = {"module": kind, "left": _SETTING.sub("", body).strip()}
        for key, listed, single in _SETTING.findall(body):
            settings[key] = single.strip('"') or re.findall(r'"([^"]*)"', listed)
        found[settings.get("name", "")] = settings
    return found, _MODULE.sub("", text).strip()


def expected_modules(root):
    libraries = phone_uses.phone_libraries
    host = {"libpeltoservice", "libutils"}  # libutils: what sp<> calls
    return {
        "libpeltoservice_defaults": {
            "module": "cc_defaults",
            "system_ext_specific": "true",
            "compile_multilib": "32",
            "cpp_std": "c++17",
            "local_include_dirs": ["."],
            "cflags": ["-Os", "-Wall", "-Wextra", "-Werror"],
            "cppflags": ["-fexceptions"],
        },
        "libpeltoservice": {
            "module": "cc_library_shared",
            "defaults": ["libpeltoservice_defaults"],
            "srcs": phone_uses.library_sources(root),
            "shared_libs": [*libraries(root, sources.shipped(root))],
        },
        "peltoserviced": {
            "module": "cc_binary",
            "defaults": ["libpeltoservice_defaults"],
            "srcs": [phone_uses.HOST],
            "init_rc": ["peltoserviced.rc"],
            "shared_libs": [*libraries(root, [root / phone_uses.HOST]) | host],
        },
    }


def check_setting(what, found, expected):
    if not (isinstance(found, list) and isinstance(expected, list)):
        if found != expected:
            yield f"Android.bp: {what} is {found}, not {expected}"
        return
    for name in sorted(set(expected) - set(found)):
        yield f"Android.bp: {what} lacks {name}"
    for name in sorted(set(found) - set(expected)):
        yield f"Android.bp: {what} has {name}, which does not belong there"
    if len(found) != len(set(found)):
        yield f"Android.bp: {what} has a name twice"


def check(root, text):
    found, left = modules(text)
    expected = expected_modules(root)
    if left:
        yield f"Android.bp: '{left.splitlines()[0]}' cannot be compared"
    for name in sorted(set(found) | set(expected)):
        settings = found.get(name, {})
        wanted = {"name": name, "left": "", **expected[name]} if name in expected else {}
        for key in sorted(set(settings) | set(wanted)):
            yield from check_setting(f"{name}'s {key}", settings.get(key), wanted.get(key))
