"""The copy of the sources with all mutants in it, asleep."""

import os
import re
import shutil
import subprocess
import sys

from mutation.plan import BUILD, ROOT, TREE, WORK, list_files, say
from mutation.rules import Mutant, one_line

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
        write_if_changed(os.path.join(WORK, "switches.h"), SWITCHES.encode())
        for path in self.sources:
            self.rewrite(path)
        for path in wanted:
            os.chmod(os.path.join(TREE, path), os.stat(os.path.join(ROOT, path)).st_mode & 0o777)

    def rewrite(self, path):
        self.write_source(path, sleeping_source(self.sources[path], self.asleep[path]))

    def configure(self):
        # Quicker, but for programs alone: gold would export more from the plug-in than its version script says.
        linker = "-fuse-ld=gold" if shutil.which("ld.gold") else ""
        flags = f"-O0 -w -Wno-narrowing -include {os.path.join(WORK, 'switches.h')}"
        command = ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DZOIO_BUILD_TESTS=ON",
                   f"-DCMAKE_CXX_FLAGS_DEBUG={flags}", "-DCMAKE_C_FLAGS_DEBUG=-O0",
                   f"-DCMAKE_EXE_LINKER_FLAGS={linker}"]
        with open(os.path.join(WORK, "configure.log"), "w", encoding="utf-8") as log:
            if subprocess.run(command, stdout=log, stderr=subprocess.STDOUT, check=False).returncode != 0:
                sys.exit(f"The copy could not be configured; the log is {log.name}.")

    def build(self, targets, jobs):
        """What the compiler said, or nothing when it was content."""
        done = subprocess.run(["cmake", "--build", BUILD, "-j", str(jobs), "--target", *targets, "--", "-k", "0"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, text=True,
                              errors="replace")
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
