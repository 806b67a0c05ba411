#!/usr/bin/env python3
"""Changes the plug-in's sources in one place at a time and tells which changes no test notices. See docs/mutation.md.

Most changes are built into one copy of the sources at once, each asleep until the environment names it, so that such a
mutant costs a run of a few tests and no build. Those that C++ does not allow to be chosen at run time (an enumerator,
a size of an array) are built one at a time afterwards.
"""

import argparse
import collections
import fnmatch
import os
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = os.path.join(ROOT, "build", "mutate")
TREE = os.path.join(WORK, "tree")
BUILD = os.path.join(WORK, "build")
SURVIVORS = os.path.join(ROOT, "scripts", "survivors.txt")
ORDERS = os.path.join(ROOT, "scripts", "orders.txt")

# Where mutants are looked for, and by which rules.
EVERY_RULE = "text char level number bool compare drop swap order".split()
SOURCES = [
    ("zoiohandler/*.cpp", EVERY_RULE),
    ("zoiohandler/*.h", EVERY_RULE),
    ("zoapi/*.cpp", EVERY_RULE),
    ("zoapi/*.h", EVERY_RULE),
    ("qapi/status.cpp", EVERY_RULE),
    ("qapi/address.cpp", EVERY_RULE),
    ("zovyrnsdk/link/limits.h", ["number"]),
    ("zovyrnsdk/link/backoff.h", ["number", "compare", "drop"]),
]
# Ranks only have to rise; lockrank tests hold their order.
EXCEPT = ["zoapi/threads/lockranks.h"]

# The test programs that decide, by folder or file: the likeliest first. All of them have to pass for a survivor.
INNER = """vyrnclient_log_test vyrnclient_items_test vyrnclient_values_test vyrnclient_subscriptions_test
    vyrnclient_methods_test vyrnclient_cache_test vyrnclient_instance_test vyrnclient_simulator_test
    vyrnclient_simulated_text_test vyrnclient_simulator_random_test vyrnclient_faults_test
    plugin_logging_test plugin_items_test plugin_subscriptions_test plugin_methods_test plugin_arguments_test
    plugin_threads_test vyrnclient_memory_test vyrnclient_simulator_work_test model_test""".split()
OUTER = "plugin_arguments_test plugin_instance_table_test plugin_loading_test plugin_items_test".split()
OVER_THE_WIRE = """wire_sensor_manager_test wire_suite_test wire_connect_test wire_missing_items_test
    wire_subscription_test wire_values_test wire_mute_test wire_ending_test wire_newest_value_test""".split()
DECIDERS = [
    ("zoiohandler/vyrnclient/*sensormanager.*", OVER_THE_WIRE[:4] + INNER + OVER_THE_WIRE[4:]),
    ("zoiohandler/vyrnclient/retryreads.*", ["vyrnclient_items_test"] + OVER_THE_WIRE[:4] + INNER + OVER_THE_WIRE[4:]),
    ("zoiohandler/vyrnclient/*", INNER + OVER_THE_WIRE[:4]),
    ("zoiohandler/*", OUTER + INNER),
    ("zoapi/*", ["zoapi_tests", "zoapi_memory_tests", "vyrnclient_faults_test"] + INNER[:7]),
    ("qapi/*", ["qapi_tests", "zoapi_tests"] + INNER[:7]),
    ("zovyrnsdk/*", ["sdk_state", "sdk_link", "sdk_hostile", "wire_sdk_faults_test"] + OVER_THE_WIRE),
]

NEXT_LEVEL = {"Info": "Notice", "Notice": "Warning", "Warning": "Error", "Error": "Critical", "Critical": "Error"}
NEIGHBOUR = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
INFIX = {"<": "Less", "<=": "AtMost", ">": "Greater", ">=": "AtLeast", "==": "Equal", "!=": "Unequal"}

