"""Compares the access policy with what the sources use, and compiles it."""

import re
import shutil
import subprocess
import tempfile
from pathlib import Path

import phone_policy
import policy_rules


def show(item):
    return " ".join(item).strip()


def show_rule(rule):
    return "{} {}:{} {}".format(*rule)


def check_items(domain, used, granted):
    for item, place in sorted(used.items()):
        if item not in granted:
            yield f"{place}: uses {show(item)}, which the policy does not grant to {domain}"
    for item in sorted(granted - set(used) - {policy_rules.START_UP}):
        yield f"{domain}.te: grants {show(item)}, which no source uses"
    if domain == phone_policy.SERVICE and policy_rules.START_UP not in granted:
        yield f"{domain}.te: does not grant {show(policy_rules.START_UP)}"


def check_blocks(domain, blocks, needs):
    """A group grants nothing but what its items need; all groups of an item, all it needs."""
    lacking = {}
    for item, rules in needs.items():
        given = set().union(*(block.rules for block in blocks if item in block.items))
        for rule in rules - given:
            lacking.setdefault(rule, []).append(show(item))
    for rule, items in sorted(lacking.items()):
        yield f"{domain}.te: lacks '{show_rule(rule)}' for {', '.join(items)}"
    for block in blocks:
        if block.rules and not block.items:
            yield f"{domain}.te: rules without a line 'For:': {show_rule(min(block.rules))}"
            continue
        here = {item: needs.get(item, set()) for item in block.items}
        for rule in sorted(block.rules - set().union(*here.values())):
            yield f"{domain}.te: '{show_rule(rule)}' is needed by none of {[*map(show, here)]}"
        for item, rules in here.items():
            if item in needs and not rules & block.rules:
                yield f"{domain}.te: names {show(item)} above rules that it does not need"


def check_domain(domain, used, policy):
    blocks = policy.blocks[domain]
    granted = {item for block in blocks for item in block.items}
    yield from check_items(domain, used, granted)
    needs = {item: policy_rules.needed(domain, item, policy) for item in sorted(granted)}
    for item in [item for item, rules in needs.items() if rules is None]:
        yield f"{domain}.te: {show(item)} has no label, or no line in tools/policy_rules.py"
        del needs[item]
    yield from check_blocks(domain, blocks, needs)


def check_labels(used, policy):
    """Every label of ours labels something, and every type is declared for what it labels."""
    labelled = {("file", policy_rules.PROGRAM_ENTRY)}
    for kind, name in used:
        labelled.add((phone_policy.LABELLED_IN.get(kind), policy.label(kind, name)[0]))
    for kind, entries in policy.labels.items():
        for entry, _ in entries:
            if (kind, entry) not in labelled:
                yield f"{kind}_contexts labels {entry}, which no source uses"
    expected = policy_rules.type_attributes(policy)
    for name in sorted(set(expected) | set(policy.types)):
        if name not in policy.types:
            yield f"the policy lacks the type {name}, which a label gives"
        elif name not in expected:
            yield f"the policy has the type {name}, which labels nothing"
        elif policy.types[name] != expected[name]:
            yield f"the type {name} has other attributes than {sorted(expected[name])}"


def check_stated(used):
    for item in sorted(policy_rules.stated() - used):
        yield f"tools/policy_rules.py states what {show(item)} needs, which no source uses"


def texts(folder):
    return [path.read_text() for path in sorted((folder / "sepolicy").glob("*.te"))]


def compile_policy(folder):
    if shutil.which("checkmodule") is None:
        print("the policy is not compiled: there is no checkmodule here")
        return []
    text = "".join([(folder / "stubs.te").read_text(), *texts(folder)])
    with tempfile.TemporaryDirectory() as scratch:
        (Path(scratch) / "peltoserviced.te").write_text(text)
        command = ["checkmodule", "-m", "-M", "-o", "peltoserviced.mod", "peltoserviced.te"]
        run = subprocess.run(command, cwd=scratch, capture_output=True, text=True)
    return [f"the policy does not compile: {run.stderr.strip()}"] if run.returncode else []


def check_stubs(folder, policy):
    stubs = (folder / "stubs.te").read_text()
    text = re.sub(r"#.*", "", "".join(texts(folder)))
    for name in re.findall(r"^ +(?:type|attribute) (\w+)", stubs, re.M):
        if not re.search(rf"\b{name}\b", text):
            yield f"stubs.te has {name}, which the policy does not name"
    blocks = [block for blocks in policy.blocks.values() for block in blocks]
    used = {(name, word) for block in blocks for _, _, name, word in block.rules}
    for name, words in re.findall(r"^ +class (\w+) \{([^}]*)\}", stubs, re.M):
        for word in sorted(set(words.split()) - {word for class_, word in used if class_ == name}):
            yield f"stubs.te has {name} {word}, which the policy does not name"


def compare(uses, policy):
    """`uses` by the domain of the policy."""
    every = {item for used in uses.values() for item in used.found}
    return [
        *policy.problems,
        *(line for name, used in uses.items() for line in check_domain(name, used.found, policy)),
        *check_labels(every, policy),
        *check_stated(every),
    ]


def check(uses, policy, folder):
    names = {path.stem for path in (folder / "sepolicy").glob("*.te")}
    return [
        *(f"sepolicy has {name}.te, which nothing compares" for name in sorted(names - set(uses))),
        *compare(uses, policy),
        *compile_policy(folder),
        *check_stubs(folder, policy),
    ]
