#!/usr/bin/env python3
"""Writes the manual pages of section 3 from the public header's comments.

man_pages.py HEADER MAP EXAMPLES VERSION FOLDER

The pages carry the version's date in CHANGELOG.md, so that they are the same whenever they are made.
A line of code that does not fit into 80 columns is an error.

Each function has a page, and stands in the header and in the map that exports it. What the header
says at its top, and about the group of functions that one belongs to, is on every page that it holds
for. A comment that is not shaped like the others, or does not name its function's parameters, is an
error: nothing is left out silently.
"""
import pathlib
import re
import sys
import textwrap

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
# The rules at the header's top, by number, that are about failures.
FAILURE_RULES = ("3", "5", "6")
# What man(1) leaves of 80 columns.
WIDTH = 73


def text_of(comment):
    """A comment's lines without their stars."""
    lines = comment.strip().removeprefix("/**").removeprefix("/*").removesuffix("*/").split("\n")
    return "\n".join(re.sub(r"^ *\* ?", "", line).rstrip() for line in lines).strip()


def literal(text):
    """Text whose characters roff is to leave as they are."""
    escapes = {"\\": r"\e", "-": r"\-", "^": r"\(ha", "~": r"\(ti", "'": r"\(aq"}
    for character, escape in escapes.items():
        text = text.replace(character, escape)
    return text


def roff(text):
    """A paragraph as one line for roff, with the names of functions and arguments marked up."""
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
    """The rules, the record's declaration and comment, and the functions.

    With each function goes the comment on its group and the macros in front of it.
    """
    declarations = r"typedef struct[^}]*}[^;]*;|TESRA_API[^;]*;|(?:#define \w+ [^\n]*\n)+"
    items = re.findall(rf"(/\*.*?\*/)\s*((?:{declarations})?)", header.replace("/**<", "//<"), re.S)
    rules = rules_of(text_of(items[0][0]))
    group, macros, record, functions = "", None, None, []
    for comment, declaration in items[1:]:
        if declaration.startswith("TESRA_API"):
            functions.append((text_of(comment), prototype_of(declaration), group, macros))
            macros = None
        elif declaration.startswith("typedef"):
            record = text_of(comment), declaration
        elif declaration:
            if macros:
                sys.exit(f"no function for the macros of: {macros[0]}")
            macros = text_of(comment), declaration
        else:
            group = text_of(comment)
    return rules, record, functions


def prototype_of(declaration):
    declaration = re.sub(r"\s*TESRA_PRINTF\(.*?\)", "", declaration.removeprefix("TESRA_API "))
    return " ".join(declaration.split())


def name_of(function):
    return re.search(r"(tesra_\w+)\(", function[1])[1]


def arguments_of(prototype):
    return re.findall(r"(\w+|\.\.\.)(?=[,)])", prototype)


def parts_of(comment, name):
    """A function's comment: its sentence, paragraphs, parameters, result and thread-safety."""
    parts = {"name": "", "text": [], "params": [], "return": "", "safety": ""}
    blocks = re.split(r"\n\n|\n(?=@)", comment)
    first = re.fullmatch(name + r" (.*?)\.?", " ".join(blocks[0].split()))
    if not first:
        sys.exit(f"{name}: its comment does not begin with its name")
    parts["name"] = first[1]
    for block in blocks[1:]:
        block = " ".join(block.split())
        if block.startswith("@param "):
            parts["params"].append(re.fullmatch(r"@param (\S+) (.*)", block).groups())
        elif block.startswith("@return "):
            parts["return"] = block.removeprefix("@return ")
        elif block.startswith("Thread-safety: "):
            parts["safety"] = block.removeprefix("Thread-safety: ")
        elif block.startswith("@"):
            sys.exit(f"{name}: what is {block.split()[0]}?")
        else:
            parts["text"].append(block)
    if not parts["safety"]:
        sys.exit(f"{name}: nothing is said about threads")
    return parts


def sentence(text):
    text = text[0].upper() + text[1:]
    return roff(text if text.endswith(".") else text + ".")


