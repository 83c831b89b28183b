#!/usr/bin/env python3
"""Writes the manual pages of section 3 from the public header's comments.

man_pages.py HEADER MAP EXAMPLES VERSION FOLDER

The pages carry the version's date in CHANGELOG.md, so that every build makes the same pages.

Each function has a page. The page repeats the rules at the header's top and the comment on the
function's group. It is an error if a function is not in both header and map, if its comment has
another form than the others or other parameters than its declaration, or if a line of code does not
fit into 80 columns: nothing is left out in silence.
"""
import pathlib
import re
import sys
import textwrap
from typing import NamedTuple

EXAMPLES = {
    "tesra_trace": "diagnostics.c",
    "tesra_dump": "diagnostics.c",
    "tesra_get_cert_count": "certificates.c",
    "tesra_get_cert_data": "certificates.c",
    "tesra_free_cert_data": "certificates.c",
    "tesra_base64_encode": "base64.c",
    "tesra_base64_decode": "base64.c",
    "tesra_hex_encode": "hex.c",
    "tesra_hex_decode": "hex.c",
}
# The numbers of the header's rules that are about failures.
FAILURE_RULES = ("3", "5", "6")
# Of 80 columns, man(1) leaves so many to code.
WIDTH = 73


class Declared(NamedTuple):
    """The record or a group of macros."""

    comment: str
    declaration: str


class Function(NamedTuple):
    name: str
    comment: str
    prototype: str
    group: str  # the comment on its group
    macros: Declared  # those declared before it, or None


def text_of(comment):
    """A comment's lines without their stars."""
    lines = comment.strip().removeprefix("/**").removeprefix("/*").removesuffix("*/").split("\n")
    return "\n".join(re.sub(r"^ *\* ?", "", line).rstrip() for line in lines).strip()


def literal(text):
    """Text that roff prints as it is."""
    escapes = {"\\": r"\e", "-": r"\-", "^": r"\(ha", "~": r"\(ti", "'": r"\(aq"}
    for character, escape in escapes.items():
        text = text.replace(character, escape)
    return text


def roff(text):
    """A paragraph as one line for roff, with functions and arguments in their fonts."""
    text = literal(" ".join(text.split()))
    text = re.sub(r"`([^`]+)`", r"\\fI\1\\fP", text)
    text = re.sub(r"\b(tesra_\w+|TESRA_\w+)\b", r"\\fB\1\\fP", text)
    text = re.sub(r"\b(\w+)\((\d)\)", r"\\fB\1\\fP(\2)", text)
    return r"\&" + text if text.startswith((".", "'")) else text


def rules_of(preamble):
    """The numbered rules at the header's top."""
    rules = re.findall(r"^(\d)\. (.*?)(?=^\d\. |\Z)", preamble, re.M | re.S)
    if not rules:
        sys.exit("no numbered rules at the top of the header")
    return dict(rules)


def parse(header):
    """The rules, the record and the functions."""
    declarations = r"typedef struct[^}]*}[^;]*;|TESRA_API[^;]*;|(?:#define \w+ [^\n]*\n)+"
    items = re.findall(rf"(/\*.*?\*/)\s*((?:{declarations})?)", header.replace("/**<", "//<"), re.S)
    rules = rules_of(text_of(items[0][0]))
    group, macros, record, functions = "", None, None, []
    for comment, declaration in items[1:]:
        comment = text_of(comment)
        if declaration.startswith("TESRA_API"):
            prototype = prototype_of(declaration)
            name = re.search(r"(tesra_\w+)\(", prototype)[1]
            functions.append(Function(name, comment, prototype, group, macros))
            macros = None
        elif declaration.startswith("typedef"):
            record = Declared(comment, declaration)
        elif declaration:
            if macros:
                sys.exit(f"no function for the macros of: {macros.comment}")
            macros = Declared(comment, declaration)
        else:
            group = comment
    return rules, record, functions


def prototype_of(declaration):
    declaration = re.sub(r"\s*TESRA_PRINTF\(.*?\)", "", declaration.removeprefix("TESRA_API "))
    return " ".join(declaration.split())


def arguments_of(prototype):
    return re.findall(r"(\w+|\.\.\.)(?=[,)])", prototype)


class Parts(NamedTuple):
    """The parts of a function's comment."""

    purpose: str
    text: list[str]
    params: dict[str, str]
    result: str
    safety: str


def parts_of(function):
    name = function.name
    first, *blocks = (" ".join(block.split())
                      for block in re.split(r"\n\n|\n(?=@)", function.comment))
    purpose = re.fullmatch(name + r" (.*?)\.?", first)
    if not purpose:
        sys.exit(f"{name}: its comment does not begin with its name")
    text, params, result, safety = [], {}, "", ""
    for block in blocks:
        if block.startswith("@param "):
            argument, params[argument] = block.removeprefix("@param ").split(" ", 1)
        elif block.startswith("@return "):
            result = block.removeprefix("@return ")
        elif block.startswith("Thread-safety: "):
            safety = block.removeprefix("Thread-safety: ")
        elif block.startswith("@"):
            sys.exit(f"{name}: unknown tag {block.split()[0]}")
        else:
            text.append(block)
    if not safety:
        sys.exit(f"{name}: its comment does not mention thread-safety")
    if list(params) != arguments_of(function.prototype):
        sys.exit(f"{name}: its comment has other parameters than its declaration")
    return Parts(purpose[1], text, params, result, safety)


