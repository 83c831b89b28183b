#!/usr/bin/python3
# No intact certificate of a chain with damaged lines is lost: mutations.py NUMBER_OF_PAIRS TOOL...

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
lines = chain.read_text().splitlines()[:24]
bodies = ["\n".join(lines[at + 1:at + 5]) for at in range(0, 24, 6)]
WAYS = {  # what becomes of a line and the one after it
    "delete": lambda two: two[1:],
    "double": lambda two: two[:1] + two,
    "swap": lambda two: two[::-1],
    "indent": lambda two: [" " + two[0], *two[1:]],
    "join": lambda two: ["".join(two)],
    "misspell": lambda two: [two[0][:-6] + "!" + two[0][-5:], *two[1:]],
}


def run(*command):
    return subprocess.run([*tool, *command], capture_output=True, text=True, check=False).stdout


def faults(text, count, found, recovered):
    if any(body in text and body not in recovered for body in bodies):
        yield "recover loses an intact certificate"
    total = recovered.count("BEGIN")
    more = re.search(r"recover finds (\d+)( more)?", found["verdict"])
    said = int(more[1]) + (count if more[2] else 0) if more else count
    if (found["count"], found["recovered"], said) != (count, total, total):
        yield f"count finds {count} certificates, recover {total}"
    named = set(map(int, re.findall(r'line": (\d+)', json.dumps(found))))
    for number, line in enumerate(text.splitlines(), 1):
        if re.search("-(BEGIN|END) ", line) and number not in named:
            yield f"line {number} is not named"


single = [[way] for way in itertools.product(WAYS, range(len(lines)))]
double = [one + other for one, other in itertools.combinations(single, 2)]
damages = single + random.Random(1).sample(double, int(pairs))
failed = 0
with tempfile.TemporaryDirectory() as folder:
    files = [pathlib.Path(folder, str(number)) for number in range(len(damages))]
    for file, damage in zip(files, damages):
        text = list(lines)
        for way, at in damage:
            text[at:at + 2] = WAYS[way](text[at:at + 2] or [""])
        file.write_text("\n".join(text) + "\n")
    counts = dict(line.rsplit(":", 1) for line in run("count", *files).splitlines())
    checked = json.loads(run("check", "--json", *files))
    for file, damage, found in zip(files, damages, checked, strict=True):
        count = int(counts.get(str(file), 0))
        for fault in faults(file.read_text(), count, found, run("recover", file)):
            print(f"{damage}: {fault}: {found['verdict']}")
            failed += 1
print(f"{len(damages)} damaged chains, {failed} faults")
sys.exit(failed > 0 or len(damages) < 100)
