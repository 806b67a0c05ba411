"""The rules that find mutants, and their names."""

import collections
import fnmatch
import os
import re
import sys

from mutation.plan import EXCEPT, ORDERS, SOURCES, list_files
from mutation.source import Source

NEXT_LEVEL = {"Info": "Notice", "Notice": "Warning", "Warning": "Error", "Error": "Critical", "Critical": "Error"}
NEIGHBOUR = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
INFIX = {"<": "Less", "<=": "AtMost", ">": "Greater", ">=": "AtLeast", "==": "Equal", "!=": "Unequal"}


class Mutant:
    """One change: the text from start to end of a file becomes another."""

    def __init__(self, file, rule, start, end, changed, asleep=None, parts=None):
        self.file, self.rule, self.start, self.end = file, rule, start, end
        self.changed = changed  # what stands there instead
        self.asleep = asleep  # the expression that holds both, if there is one
        self.parts = parts  # of a swap: the two statements' places
        self.number = 0
        self.name = self.content = ""

    def can_sleep(self):
        return self.asleep is not None or self.rule in ("drop", "swap")


def other_letter(char):
    return {"z": "y", "Z": "Y", "9": "8"}.get(char, chr(ord(char) + 1))


def changed_text(literal):
    """The middlemost letter becomes its neighbour; without a letter some other character; nothing becomes an x."""
    inner = literal[1:-1]
    if not inner:
        return literal[0] + "x" + literal[-1]
    plain = [at for at, char in enumerate(inner) if char.isalnum() and (at == 0 or inner[at - 1] != "\\")]
    middle = len(inner) // 2
    if plain:
        at = min(plain, key=lambda place: abs(place - middle))
        return literal[0] + inner[:at] + other_letter(inner[at]) + inner[at + 1:] + literal[-1]
    if inner.startswith("\\"):
        return literal[0] + ("\\t" if inner[:2] == "\\n" else "\\n") + inner[2:] + literal[-1]
    return literal[0] + ("-" if inner[0] != "-" else "+") + inner[1:] + literal[-1]


NUMBER = re.compile(r"(?<![\w.'])(0[xX][0-9a-fA-F']+|\d[\d']*\.\d+|\d[\d']*)([uUlLfF]*)(?![\w.'])")


def changed_number(digits, suffix, line):
    """One more; a time twice as long, since no test could tell a microsecond."""
    plain = digits.replace("'", "")
    if "." in plain:
        return str(float(plain) + 1) + suffix
    value = int(plain, 16 if plain.lower().startswith("0x") else 10)
    is_time = "'" in digits or re.search(r"chrono|milliseconds|microseconds|seconds|// ms|// µs", line)
    value = value * 2 if is_time and value > 1 else value + 1
    return (hex(value) if plain.lower().startswith("0x") else str(value)) + suffix


def choice(changed, original):
    return lambda number: f"(::zoMutant({number}) ? {changed} : {original})"


def find_leaves(source, rules):
    text, code = source.text, source.code
    if "text" in rules or "char" in rules:
        for start, end, quote in source.literals:
            rule = "text" if quote == '"' else "char"
            if code[start] != quote or rule not in rules or text[max(0, start - 1)] == "R":
                continue
            original = text[start:end]
            changed = changed_text(original)
            # One that is glued to its neighbour is the compiler's.
            before = re.search(r"(\w+|\")\s*$", code[:start])
            glued = before and before.group(1) != "return"
            glued = glued or re.match(r"\s*[\w\"]", code[end:])
            yield Mutant(source.path, rule, start, end, changed, None if glued else choice(changed, original))
    if "level" in rules:
        for match in re.finditer(r"\bLogLevel_(\w+)(?!\w)(?!\s*=)", code):
            changed = "LogLevel_" + NEXT_LEVEL[match.group(1)]
            yield Mutant(source.path, "level", match.start(), match.end(), changed, choice(changed, match.group()))
    if "number" in rules:
        for match in NUMBER.finditer(code):
            if re.search(r"\)[\w ]* = $", code[:match.start()]):
                continue  # a pure virtual function
            changed = changed_number(match.group(1), match.group(2), source.line_text(match.start()))
            asleep = None if source.is_fixed(match.start()) else choice(changed, match.group())
            yield Mutant(source.path, "number", match.start(), match.end(), changed, asleep)
    if "bool" in rules:
        for match in re.finditer(r"\b(true|false)\b", code):
            changed = "false" if match.group() == "true" else "true"
            yield Mutant(source.path, "bool", match.start(), match.end(), changed, choice(changed, match.group()))
    if "compare" in rules:
        for match in re.finditer(r"(?<= )(<=|>=|==|!=|<|>)(?= )", code):
            sign = match.group()
            if "operator" in code[max(0, match.start() - 12):match.start()]:
                continue
            glue = ("==", "==") if sign in ("==", "!=") else ("<", ">")
            yield Mutant(source.path, "compare", match.start(), match.end(), NEIGHBOUR[sign],
                         lambda number, glue=glue, sign=sign:
                         f"{glue[0]} ::zoMutant{INFIX[sign]}{{{number}}} {glue[1]}")