SWITCHES = """// Which mutant is awake, and comparisons that ask.
#pragma once
#include <cstdlib>
inline bool zoMutant(int number) {
  static const int awake = [] {
    const char* text = std::getenv("ZOIO_MUTANT");
    return text != nullptr ? std::atoi(text) : 0;
  }();
  return awake == number;
}
#define ZO_MUTANT_COMPARISON(NAME, GLUE, CLOSE, OPERATOR, CHANGED)                                   \\
  struct zoMutant##NAME { int number; };                                                             \\
  template <typename Left> struct zoMutant##NAME##Left { const Left& left; int number; };            \\
  template <typename Left> zoMutant##NAME##Left<Left> operator GLUE(const Left& left, zoMutant##NAME which) { \\
    return {left, which.number};                                                                     \\
  }                                                                                                  \\
  template <typename Left, typename Right>                                                           \\
  bool operator CLOSE(const zoMutant##NAME##Left<Left>& from, const Right& right) {                  \\
    return zoMutant(from.number) ? from.left CHANGED right : from.left OPERATOR right;               \\
  }
ZO_MUTANT_COMPARISON(Less, <, >, <, <=)
ZO_MUTANT_COMPARISON(AtMost, <, >, <=, <)
ZO_MUTANT_COMPARISON(Greater, <, >, >, >=)
ZO_MUTANT_COMPARISON(AtLeast, <, >, >=, >)
ZO_MUTANT_COMPARISON(Equal, ==, ==, ==, !=)
ZO_MUTANT_COMPARISON(Unequal, ==, ==, !=, ==)
"""


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


# --- Reading a source -------------------------------------------------------------------------------------------------