def sentence(text):
    text = text[0].upper() + text[1:]
    return roff(text if text.endswith(".") else text + ".")


def synopsis(prototype):
    head, arguments = re.fullmatch(r"(.*?\()(.*)\);", prototype).groups()
    # A line is broken between two arguments only.
    arguments = arguments.replace(" ", "~").replace(",~", ", ")
    arguments = textwrap.wrap(arguments, WIDTH - len(head) - len(");"))
    text = ("\n" + " " * len(head)).join(arguments).replace("~", " ")
    text = re.sub(r"(\w+)(?=,|$)", r"\\fI\1\\fP", text)
    return [".nf", ".B #include <tesra_common.h>", ".PP", rf"\fB{head}\fP{text}\fB);\fP", ".fi"]


def code(text):
    """Lines that stay as they are. EE turns hyphenation on again, and nh off."""
    for line in text.split("\n"):
        if len(line) > WIDTH:
            sys.exit(f"too long for a manual page: {line}")
    return [".EX", literal(text), ".EE", ".nh"]


def declared(title, what):
    declaration = re.sub(r"//< (.*)\*/", r"/* \1*/", what.declaration.rstrip())
    return [f".SS {title}", *paragraphs(what.comment), ".PP", *code(declaration)]


def paragraphs(text):
    return "\n.PP\n".join(roff(block) for block in text.split("\n\n")).split("\n")


def failures(name, result):
    """The result without the conditions of failure, and the conditions."""
    found = re.fullmatch(r"(.*); or (\S+) if (.*)", result)
    if not found:
        sys.exit(f'{name}: its result is not "...; or ... if ..."')
    success, value, conditions = found.groups()
    value = {"null": "a null pointer"}.get(value, value)
    return (f"On success: {success}. On failure: {value}.",
            f"{name} fails if {conditions}.")


def date_of(version):
    changelog = pathlib.Path(__file__).parent.parent / "CHANGELOG.md"
    found = re.search(rf"^## {re.escape(version)}, (\S+)$", changelog.read_text(), re.M)
    return found[1] if found else sys.exit(f"{changelog}: no date for version {version}")


def page(function, rules, record, functions, version, examples):
    name, prototype = function.name, function.prototype
    parts = parts_of(function)
    result, errors = failures(name, parts.result) if parts.result else ("None.", "")
    lines = [f".TH {name} 3 {date_of(version)} \"libtesra_common {version}\"", ".nh", ".ad l",
             ".SH NAME", rf"{name} \- " + roff(parts.purpose.split(":")[0]),
             ".SH LIBRARY", r"libtesra_common (\fI\-ltesra_common\fP)",
             ".SH SYNOPSIS", *synopsis(prototype),
             ".SH DESCRIPTION", rf"\fB{name}\fP() " + roff(parts.purpose) + "."]
    for argument, meaning in parts.params.items():
        lines += [".TP", rf"\fI{argument}\fP", sentence(meaning)]
    lines += [".PP", *paragraphs("\n\n".join(parts.text))] if parts.text else []
    lines += declared("Macros", function.macros) if function.macros else []
    if "tesra_cert_data *" in prototype:
        lines += declared("The record", record)
    lines += [".SH RETURN VALUE", roff(result), ".SH ERRORS"]
    lines += [roff(errors)] if errors else []
    lines += rule_lines(rules, lambda number: number in FAILURE_RULES)
    lines += [".SH ATTRIBUTES", "Thread safety: " + roff(parts.safety)]
    lines += [".SH NOTES", *rule_lines(rules, lambda number: number not in FAILURE_RULES)]
    # The comment on chains does not concern tesra_free_cert_data.
    if function.group and "tesra_cert_data *data" not in prototype:
        title, _, text = function.group.partition("\n\n")
        lines += [f".SS {title}", *paragraphs(text)]
    lines += [".SH EXAMPLES", *code((examples / EXAMPLES[name]).read_text().rstrip())]
    others = sorted(other.name for other in functions if other != function)
    lines += [".SH SEE ALSO", *(f".BR {other} (3)," for other in others), ".BR tesra (1)"]
    return "\n".join(lines) + "\n"


def rule_lines(rules, wanted):
    lines = []
    for number, rule in rules.items():
        if wanted(number):
            text, *items = re.split(r"\n *- ", rule)
            lines += [r".IP \(bu 2", roff(text)]
            lines += [".RS"] if items else []
            lines += [line for item in items for line in (r".IP \(en 2", roff(item))]
            lines += [".RE"] if items else []
    return lines


def main():
    header, map_file, examples, version, folder = sys.argv[1:]
    rules, record, functions = parse(pathlib.Path(header).read_text())
    exported = set(re.findall(r"\btesra_\w+", pathlib.Path(map_file).read_text()))
    if differing := exported ^ {function.name for function in functions}:
        sys.exit(f"not in both header and map: {', '.join(sorted(differing))}")
    for function in functions:
        text = page(function, rules, record, functions, version, pathlib.Path(examples))
        pathlib.Path(folder, f"{function.name}.3").write_text(text)


main()
