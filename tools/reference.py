"""The reference: each family's contract, written once in its table, rendered as the comment
block above the family in include/keli.h and as docs/reference/<subsystem>.md.

In a table, lines that start with '>' hold the contract (Markdown, the '>' and one space
removed); 'see: <subsystem>/<table>' lines name related families, which the pages link.
gen_exports.py calls this module, so the pages are checked for staleness with the header.
"""
import re
from collections import OrderedDict

TYPE = re.compile(r"^\d+(?:u|s|f|sc|fc)(?:\d+(?:u|s|f|sc|fc))*$")


def parse_doc(path):
    """Returns (contract lines, related tables) of one table."""
    contract, related = [], []
    for raw in path.read_text().splitlines():
        line = raw.strip()
        if line.startswith(">"):
            contract.append(line[2:] if line.startswith("> ") else line[1:])
        elif line.startswith("see:"):
            related += line[4:].split()
    while contract and not contract[-1].strip():
        contract.pop()
    for line in contract:
        if "/*" in line or "*/" in line:
            raise ValueError(f"{path}: a contract line holds a C comment mark (use // in examples): {line}")
    return contract, related


def anchor(title):
    """The fragment a Markdown renderer gives a heading."""
    return re.sub(r"[^a-z0-9 -]", "", title.lower()).replace(" ", "-")


def header_comment(contract):
    """The contract as a C comment block, or nothing for a table without one."""
    if not contract:
        return ""
    body = [(" * " + line).rstrip() for line in contract]
    return "/*\n" + "\n".join(body) + "\n */\n"


def split_name(name):
    """keliAdd_8u_C1IRSfs_L -> ('keliAdd', '8u', 'C1IRSfs', True). The variant words of names
    such as keliThreshold_LTVal_8u_C1R stay with the function; names with no element type
    (size queries, version) have type '' and their suffix as the layout."""
    parts = name.split("_")
    wide = len(parts) > 1 and parts[-1] == "L"
    if wide:
        parts = parts[:-1]
    typed = [i for i, p in enumerate(parts) if i > 0 and TYPE.match(p)]
    if not typed:
        return parts[0] if len(parts) == 1 else "_".join(parts[:-1]), "", parts[-1] if len(parts) > 1 else "", wide
    t = typed[0]
    return "_".join(parts[:t]), parts[t], "_".join(parts[t + 1:]), wide


def member_table(names):
    """One row a function and element type: its layouts and letters, '+_L' where the wide
    member exists too."""
    rows = OrderedDict()
    for name in names:
        function, etype, layout, wide = split_name(name)
        members = rows.setdefault((function, etype), OrderedDict())
        members[layout] = members.get(layout, False) or wide
    lines = ["| function | type | members (`_L`: wide member too) |", "|---|---|---|"]
    for (function, etype), members in rows.items():
        listed = ", ".join(f"{m or '-'}{' +_L' if wide else ''}" for m, wide in members.items())
        lines.append(f"| `{function}` | {etype or '-'} | {listed} |")
    return "\n".join(lines)


def page(label, families, titles):
    """One subsystem's page. families: [(table key, title, contract, related, names)];
    titles maps every table key of the library to (subsystem, title) for the links."""
    out = [f"# {label}\n", "Generated from the tables under `api/` by `tools/gen_exports.py`.\n"]
    out += [f"- [{title}](#{anchor(title)}): {len(names)} exports" for _, title, _, _, names in families]
    for key, title, contract, related, names in families:
        out.append(f"\n## {title}\n")
        out.append(f"Table: `api/{key}.api`. {len(names)} exports.\n")
        out.append("\n".join(contract) + "\n")
        if related:
            links = []
            for other in related:
                subsystem, other_title = titles[other]
                links.append(f"[{other_title}]({subsystem}.md#{anchor(other_title)})")
            out.append("Related: " + ", ".join(links) + ".\n")
        out.append("### Members\n")
        out.append(member_table(names) + "\n")
    return "\n".join(out)


def index(subsystems, pages):
    out = ["# keli reference\n",
           "Every exported family: what it computes, how it rounds and saturates, its check order",
           "and statuses, an example and its members. Generated from the tables under `api/`.\n"]
    for key, label in subsystems:
        if key in pages:
            out.append(f"## [{label}]({key}.md)\n")
            out += [f"- [{title}]({key}.md#{anchor(title)}) ({len(names)} exports)"
                    for _, title, _, _, names in pages[key]]
            out.append("")
    return "\n".join(out)