def synopsis(prototype):
    head, arguments = re.fullmatch(r"(.*?\()(.*)\);", prototype).groups()
    # A line ends between two arguments only.
    arguments = arguments.replace(" ", "~").replace(",~", ", ")
    arguments = textwrap.wrap(arguments, WIDTH - len(head) - len(");"))
    text = ("\n" + " " * len(head)).join(arguments).replace("~", " ")
    text = re.sub(r"(\w+)(?=,|$)", r"\\fI\1\\fP", text)
    return [".nf", ".B #include <tesra_common.h>", ".PP", rf"\fB{head}\fP{text}\fB);\fP", ".fi"]


def code(text):
    """Lines that stay as they are. EE turns hyphenation on again."""
    for line in text.split("\n"):
        if len(line) > WIDTH:
            sys.exit(f"too long for a manual page: {line}")
    return [".EX", literal(text), ".EE", ".nh"]


def declared(title, comment_and_declaration):
    comment, declaration = comment_and_declaration
    declaration = re.sub(r"//< (.*)\*/", r"/* \1*/", declaration.rstrip())
    return [f".SS {title}", *paragraphs(comment), ".PP", *code(declaration)]


def paragraphs(text):
    return "\n.PP\n".join(roff(block) for block in text.split("\n\n")).split("\n")


def failures(name, result):
    """The result without its conditions, and the conditions, where a call can fail."""
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
    comment, prototype, group, macros = function
    name = name_of(function)
    parts = parts_of(comment, name)
    if [argument for argument, _ in parts["params"]] != arguments_of(prototype):
        sys.exit(f"{name}: its comment has other parameters than its declaration")
    result, errors = failures(name, parts["return"]) if parts["return"] else ("None.", "")
    lines = [f".TH {name} 3 {date_of(version)} \"libtesra_common {version}\"", ".nh", ".ad l",
             ".SH NAME", rf"{name} \- " + roff(parts["name"].split(":")[0]),
             ".SH LIBRARY", r"libtesra_common (\fI\-ltesra_common\fP)",
             ".SH SYNOPSIS", *synopsis(prototype),
             ".SH DESCRIPTION", rf"\fB{name}\fP() " + roff(parts["name"]) + "."]
    for argument, meaning in parts["params"]:
        lines += [".TP", rf"\fI{argument}\fP", sentence(meaning)]
    lines += [".PP", *paragraphs("\n\n".join(parts["text"]))] if parts["text"] else []
    lines += declared("Macros", macros) if macros else []
    if "tesra_cert_data *" in prototype:
        lines += declared("The record", record)
    lines += [".SH RETURN VALUE", roff(result), ".SH ERRORS"]
    lines += [roff(errors)] if errors else []
    lines += rule_lines(rules, lambda number: number in FAILURE_RULES)
    lines += [".SH ATTRIBUTES", "Thread safety: " + roff(parts["safety"])]
    lines += [".SH NOTES", *rule_lines(rules, lambda number: number not in FAILURE_RULES)]
    # What is said of chains does not concern those who only release a record.
    if group and "tesra_cert_data *data" not in prototype:
        title, _, text = group.partition("\n\n")
        lines += [f".SS {title}", *paragraphs(text)]
    lines += [".SH EXAMPLES", *code((examples / EXAMPLES[name]).read_text().rstrip())]
    others = sorted(name_of(other) for other in functions if other != function)
    lines += [".SH SEE ALSO", *(f".BR {other} (3)," for other in others), ".BR tesra (1)"]
    return name, "\n".join(lines) + "\n"


def rule_lines(rules, wanted):
    return [line for number, rule in rules.items() if wanted(number)
            for line in (r".IP \(bu 2", roff(rule))]


def main():
    header, map_file, examples, version, folder = sys.argv[1:]
    rules, record, functions = parse(pathlib.Path(header).read_text())
    exported = set(re.findall(r"\btesra_\w+", pathlib.Path(map_file).read_text()))
    if differing := exported ^ {name_of(function) for function in functions}:
        sys.exit(f"in one of header and map only: {', '.join(sorted(differing))}")
    for function in functions:
        name, text = page(function, rules, record, functions, version, pathlib.Path(examples))
        pathlib.Path(folder, f"{name}.3").write_text(text)


main()