class Source:
    def __init__(self, path):
        self.path = path
        with open(os.path.join(ROOT, path), encoding="utf-8") as file:
            self.text = file.read()
        self.literals = []  # (start, end, quote)
        self.code = self._blank()  # the text with comments, literals' contents and directives blanked
        self.blocks = self._blocks()

    def _blank(self):
        """The same length, with blanks for everything that is no code; quotes stay."""
        text, out, at = self.text, list(self.text), 0
        token = re.compile(r'//[^\n]*|/\*.*?\*/|^[ \t]*#(?:[^\n\\]|\\.|\\\n)*|R"\((?:.*?)\)"|"(?:[^"\\\n]|\\.)*"'
                           r"|(?<![0-9a-fA-F])'(?:[^'\\\n]|\\.)+'", re.S | re.M)
        for match in token.finditer(text):
            first = match.group().lstrip()[0]
            if first in "\"'":
                self.literals.append((match.start(), match.end(), first))
            keep = 1 if first in "\"'R" else 0
            for at in range(match.start() + keep, match.end() - keep):
                if out[at] != "\n":
                    out[at] = " "
        code = "".join(out)
        # What is only said to the compiler.
        for match in re.finditer(r"\b(static_assert|__attribute__|assert|Q_[A-Z_]+)\s*\(", code):
            end = self._closing(code, match.end() - 1)
            code = code[:match.start()] + re.sub(r"[^\n]", " ", code[match.start():end]) + code[end:]
        return code

    @staticmethod
    def _closing(code, at):
        depth = 0
        for here in range(at, len(code)):
            depth += (code[here] in "([{") - (code[here] in ")]}")
            if depth == 0:
                return here + 1
        return len(code)

    def _blocks(self):
        """The places right after each opening brace that begins a block of statements, with where it ends."""
        blocks = []
        for match in re.finditer(r"\{", self.code):
            head = re.split(r"[;{}]", self.code[:match.start()])[-1].strip()
            if re.match(r"(template\s*<.*>\s*)?(class|struct|namespace|enum|union|extern)\b", head):
                continue
            if head == "" or head.split()[-1] in ("else", "try", "do", "const", "noexcept", "override") or \
                    head.endswith(")") or head.endswith(":") or re.search(r"\)\s*->\s*[\w:<>]+$", head):
                blocks.append((match.end(), self._closing(self.code, match.start()) - 1))
        return blocks

    def line(self, at):
        return self.text.count("\n", 0, at) + 1

    def is_fixed(self, at):
        """Whether a number is one that the compiler has to know: an enumerator's, or a bit-field's width."""
        head = re.split(r"[;{}]", self.code[:self.code.rfind("{", 0, at)])[-1] if "{" in self.code[:at] else ""
        in_enum = "}" not in self.code[self.code.rfind("{", 0, at):at] and re.match(r"\s*enum\b", head)
        return bool(in_enum or re.search(r"\w : $", self.code[:at]) and self.code[at:at + 3].rstrip(" =;").isdigit()
                    and "?" not in self.line_text(at))

    def line_text(self, at):
        return self.text[self.text.rfind("\n", 0, at) + 1:self.text.find("\n", at)]

    def lines_of(self, start, end):
        return range(self.line(start), self.line(max(start, end - 1)) + 1)

    def function(self, at):
        """The name of the function or type that this place lies in, as far as the indentation tells."""
        begin = self.text.rfind("\n", 0, at) + 1
        indent = len(self.text[begin:]) - len(self.text[begin:].lstrip(" "))
        for line in reversed(self.code[:begin].splitlines()):
            if not line.strip() or line.strip()[0] in "}:)" or line.rstrip().endswith(";"):
                continue
            here = len(line) - len(line.lstrip())
            if here >= indent:
                continue
            found = re.match(r"\s*(?:struct|class|enum)\s+([\w:]+)", line) or re.search(r"([\w:~]+)\(", line)
            if found and not re.match(r"\s*(if|for|while|switch|else|do|try|case|return)\b|.*\[.*\(", line):
                return found.group(1)
            indent = here if line.rstrip().endswith("{") else indent
            if indent == 0:
                break
        return ""

    def statements(self):
        """The statements that are a call or an assignment alone, as (start, end, is call), block by block."""
        for begin, end in self.blocks:
            run, at = [], begin
            while at < end:
                space = re.compile(r"\s*").match(self.code, at, end)
                at = space.end()
                if at >= end:
                    break
                stop, braces = self._statement_end(at, end)
                words = " ".join(self.code[at:stop].split())
                kind = None if braces else self._kind(words)
                if kind:
                    run.append((at, stop, kind == "call"))
                elif run:
                    yield run
                    run = []
                at = stop
            if run:
                yield run

    def _statement_end(self, at, end):
        """Behind the semicolon, or behind the block that comes first."""
        depth = 0
        for here in range(at, end):
            char = self.code[here]
            if char == "{" and depth == 0:
                return self._closing(self.code, here), True
            depth += (char in "([{") - (char in ")]}")
            if char == ";" and depth == 0:
                return here + 1, False
        return end, True

    KEYWORDS = re.compile(r"(return|throw|using|static|constexpr|const|auto|if|for|while|switch|case|default|else|do|delete|"
                          r"new|goto|break|continue|typedef|template|static_cast<void>)\b|static_cast<void>")

    def _kind(self, words):
        if self.KEYWORDS.match(words):
            return None
        while re.search(r"<[^<> ]*>", words):
            words = re.sub(r"<[^<> ]*>", "", words)
        head = words.split("(")[0]
        if re.match(r"[\w.:>*\[\]()-]+ [-+|&]?= ", words):
            return "assignment"
        if words.endswith(");") and not re.search(r"[\w>&*]\s+[&*]?\w+$", head) and " = " not in head:
            return "call"
        return None


# --- Finding mutants --------------------------------------------------------------------------------------------------

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
            yield Mutant(source.path, rule, start, end, changed, choice(changed, original))
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


def list_files():
    """What git would commit; without git, everything but what was built."""
    try:
        done = subprocess.run(["git", "-C", ROOT, "ls-files", "-co", "--exclude-standard"], check=True,
                              capture_output=True, text=True)
        return sorted({path for path in done.stdout.splitlines() if os.path.isfile(os.path.join(ROOT, path))})
    except (OSError, subprocess.CalledProcessError):
        found = []
        for folder, folders, files in os.walk(ROOT):
            folders[:] = [name for name in folders if name not in ("build", ".git", ".cache")]
            found += [os.path.relpath(os.path.join(folder, name), ROOT) for name in files]
        return sorted(found)


# --- The copy of the sources ------------------------------------------------------------------------------------------

def write_if_changed(path, data):
    try:
        with open(path, "rb") as file:
            if file.read() == data:
                return
    except OSError:
        os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data)


