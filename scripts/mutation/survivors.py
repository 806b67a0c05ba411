"""The committed list of survivors with their reasons."""

import os
import sys

from mutation.plan import SURVIVORS


def read_survivors():
    """Content to reason."""
    survivors, content = {}, None
    if os.path.exists(SURVIVORS):
        with open(SURVIVORS, encoding="utf-8") as file:
            for line in file.read().splitlines():
                if line.startswith("#") or not line.strip():
                    continue
                if line.startswith("  "):
                    survivors[content] = f"{survivors[content]} {line.strip()}".strip()
                else:
                    content = line
                    survivors[content] = ""
    return survivors


def listed(content, survivors):
    """Its entry: the same text, or the beginning of it where an entry ends with three dots."""
    return next((entry for entry in survivors
                 if entry == content or entry.endswith("...") and content.startswith(entry[:-3])), None)


def check_survivors(mutants):
    """Each entry names a mutant and gives a reason."""
    wrong = False
    for entry, reason in read_survivors().items():
        if not any(listed(mutant.content, {entry: ""}) for mutant in mutants):
            wrong = True
            print(f"scripts/survivors.txt: no such mutant any more: {entry}", file=sys.stderr)
        elif not reason:
            wrong = True
            print(f"scripts/survivors.txt: no reason is given: {entry}", file=sys.stderr)
    return 1 if wrong else 0
