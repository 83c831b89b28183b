#!/usr/bin/python3
# What check says of every way to damage one line, or some ways to damage two, of a chain of four:
# mutations.py NUMBER_OF_PAIRS TOOL...

import itertools
import json
import pathlib
import random
import re
import subprocess
import sys
import tempfile

pairs, *tool = sys.argv[1:]
chain = pathlib.Path(__file__).parent / "chains" / "good-300-long.pem"
lines = chain.read_text().split("\n")[:24]
bodies = ["\n".join(lines[at + 1:at + 5]) for at in range(0, 24, 6)]


def misspelt(line):
    return line[:-6] + ("x" if line.startswith("-") else "!") + line[-5:]


WAYS = {
    "delete": lambda text, at: text[:at] + text[at + 1:],
    "double": lambda text, at: text[:at] + [text[at]] + text[at:],
    "swap": lambda text, at: text[:at] + text[at:at + 2][::-1] + text[at + 2:],
    "indent": lambda text, at: text[:at] + [" " + text[at]] + text[at + 1:],
    "misspell": lambda text, at: text[:at] + [misspelt(text[at])] + text[at + 1:],
}


def run(*command):
    return subprocess.run([*tool, *command], capture_output=True, text=True, check=False).stdout


# What is wrong with what is said of a text of which the library counts so many certificates.
def faults(text, found, count):
    if found["count"] != count:
        yield "the library counts otherwise"
    named = {finding[key] for finding in found["findings"]
             for key in ("first_line", "last_line", "fault_line")}
    for number, line in enumerate(text.split("\n"), 1):
        if re.search("-(BEGIN|END) ", line) and number not in named:
            yield f"line {number} is not named"
    if count and count < sum(body in text for body in bodies) and not any(
            finding["fault"] for finding in found["findings"]):
        yield "a certificate is lost in silence"
    rest = re.sub(r".*?:(\d+): .*", r"\1", found["verdict"]) if found["remedy"] == "Remove them." else 999
    if any(len(line) > 60 for line in text.split("\n")[int(rest) - 1:]):
        yield "what holds a certificate is to be removed"


single = list(itertools.product(WAYS, range(len(lines))))
double = list(itertools.combinations(single, 2))
damages = [[way] for way in single] + random.Random(1).sample(double, min(int(pairs), len(double)))
failed = 0
with tempfile.TemporaryDirectory() as folder:
    for first in range(0, len(damages), 1000):
        files = []
        for number, damage in enumerate(damages[first:first + 1000]):
            text = lines
            for way, at in damage:
                text = WAYS[way](text, at) if at < len(text) else text
            files.append(pathlib.Path(folder, str(number)))
            files[-1].write_text("\n".join(text) + "\n")
        counts = dict(line.rsplit(":", 1) for line in run("count", *files).split())
        for damage, found in zip(damages[first:], json.loads(run("check", "--json", *files))):
            text = pathlib.Path(found["file"]).read_text()
            for fault in faults(text, found, int(counts.get(found["file"], 0))):
                print(f"{damage}: {fault}: {found['verdict']}")
                failed += 1
print(f"{len(damages)} damaged chains, {failed} faults")
sys.exit(failed > 0 or len(damages) < 100)