def render(source, mutants, start, end, skip=()):
    """The source between two places with the mutants in it, asleep, on as many lines as before."""
    inside = [m for m in mutants if start <= m.start and m.end <= end and m not in skip]
    structural = [m for m in inside if m.rule in ("drop", "swap")]
    leaves = [m for m in inside if m.rule not in ("drop", "swap")]
    runs = join_runs(structural)
    items = [(run[0], run[1], run) for run in runs]
    items += [(leaf.start, leaf.end, leaf) for leaf in leaves
              if not any(run[0] <= leaf.start and leaf.end <= run[1] for run in runs)]
    out, at = [], start
    for begin, stop, item in sorted(items, key=lambda each: each[:2]):
        out.append(source.text[at:begin])
        out.append(item.asleep(item.number) if isinstance(item, Mutant) else render_run(source, mutants, item))
        at = stop
    return "".join(out + [source.text[at:end]])


def join_runs(structural):
    """Statements that follow one another, each with what is done to it: (start, end, statements, drops, swaps)."""
    spans = {}
    for mutant in structural:
        for span in ([mutant.parts[0][:2], mutant.parts[1][:2]] if mutant.parts else [(mutant.start, mutant.end)]):
            spans.setdefault(span, [])
        if not mutant.parts:
            spans[(mutant.start, mutant.end)].append(mutant)
    swaps = {mutant.parts[0][:2]: mutant for mutant in structural if mutant.parts}
    outer = [s for s in spans if not any(o != s and o[0] <= s[0] and s[1] <= o[1] for o in spans)]
    runs = []
    for span in sorted(outer):
        previous = runs[-1][2][-1] if runs else None
        if previous in swaps and swaps[previous].parts[1][:2] == span:
            runs[-1][2].append(span)
            runs[-1][4].append(swaps[previous])
            runs[-1][1] = span[1]
        else:
            runs.append([span[0], span[1], [span], [], []])
        runs[-1][3] += spans[span]
    return runs


def render_run(source, mutants, run):
    start, end, spans, drops, swaps = run
    skip = set(drops) | set(swaps)

    def statement(span):
        text = render(source, mutants, span[0], span[1], skip)
        drop = next((m for m in drops if (m.start, m.end) == span), None)
        return f"if (!::zoMutant({drop.number})) {{ {text} }}" if drop else text

    bodies = {span: statement(span) for span in spans}
    plain = "".join(bodies[span] + source.text[span[1]:following[0]] for span, following in zip(spans, spans[1:]))
    plain += bodies[spans[-1]]
    if not swaps:
        return plain
    branches = []
    for swap in swaps:
        at = spans.index(swap.parts[0][:2])
        order = spans[:at] + [spans[at + 1], spans[at]] + spans[at + 2:]
        branches.append(f"if (::zoMutant({swap.number})) {{ {' '.join(one_line(bodies[s]) for s in order)} }} else ")
    return f"{''.join(branches)}{{ {plain} }}"


def soften_constants(source, mutants):
    """A constant whose value is chosen when the library is loaded is none of the compiler's any more."""
    for match in re.finditer(r"\b(static )?(constexpr|constinit)\b( const char\*)?", source.code):
        end = source.code.find(";", match.end())
        name = re.search(r"(\w+)(\[\])? ?[={(]", source.code[match.end():end])
        if name and any(match.end() + name.end() <= m.start < end for m in mutants):
            fixed = "" if match.group(2) == "constinit" else "const"
            fixed = "const char* const" if match.group(3) else fixed
            in_class = match.group(1) and source.path.endswith(".h")
            yield match.start(), match.end(), ("static inline " if in_class else match.group(1) or "") + fixed


class Soft(Mutant):
    """A word that has to give way for the mutants around it; part of the plain program."""

    def __init__(self, file, start, end, text):
        super().__init__(file, "word", start, end, text, lambda _: text)


def sleeping_source(source, mutants):
    words = [Soft(source.path, *edit) for edit in soften_constants(source, mutants)]
    return render(source, mutants + words, 0, len(source.text))


