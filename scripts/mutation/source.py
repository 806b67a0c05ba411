"""Reads a C++ source as far as the rules need it."""

import os
import re

from mutation.plan import ROOT


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

    KEYWORDS = re.compile(r"(return|throw|using|static|constexpr|const|auto|if|for|while|switch|case|default|else|do|"
                          r"delete|new|goto|break|continue|typedef|template|static_cast<void>)\b|static_cast<void>")

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