def one_line(text):
    """Without comments and line ends, so that a copy of it needs no line of its own."""
    text = re.sub(r'("(?:[^"\\\n]|\\.)*")|//[^\n]*', lambda match: match.group(1) or "", text)
    return re.sub(r"\s*\n\s*", " ", text).strip()


def find_statements(source, rules):
    for run in source.statements():
        for start, end, is_call in run:
            if is_call and "drop" in rules:
                yield Mutant(source.path, "drop", start, end, ";")
        for first, second in zip(run, run[1:]):
            between = source.code[first[1]:second[0]]
            if "swap" in rules and (first[2] or second[2]) and not between.strip():
                yield Mutant(source.path, "swap", first[0], second[1],
                             source.text[second[0]:second[1]] + source.text[first[1]:second[0]] +
                             source.text[first[0]:first[1]], parts=(first, second))


def read_orders():
    """The committed table: a file, what stands there, and what would be another order."""
    if not os.path.exists(ORDERS):
        return []
    with open(ORDERS, encoding="utf-8") as file:
        text = file.read()
    pattern = re.compile(r"^== (\S+): ([^\n]+)\n(.*?)\n-- becomes\n(.*?)\n-- end$", re.S | re.M)
    return [match.groups() for match in pattern.finditer(text)]


def find_orders(sources):
    for path, title, before, after in read_orders():
        source = sources.get(path)
        count = source.text.count(before) if source else 0
        if count != 1:
            sys.exit(f"scripts/orders.txt: \"{title}\" stands {count} times in {path}; it has to stand there once.")
        start = source.text.index(before)
        mutant = Mutant(path, "order", start, start + len(before), after)
        mutant.title = title
        yield mutant


def find_mutants():
    sources, mutants = {}, []
    tracked = list_files()
    for pattern, rules in SOURCES:
        for path in tracked:
            if fnmatch.fnmatch(path, pattern) and path not in EXCEPT and path not in sources:
                source = sources[path] = Source(path)
                mutants += find_leaves(source, rules)
                mutants += find_statements(source, rules)
    mutants += find_orders(sources)
    mutants.sort(key=lambda mutant: (mutant.file, mutant.start, mutant.end, mutant.rule))
    names, contents, numbers = collections.Counter(), collections.Counter(), collections.Counter()
    place = {path: index for index, path in enumerate(sorted(sources), 1)}
    for mutant in mutants:
        source = sources[mutant.file]
        # By file, so that a change in one does not rebuild the others.
        numbers[mutant.file] += mutant.can_sleep()
        mutant.number = 10000 * place[mutant.file] + numbers[mutant.file]
        name = f"{mutant.file}:{source.line(mutant.start)}:{mutant.rule}"
        names[name] += 1
        mutant.name = name + (f".{names[name]}" if names[name] > 1 else "")
        content = f"{mutant.file}: {describe(source, mutant)}"
        contents[content] += 1
        mutant.content = content + (f" #{contents[content]}" if contents[content] > 1 else "")
    return sources, mutants


def describe(source, mutant):
    """What the mutant is, whatever line it stands on."""
    where = source.function(mutant.start)
    where = f"{where}: " if where else ""
    if mutant.rule == "order":
        return f"order: {mutant.title}"
    if mutant.rule == "drop":
        return f"{where}drop {one_line(source.text[mutant.start:mutant.end])}"
    if mutant.rule == "swap":
        first, second = ([one_line(source.text[start:end]) for start, end, _ in mutant.parts])
        return f"{where}swap {first} and {second}"
    begin = source.text.rfind("\n", 0, mutant.start) + 1
    end = source.text.find("\n", mutant.end)
    before, after = source.text[begin:mutant.start].lstrip(), re.sub(r"\s*//.*", "", source.text[mutant.end:end])
    return f"{where}{before}[{source.text[mutant.start:mutant.end]} -> {mutant.changed}]{after.rstrip()}"