class Builder:
    def __init__(self, sources, asleep):
        self.sources = sources
        self.asleep = {path: [m for m in asleep if m.file == path] for path in sources}

    def write_source(self, path, text):
        write_if_changed(os.path.join(TREE, path), text.encode("utf-8"))

    def write_tree(self):
        wanted = set(list_files())
        for path in wanted:
            if path not in self.sources:
                with open(os.path.join(ROOT, path), "rb") as file:
                    write_if_changed(os.path.join(TREE, path), file.read())
        for folder, _, files in os.walk(TREE):
            for name in files:
                path = os.path.join(folder, name)
                if os.path.relpath(path, TREE) not in wanted:
                    os.remove(path)
        for path in wanted:
            os.chmod(os.path.join(TREE, path), os.stat(os.path.join(ROOT, path)).st_mode & 0o777)
        write_if_changed(os.path.join(WORK, "switches.h"), SWITCHES.encode())
        for path in self.sources:
            self.rewrite(path)

    def rewrite(self, path):
        self.write_source(path, sleeping_source(self.sources[path], self.asleep[path]))

    def configure(self):
        linker = "-fuse-ld=gold" if shutil.which("ld.gold") else ""
        flags = f"-O0 -w -Wno-narrowing -include {os.path.join(WORK, 'switches.h')}"
        command = ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DZOIO_BUILD_TESTS=ON",
                   f"-DCMAKE_CXX_FLAGS_DEBUG={flags}", "-DCMAKE_C_FLAGS_DEBUG=-O0",
                   f"-DCMAKE_EXE_LINKER_FLAGS={linker}", f"-DCMAKE_MODULE_LINKER_FLAGS={linker}"]
        with open(os.path.join(WORK, "configure.log"), "w", encoding="utf-8") as log:
            if subprocess.run(command, stdout=log, stderr=subprocess.STDOUT, check=False).returncode != 0:
                sys.exit(f"The copy could not be configured; the log is {log.name}.")

    def build(self, targets, jobs):
        """What the compiler said, or nothing when it was content."""
        done = subprocess.run(["cmake", "--build", BUILD, "-j", str(jobs), "--target", *targets, "--", "-k", "0"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, text=True, errors="replace")
        return done.stdout if done.returncode != 0 else ""

    def build_asleep(self, targets, jobs):
        """Builds everything with as many sleeping mutants as the compiler takes. Returns those that it does not."""
        awake = []
        for _ in range(12):
            said = self.build(targets, jobs)
            if not said:
                return awake
            with open(os.path.join(WORK, "build.log"), "w", encoding="utf-8") as log:
                log.write(said)
            refused = self.refused(said)
            if not refused:
                break
            for mutant in refused:
                self.asleep[mutant.file].remove(mutant)
            for path in {mutant.file for mutant in refused}:
                self.rewrite(path)
            awake += refused
            say(f"  {len(refused)} mutants cannot sleep; building again")
        sys.exit(f"The copy could not be built; the log is {os.path.join(WORK, 'build.log')}.")

    def refused(self, said):
        places = set()
        for match in re.finditer(r"\btree/([\w/.]+):(\d+):\d+:\s+(?:fatal )?(error|note|required)", said):
            places.add((match.group(1), int(match.group(2)), match.group(3)))
        refused = self.on_lines({place[:2] for place in places if place[2] == "error"})
        if refused:
            return refused
        refused = self.on_lines({place[:2] for place in places})
        if refused:
            return refused
        failing = {path for path, _, _ in places} or {
            path for path in self.sources if path.endswith(".cpp") and f"{path}.o" in said}
        return [m for path in failing for m in self.asleep.get(path, [])]

    def on_lines(self, places):
        found = []
        for path, line in places:
            source = self.sources.get(path)
            found += [m for m in self.asleep.get(path, []) if line in source.lines_of(m.start, m.end)]
        return list(dict.fromkeys(found))


# --- Running tests ----------------------------------------------------------------------------------------------------

SHARDS = 3
RUN = re.compile(r"^\[ RUN +\] (\S+)", re.M)
ENDED = re.compile(r"^\[ +(?:OK|FAILED|SKIPPED) +\] (\S+?)[,\s]", re.M)
FAILED = re.compile(r"^\[ +FAILED +\] (\S+?)[, \n].*", re.M)


class Outcome:
    def __init__(self, passed, how="", test=""):
        self.passed, self.how, self.test = passed, how, test


def start(program, number, test_filter, shards, index):
    environment = {key: value for key, value in os.environ.items() if not key.startswith("GTEST_")}
    environment["ZOIO_MUTANT"] = str(number)
    if shards > 1:
        environment.update(GTEST_TOTAL_SHARDS=str(shards), GTEST_SHARD_INDEX=str(index))
    command = [program, "--gtest_fail_fast", "--gtest_color=no"]
    if test_filter:
        command.append("--gtest_filter=" + test_filter)
    out = open(os.path.join(WORK, f"out-{threading.get_ident()}-{index}.txt"), "w+b")
    child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT, env=environment,
                             cwd=BUILD, start_new_session=True)
    return child, out


def end_group(child):
    try:
        os.killpg(child.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    child.wait()


def run_program(program, number, limit, test_filter="", shards=SHARDS):
    """Runs a program's tests until one fails."""
    runs = [start(program, number, test_filter, shards, index) for index in range(shards)]
    deadline = time.monotonic() + limit
    outcome = Outcome(True)
    waiting = list(runs)
    while waiting and outcome.passed:
        for run in list(waiting):
            if run[0].poll() is not None:
                waiting.remove(run)
                if run[0].returncode != 0:
                    outcome = judge(run)
                    break
        else:
            if time.monotonic() > deadline:
                outcome = judge(waiting[0], "hangs")
            time.sleep(0.005)
    for child, out in runs:
        end_group(child)
        out.close()
    return outcome


def judge(run, how=""):
    child, out = run
    out.seek(0)
    said = out.read().decode("utf-8", "replace")
    failed = FAILED.findall(said)
    test = failed[0] if failed else ""
    if not test:
        ended = set(ENDED.findall(said))
        begun = [name for name in RUN.findall(said) if name not in ended]
        test = begun[-1] if begun else ""
    if not how:
        how = "fails" if failed else "dies"
    return Outcome(False, how, test)


class Judge:
    """Decides about mutants, remembering which tests have noticed others of the same file."""

    def __init__(self, programs, seconds):
        self.programs, self.seconds = programs, seconds
        self.noticed = collections.defaultdict(collections.Counter)
        self.lock = threading.Lock()

    def limit(self, program):
        return max(30.0, 8 * self.seconds[program])

    def deciders(self, path):
        for pattern, programs in DECIDERS:
            if fnmatch.fnmatch(path, pattern):
                return [program for program in programs if program in self.programs]
        return []

    def judge(self, mutant, number, prepare=lambda program: None):
        """The test that notices, as (program, outcome); nothing for a survivor. prepare: what a program needs first."""
        with self.lock:
            likely = [each for each, _ in (self.noticed[mutant.file, mutant.rule] + self.noticed[mutant.file]).most_common(12)]
        order = self.deciders(mutant.file)
        for program in dict.fromkeys(program for program, _ in likely):
            tests = ":".join(test for each, test in likely if each == program)
            prepare(program)
            outcome = self.decide(program, number, tests, 1)
            if outcome:
                return self.remember(mutant, program, outcome)
        for program in order:
            prepare(program)
            outcome = self.decide(program, number, "", SHARDS)
            if outcome:
                return self.remember(mutant, program, outcome)
        return None

    def decide(self, program, number, tests, shards):
        """What failed, twice: a machine that is busy may fail a test once."""
        path = self.programs[program]
        first = run_program(path, number, self.limit(program), tests, shards)
        if first.passed:
            return None
        if first.how == "hangs":
            return first
        if first.test and not run_program(path, number, self.limit(program), first.test, 1).passed:
            return first
        again = run_program(path, number, self.limit(program), tests, shards)
        return None if again.passed else again

    def remember(self, mutant, program, outcome):
        if outcome.test and outcome.how != "hangs":
            with self.lock:
                self.noticed[mutant.file, mutant.rule][program, outcome.test] += 10
                self.noticed[mutant.file][program, outcome.test] += 1
        return program, outcome


def find_programs(names):
    programs = {}
    for folder, folders, files in os.walk(os.path.join(BUILD, "tests")):
        folders[:] = [name for name in folders if name != "CMakeFiles"]
        for name in files:
            if name in names and os.access(os.path.join(folder, name), os.X_OK):
                programs[name] = os.path.join(folder, name)
    return programs


def measure(programs):
    """Every program has to pass with all mutants asleep; how long that takes sets its time-out."""
    seconds = {}
    for name, path in programs.items():
        for attempt in range(2):
            began = time.monotonic()
            outcome = run_program(path, 0, 600)
            if outcome.passed:
                break
            if attempt:
                sys.exit(f"{name} fails without any mutant ({outcome.how}, {outcome.test}).")
        seconds[name] = time.monotonic() - began
        say(f"  {name}: {seconds[name]:.1f} s")
    return seconds


# --- The run ----------------------------------------------------------------------------------------------------------

def say(text):
    print(text, flush=True)


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


def choose(mutants, options):
    chosen = mutants
    if options.only:
        wanted = re.compile(options.only)
        chosen = [m for m in chosen if wanted.search(m.name) or wanted.search(m.content)]
    if options.shard:
        chosen = chosen[options.shard[0] - 1::options.shard[1]]
    if options.sample and options.sample < len(chosen):
        chosen = [chosen[index * len(chosen) // options.sample] for index in range(options.sample)]
    return chosen


class Report:
    def __init__(self, total, options):
        self.total, self.began = total, time.monotonic()
        self.results = {}
        self.lock = threading.Lock()
        self.file = open(os.path.join(WORK, "results.txt"), "a" if options.resume else "w", encoding="utf-8")

    def add(self, mutant, how, by=""):
        with self.lock:
            self.results[mutant.content] = (mutant, how)
            self.file.write(f"{how}\t{mutant.name}\t{mutant.content}\t{by}\n")
            self.file.flush()
            left = self.total - len(self.results)
            pace = (time.monotonic() - self.began) / len(self.results)
            word = "SURVIVES" if how == "survived" else how
            say(f"[{len(self.results)}/{self.total}, {int(left * pace / 60)} min left] {word}: {mutant.name}"
                f"{'  by ' + by if by else ''}")


def recorded():
    done = {}
    try:
        with open(os.path.join(WORK, "results.txt"), encoding="utf-8") as file:
            for line in file:
                how, _, content, by = line.rstrip("\n").split("\t")
                done[content] = (how, by)
    except (OSError, ValueError):
        pass
    return done


def run_asleep(mutants, judge, report, jobs):
    queue = collections.deque(mutants)

    def work():
        while True:
            try:
                mutant = queue.popleft()
            except IndexError:
                return
            tell(mutant, judge.judge(mutant, mutant.number), report)

    threads = [threading.Thread(target=work, daemon=True) for _ in range(jobs)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def tell(mutant, verdict, report):
    if verdict is None:
        report.add(mutant, "survived")
    else:
        program, outcome = verdict
        report.add(mutant, "hangs" if outcome.how == "hangs" else "killed", f"{program}: {outcome.test} {outcome.how}")


class Refused(Exception):
    pass


def run_awake(mutants, builder, judge, report, jobs):
    """One at a time, each built by itself, program by program until one notices."""
    def prepare(program):
        if builder.build([program], jobs):
            raise Refused

    previous = None
    for mutant in mutants:
        if previous and previous != mutant.file:
            builder.rewrite(previous)
        previous = mutant.file
        source = builder.sources[mutant.file]
        builder.write_source(mutant.file, source.text[:mutant.start] + mutant.changed + source.text[mutant.end:])
        try:
            tell(mutant, judge.judge(mutant, 0, prepare), report)
        except Refused:
            report.add(mutant, "refused", "the compiler")
    if previous:
        builder.rewrite(previous)


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


def summary(report, mutants):
    expected = read_survivors()
    results = report.results
    counts = collections.Counter(how for _, how in results.values())
    noticed = counts["killed"] + counts["hangs"] + counts["refused"]
    survivors = sorted((mutant for mutant, how in results.values() if how == "survived"),
                       key=lambda each: (each.file, each.start))
    new = [mutant for mutant in survivors if not listed(mutant.content, expected)]
    minutes = (time.monotonic() - report.began) / 60
    say("")
    say(f"{len(results)} of {len(mutants)} mutants in {minutes:.0f} min: {counts['killed']} killed by a failing test, "
        f"{counts['hangs']} by their time-out, {counts['refused']} refused by the compiler, {len(survivors)} survived")
    if results:
        say(f"noticed: {100 * noticed / len(results):.1f} %; of those that survived {len(survivors) - len(new)} are listed "
            "with their reasons")
    for mutant in survivors:
        say(f"survived{'' if mutant in new else ', listed'}: {mutant.name}\n  {mutant.content}")
    for entry in expected:
        same = [mutant.content for mutant in mutants if listed(mutant.content, {entry: ""})]
        if all(content in results and results[content][1] != "survived" for content in same):
            say(f"scripts/survivors.txt: a test notices this by now: {entry}")
    return max(check_survivors(mutants), 1 if new else 0)


def parse(arguments):
    def shard(text):
        match = re.fullmatch(r"(\d+)/(\d+)", text)
        if not match or not 1 <= int(match.group(1)) <= int(match.group(2)):
            raise argparse.ArgumentTypeError(f"\"{text}\" is no shard: write I/N, such as 1/4")
        return int(match.group(1)), int(match.group(2))

    def positive(text):
        if not re.fullmatch(r"[1-9]\d*", text):
            raise argparse.ArgumentTypeError(f"\"{text}\" is no number above 0")
        return int(text)

    parser = argparse.ArgumentParser(prog="./check --mutate", description="Changes the plug-in's sources in one place at a "
                                     "time; for each change some test has to fail. docs/mutation.md says more.")
    parser.add_argument("--list", action="store_true", help="name the mutants and end")
    parser.add_argument("--only", metavar="PATTERN", help="those whose name or content has this regular expression")
    parser.add_argument("--shard", metavar="I/N", type=shard, help="the I-th of N parts, for N machines")
    parser.add_argument("--sample", metavar="N", type=positive, help="N of them, always the same")
    parser.add_argument("--resume", action="store_true", help="go on with a run that was interrupted")
    parser.add_argument("--jobs", metavar="N", type=positive, default=len(os.sched_getaffinity(0)),
                        help="so many mutants at once (default: the cores)")
    options = parser.parse_args(arguments)
    try:
        re.compile(options.only or "")
    except re.error as error:
        parser.error(f"\"{options.only}\" is no regular expression: {error}")
    return options


def main(arguments):
    options = parse(arguments)
    sources, mutants = find_mutants()
    chosen = choose(mutants, options)
    if options.list:
        for mutant in chosen:
            say(f"{mutant.name}\t{mutant.content}")
        return check_survivors(mutants)
    if not chosen:
        say("There is no such mutant.")
        return 2
    os.makedirs(WORK, exist_ok=True)
    done = recorded() if options.resume else {}
    # The copy holds all mutants, whichever are chosen: the next choice then needs no build.
    builder = Builder(sources, [m for m in mutants if m.can_sleep()])
    builder.write_tree()
    builder.configure()
    names = {program for _, programs in DECIDERS for program in programs
             if any(fnmatch.fnmatch(m.file, pattern) for pattern, each in DECIDERS if program in each for m in chosen)}
    say(f"{len(chosen)} of {len(mutants)} mutants; building {len(names)} test programs in {os.path.relpath(WORK)}")
    awake = set(builder.build_asleep(sorted(names), options.jobs)) | {m for m in mutants if not m.can_sleep()}
    programs = find_programs(names)
    missing = names - programs.keys()
    if missing:
        sys.exit(f"There are no such test programs: {' '.join(sorted(missing))}")
    say("Without any mutant:")
    judge = Judge(programs, measure(programs))
    report = Report(len(chosen), options)
    for mutant in chosen:
        if mutant.content in done:
            report.results[mutant.content] = (mutant, done[mutant.content][0])
    open_ones = [m for m in chosen if m.content not in done]
    run_asleep([m for m in open_ones if m not in awake], judge, report, options.jobs)
    run_awake([m for m in open_ones if m in awake], builder, judge, report, options.jobs)
    return summary(report, mutants)


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except KeyboardInterrupt:
        sys.exit(130)
