#!/usr/bin/python3
"""Seeds faults into the product sources one at a time and tells which ones
the unit and end-to-end suites let through.

    nice -n 10 tools/mutate.py --sample 200 --seed 12

A mutant is one change to one product file (core/ daemon/ console/ chip/):
a relational operator moved by one step or negated, && and || swapped, a !
dropped, an integer constant one more or one less, or a whole statement
removed. The tool works on a scratch copy of the tree (never on the tree
itself), builds it incrementally in the scratch copy's own build directory of
the default preset (warnings are errors there: a mutant that does not build
is "not compiled" and does not count), then runs the unit tests and the
end-to-end suite, stopping at the first failure. The end-to-end files most
related to the mutated file run first. A mutant whose tests fail or hang is
caught; one that passes every test survived. Mutants listed in
tests/mutation-equivalent.txt (an id, two blanks or more, and why no test can
tell it apart) are counted as equivalent and not run.

A mutant's id names the file, the enclosing function (or the declaration
outside functions), the original and mutated text and the occurrence of the
original text in that function, so that it stays the same when lines move.
The same seed on the same sources gives the same sample.

Standard library only.
"""

import argparse
import collections
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
import xml.etree.ElementTree as ET
from pathlib import Path

REPO = Path(__file__).resolve().parents[1]
PRODUCT_DIRS = ("core", "daemon", "console", "chip")
EQUIVALENTS = REPO / "tests" / "mutation-equivalent.txt"
PYTHON = "/usr/bin/python3"

# End-to-end files to run first for a mutated file (first matching pattern
# wins); the rest follow, the slow ones last.
RELATED_TESTS = [
    (r"console/readline", ["test_line_editor.py", "test_console.py"]),
    (r"console/", ["test_console.py", "test_line_editor.py", "test_tool.py"]),
    (r"daemon/", ["test_daemon.py"]),
    (r"mib", ["test_mib_counters.py"]),
    (r"mac", ["test_mac_tables.py"]),
    (r"vlan_table", ["test_vlan_table.py"]),
    (r"port_vlan", ["test_port_settings.py"]),
    (r"qos", ["test_port_settings.py"]),
    (r"mirror", ["test_port_settings.py"]),
    (r"rate", ["test_port_settings.py"]),
    (r"chip/", ["test_console.py"]),
    (r"core/", ["test_tool.py", "test_daemon.py"]),
]
SLOW_TESTS = ["test_install.py", "test_real_peers.py"]

# -- tokens -------------------------------------------------------------------

Token = collections.namedtuple("Token", "kind text start end line")

OPERATORS = sorted(
    "<=> ->* >>= <<= ... :: -> ++ -- << >> <= >= == != && || += -= *= /= %= &= |= ^= .* "
    "{ } [ ] ( ) ; : , . ? ~ ! + - * / % ^ & | = < > #".split(),
    key=len, reverse=True)
NUMBER = re.compile(r"(0[xX][0-9a-fA-F']+|0[bB][01']+|\d[\d']*)(\.\d*)?([eE][+-]?\d+)?([uUlLfF]*)")
IDENT = re.compile(r"[A-Za-z_]\w*")
STRING_PREFIX = re.compile(r'(u8|u|U|L)?R?"|(u8|u|U|L)?\'')


def tokenize(text):
    """Tokens of C++ source without comments and preprocessor lines."""
    tokens = []
    i, n, line, at_line_start = 0, len(text), 1, True
    while i < n:
        c = text[i]
        if c == "\n":
            line += 1
            i += 1
            at_line_start = True
            continue
        if c in " \t\r\f\v":
            i += 1
            continue
        if text.startswith("//", i):
            i = text.find("\n", i)
            i = n if i < 0 else i
            continue
        if text.startswith("/*", i):
            end = text.find("*/", i + 2)
            end = n if end < 0 else end + 2
            line += text.count("\n", i, end)
            i = end
            continue
        if c == "#" and at_line_start:
            while i < n and text[i] != "\n":
                if text[i] == "\\" and i + 1 < n and text[i + 1] == "\n":
                    line += 1
                    i += 1
                i += 1
            continue
        at_line_start = False
        start = i
        m = STRING_PREFIX.match(text, i)
        if m:
            quote = text[m.end() - 1]
            if quote == '"' and "R" in m.group(0):
                close = text.index("(", m.end())
                delim = ")" + text[m.end():close] + '"'
                i = text.index(delim, close) + len(delim)
            else:
                i = m.end()
                while text[i] != quote:
                    i += 2 if text[i] == "\\" else 1
                i += 1
            kind = "str" if quote == '"' else "chr"
            tokens.append(Token(kind, text[start:i], start, i, line))
            line += text.count("\n", start, i)
            continue
        m = NUMBER.match(text, i) if c.isdigit() else None
        if m:
            integer = not (m.group(2) or m.group(3) or "f" in m.group(4).lower() and not
                           m.group(1).lower().startswith("0x"))
            tokens.append(Token("int" if integer else "num", m.group(0), start, m.end(), line))
            i = m.end()
            continue
        m = IDENT.match(text, i)
        if m:
            tokens.append(Token("id", m.group(0), start, m.end(), line))
            i = m.end()
            continue
        for op in OPERATORS:
            if text.startswith(op, i):
                tokens.append(Token("op", op, start, i + len(op), line))
                i += len(op)
                break
        else:
            raise ValueError(f"line {line}: cannot read {text[i:i + 20]!r}")
    return tokens


# -- structure: functions, declarations, statements ----------------------------

TYPE_WORDS = {"const", "constexpr", "constinit", "static", "auto", "unsigned", "signed", "int",
              "char", "bool", "long", "short", "float", "double", "void", "struct", "class",
              "enum", "using", "typedef", "static_assert", "thread_local", "volatile", "inline",
              "extern", "union", "namespace", "template", "typename"}
JUMP_WORDS = {"return", "break", "continue", "goto"}
QUALIFIERS = {"const", "noexcept", "override", "final", "mutable", "constexpr", "volatile"}
CONTROL_WORDS = {"if", "for", "while", "switch", "return", "sizeof", "alignof", "decltype",
                 "catch", "do", "else", "case", "new", "delete", "throw", "co_return", "co_await"}

Site = collections.namedtuple("Site", "context start end original mutated kind line")


class Unit:
    """One source file: its tokens, the context of each token, the sites."""

    def __init__(self, path, text):
        self.path = path
        self.text = text
        self.toks = tokenize(text)
        self.match = self._match_brackets()
        self.template = self._template_brackets()
        self.context = [""] * len(self.toks)
        self.no_constant = set()
        self.no_mutation = set()  # static_assert: checked by the compiler alone
        self.statements = []  # (context, first token, last token, is last of function)
        self.walked = set()  # the opening braces of the bodies walked
        self._walk_scope(0, len(self.toks), "")

    def t(self, i):
        return self.toks[i].text if 0 <= i < len(self.toks) else ""

    def _match_brackets(self):
        match, stack = {}, []
        for i, tok in enumerate(self.toks):
            if tok.kind != "op":
                continue
            if tok.text in "([{":
                stack.append(i)
            elif tok.text in ")]}" and stack:
                j = stack.pop()
                match[i], match[j] = j, i
        return match

    def _template_brackets(self):
        """Indices of < and > (and >>) that are template brackets."""
        brackets = set()
        allowed_ops = {"::", ",", "*", "&", "(", ")", "...", "<", ">", ">>", "[", "]", "+", "-", "/", "%", "."}
        for i, tok in enumerate(self.toks):
            if tok.text != "<" or self.toks[i - 1].kind != "id" or self.t(i - 1) in CONTROL_WORDS:
                continue
            depth, parens, j = 1, 0, i + 1
            inner = []
            while j < len(self.toks) and depth > 0:
                x = self.toks[j]
                if x.kind == "op" and x.text not in allowed_ops:
                    break
                if x.text == "(":
                    parens += 1
                elif x.text == ")":
                    parens -= 1
                    if parens < 0:
                        break
                elif x.text == "<":
                    depth += 1
                    inner.append(j)
                elif x.text in (">", ">>") and parens == 0:
                    depth -= 1 if x.text == ">" else 2
                    inner.append(j)
                j += 1
            if depth <= 0:
                brackets.update([i] + inner)
        return brackets

    # A declaration or statement ends at ; or at a block it opens.
    def _walk_scope(self, i, end, outer):
        """Namespace or class scope: declarations, bodies of functions."""
        decl_start = i
        while i < end:
            text = self.t(i)
            if text == ";":
                self._mark_declaration(decl_start, i, outer)
                i += 1
                decl_start = i
            elif text == "{":
                close = self.match[i]
                head = [self.t(k) for k in range(decl_start, i)]
                name = self._declared_name(decl_start, i) or outer
                if "namespace" in head or head[:2] == ["extern", '"C"']:
                    self._walk_scope(i + 1, close, outer)
                    decl_start = close + 1
                elif self._is_function_head(decl_start, i):
                    fname = self._function_name(decl_start, i) or name
                    self._label(decl_start, i, fname)
                    self._walk_body(i, fname)
                    decl_start = close + 1
                elif head and head[0] in ("struct", "class", "union") and "=" not in head:
                    self._label(decl_start, i, name)
                    self._walk_scope(i + 1, close, name)
                    decl_start = close + 1
                elif "enum" in head:
                    self._walk_enum(i + 1, close)
                    decl_start = close + 1
                else:
                    self._walk_initializer(i, name)
                i = close + 1
            else:
                i += 1
        self._mark_declaration(decl_start, end, outer)

    def _skip_template_head(self, i, end):
        while self.t(i) == "template" and self.t(i + 1) == "<":
            j = i + 2
            depth = 1
            while j < end and depth:
                depth += {"<": 1, ">": -1, ">>": -2}.get(self.t(j), 0)
                j += 1
            i = j
        return i

    def _first_paren(self, start, end):
        i = self._skip_template_head(start, end)
        while i < end:
            if self.t(i) == "(":
                if self.t(i - 1) in ("alignas", "__attribute__", "decltype"):
                    i = self.match[i] + 1
                    continue
                return i
            if self.t(i) in ("[", "{"):
                i = self.match[i]
            i += 1
        return None

    def _is_function_head(self, start, brace):
        j = brace - 1
        if self.t(j) == "]":  # lambda without parameters
            return True
        while self.t(j) in QUALIFIERS:
            j -= 1
        if self.t(j) == ")":
            return True
        # A trailing return type: ") -> type {"
        k = j
        while k > start and self.t(k) != "->" and self.t(k) not in (";", "{", "}", "="):
            k -= 1
        return self.t(k) == "->" and self.t(k - 1) == ")"

    def _function_name(self, start, brace):
        p = self._first_paren(start, brace)
        if p is None:
            return None
        before = self.t(p - 1)
        if self.toks[p - 1].kind == "id":
            return ("~" + before) if self.t(p - 2) == "~" else before
        if self.t(p - 2) == "operator":
            return "operator" + before
        return None  # a lambda: named after the declaration

    def _declared_name(self, start, end):
        """The name a declaration introduces: the identifier before its first
        =, {, [ or ( at the outer level."""
        i = self._skip_template_head(start, end)
        while i < end:
            text = self.t(i)
            if text in ("=", "{", "[", "(") and self.toks[i - 1].kind == "id" and i > start:
                if text == "(" and self.t(i - 1) in ("alignas", "__attribute__", "decltype"):
                    i = self.match[i] + 1
                    continue
                return self.t(i - 1)
            if text == "<" and i in self.template:
                depth = 1
                i += 1
                while i < end and depth:
                    depth += {"<": 1, ">": -1, ">>": -2}.get(self.t(i), 0)
                    i += 1
                continue
            i += 1
        ids = [k for k in range(start, end) if self.toks[k].kind == "id"]
        return self.t(ids[-1]) if ids else None

    def _label(self, start, end, name):
        for k in range(start, end):
            self.context[k] = name

    def _mark_declaration(self, start, end, outer):
        if start >= end:
            return
        name = self._declared_name(start, end) or outer
        self._label(start, end, name)
        self._exclude_sizes(start, end)
        if self.t(start) != "static_assert":
            for k in range(start, end):
                if self.t(k) in ("{", "(") and k in self.match and self._is_lambda_brace(k):
                    self._walk_body(k, name)

    def _is_lambda_brace(self, k):
        return self.t(k) == "{" and (self.t(k - 1) == "]" or (
            self.t(k - 1) in (")", "mutable") and self._is_function_head(k - 1, k)
            and self.t(self.match.get(k - 1, k) - 1) == "]"))

    def _walk_enum(self, i, end):
        name = ""
        for k in range(i, end):
            if self.toks[k].kind == "id" and self.t(k + 1) in ("=", ",", "}"):
                name = self.t(k)
            self.context[k] = name

    def _walk_initializer(self, brace, name):
        close = self.match[brace]
        k = brace
        while k <= close:
            self.context[k] = name
            if k != brace and self.t(k) == "{" and self._is_lambda_brace(k):
                self._walk_body(k, name)
                k = self.match[k] + 1
                continue
            k += 1
        self._exclude_sizes(brace, close)

    def _exclude_sizes(self, start, end):
        """Constants that size arrays or are checked at compile time."""
        for k in range(start, end):
            text = self.t(k)
            if text == "<" and k in self.template and self.t(k - 1) == "array":
                j = k + 1
                depth = 1
                while depth and j < len(self.toks):
                    depth += {"<": 1, ">": -1, ">>": -2}.get(self.t(j), 0)
                    j += 1
                self.no_constant.update(range(k, j))
            elif text == "[" and k in self.match and self._is_declarator(k):
                self.no_constant.update(range(k, self.match[k]))
            elif text in ("static_assert", "alignas") and self.t(k + 1) == "(":
                self.no_mutation.update(range(k, self.match[k + 1]))

    def _is_declarator(self, k):
        prev, before = self.toks[k - 1], self.toks[k - 2]
        if prev.kind == "id":
            return (before.kind == "id" and before.text not in CONTROL_WORDS) or before.text in ("*", "&")
        if prev.text == ")" and self.t(k - 4) == "(" and self.t(k - 3) in ("&", "*"):
            return True
        return False

    def _walk_body(self, brace, name):
        if brace in self.walked:
            return
        self.walked.add(brace)
        close = self.match[brace]
        self._label(brace, close + 1, name)
        self._exclude_sizes(brace, close)
        i = brace + 1
        while i < close:
            i = self._statement(i, name, top_level_end=close)

    def _statement(self, i, name, top_level_end=None):
        text = self.t(i)
        if text == "{":
            close = self.match[i]
            j = i + 1
            while j < close:
                j = self._statement(j, name)
            return close + 1
        if text == ";":
            return i + 1
        if text in ("if", "while", "switch", "for"):
            j = i + 1
            if self.t(j) == "constexpr":
                j += 1
            j = self._statement(self.match[j] + 1, name)
            if text == "if" and self.t(j) == "else":
                j = self._statement(j + 1, name)
            return j
        if text == "do":
            j = self._statement(i + 1, name)  # the body, then while (...);
            return self._end_of_statement(j) + 1
        if text == "case" or (text == "default" and self.t(i + 1) == ":"):
            j = i
            while self.t(j) != ":":
                j += 1
            return j + 1
        end = self._end_of_statement(i)
        if text in JUMP_WORDS or not self._is_declaration(i):
            last = top_level_end is not None and end + 1 == top_level_end
            self.statements.append((name, i, end, last))
        return end + 1

    def _end_of_statement(self, i):
        while self.t(i) != ";":
            i = self.match[i] + 1 if self.t(i) in ("(", "[", "{") else i + 1
        return i

    def _is_declaration(self, i):
        if self.t(i) in TYPE_WORDS:
            return True
        if self.toks[i].kind != "id":
            return False
        j = i + 1
        while True:  # a qualified name, maybe with template arguments
            if self.t(j) == "<" and j in self.template:
                depth = 1
                j += 1
                while depth:
                    depth += {"<": 1, ">": -1, ">>": -2}.get(self.t(j), 0)
                    j += 1
            if self.t(j) == "::" and self.toks[j + 1].kind == "id":
                j += 2
                continue
            break
        if self.toks[j].kind == "id":
            return True
        return self.t(j) in ("*", "&", "&&") and self.toks[j + 1].kind == "id" and \
            self.t(j + 2) in ("=", ";", "(", "[", "{", ",")

    # -- the sites ---------------------------------------------------------

    def sites(self):
        out = []
        relational = {"<": ["<="], "<=": ["<"], ">": [">="], ">=": [">"], "==": ["!="], "!=": ["=="]}
        logical = {"&&": ["||"], "||": ["&&"], "!": [""]}
        for i, tok in enumerate(self.toks):
            ctx = self.context[i]
            if i in self.no_mutation or not ctx:
                continue
            if tok.kind == "op" and tok.text in relational and i not in self.template:
                for m in relational[tok.text]:
                    out.append(Site(ctx, tok.start, tok.end, tok.text, m, "relational", tok.line))
            elif tok.kind == "op" and tok.text in logical:
                for m in logical[tok.text]:
                    out.append(Site(ctx, tok.start, tok.end, tok.text, m, "logical", tok.line))
            elif tok.kind == "int" and i not in self.no_constant:
                for m in bumped(tok.text):
                    out.append(Site(ctx, tok.start, tok.end, tok.text, m, "constant", tok.line))
        for name, first, last, is_last in self.statements:
            if self.t(first) == "return" and self.t(first + 1) != ";" and is_last:
                continue  # a value-returning function needs its last return
            original = normalized(self.toks[first:last + 1])
            out.append(Site(name, self.toks[first].start, self.toks[last].end, original, "{}",
                            "statement", self.toks[first].line))
        out.sort(key=lambda s: (s.start, s.mutated))
        return out


def normalized(tokens):
    out = []
    for tok in tokens:
        text = " ".join(tok.text.split()) if tok.kind == "str" else tok.text
        if out and tok.kind in ("id", "int", "num") and out[-1][0] in ("id", "int", "num"):
            out.append(("sp", " "))
        out.append((tok.kind, text))
    return "".join(text for _, text in out)


def bumped(text):
    """The literal one more and one less, in its own base and with its suffix."""
    m = re.fullmatch(r"(0[xX])?([0-9a-fA-F']+)([uUlL]*)", text)
    if not m or text.lower().startswith("0b"):
        return []
    prefix, digits, suffix = m.group(1) or "", m.group(2).replace("'", ""), m.group(3)
    if prefix:
        value, fmt = int(digits, 16), ("{:0%dX}" if digits.upper() == digits else "{:0%dx}") % len(digits)
    elif len(digits) > 1 and digits.startswith("0"):
        value, fmt = int(digits, 8), "0{:o}"
    else:
        value, fmt = int(digits), "{:d}"
    return [prefix + fmt.format(v) + suffix for v in (value + 1, value - 1) if v >= 0]


class Mutant:
    def __init__(self, path, site, index):
        self.path = path
        self.site = site
        self.id = f"{path}:{site.context}:{site.original}=>{site.mutated}#{index}"

    def apply(self, text):
        return text[:self.site.start] + self.site.mutated + text[self.site.end:]


def product_files(root):
    files = []
    for d in PRODUCT_DIRS:
        files += sorted(p for p in (root / d).glob("*") if p.suffix in (".cpp", ".h"))
    return files


def enumerate_mutants(root):
    mutants = []
    for path in product_files(root):
        rel = str(path.relative_to(root))
        unit = Unit(rel, path.read_text())
        seen = collections.Counter()
        for site in unit.sites():
            key = (site.context, site.original, site.mutated)
            mutants.append(Mutant(rel, site, seen[key]))
            seen[key] += 1
    return mutants


def read_equivalents(path):
    out = {}
    if not path.exists():
        return out
    for line in path.read_text().splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        parts = re.split(r"\t|\s{2,}", line.strip(), maxsplit=1)
        out[parts[0]] = parts[1] if len(parts) > 1 else ""
    return out


def equivalent_reason(mutant, equivalents):
    """The reason listed for the mutant: by its id, or, after code moved to
    another file, by the same id without the file when that is unique."""
    if mutant.id in equivalents:
        return equivalents[mutant.id]
    tail = mutant.id.split(":", 1)[1]
    hits = [reason for key, reason in equivalents.items() if key.split(":", 1)[1] == tail]
    return hits[0] if len(hits) == 1 else None


# -- running ------------------------------------------------------------------

class Workspace:
    """The scratch copy of the tree and its build directory."""

    def __init__(self, root, log):
        self.root = root
        self.build_dir = root / "build"
        self.log = log

    def sync(self):
        files = subprocess.run(["git", "-C", str(REPO), "ls-files", "-co", "--exclude-standard", "-z"],
                               check=True, capture_output=True).stdout.decode().split("\0")
        wanted = {f for f in files if f and (REPO / f).is_file()}
        self.root.mkdir(parents=True, exist_ok=True)
        for f in sorted(wanted):
            src, dst = REPO / f, self.root / f
            if not dst.exists() or dst.read_bytes() != src.read_bytes():
                # A fresh modification time, so that the build sees the change.
                dst.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(src, dst)
                shutil.copymode(src, dst)
        for top, dirs, names in os.walk(self.root):
            if Path(top) == self.root:
                dirs[:] = [d for d in dirs if d != "build"]
            dirs[:] = [d for d in dirs if d != "__pycache__"]
            for name in names:
                rel = str((Path(top) / name).relative_to(self.root))
                if rel not in wanted and not rel.startswith("report"):
                    (Path(top) / name).unlink()

    def configure(self):
        if not (self.build_dir / "CMakeCache.txt").exists():
            subprocess.run(["cmake", "--preset", "default"], cwd=self.root, check=True,
                           stdout=subprocess.DEVNULL)

    def build(self, timeout):
        """None when the build succeeds, else its first error line."""
        try:
            r = subprocess.run(["cmake", "--build", str(self.build_dir), "-j2"], cwd=self.root,
                               capture_output=True, timeout=timeout)
        except subprocess.TimeoutExpired:
            return "build timed out"
        if r.returncode == 0:
            return None
        text = (r.stdout + r.stderr).decode(errors="replace")
        errors = [line for line in text.splitlines() if "error" in line]
        return (errors or ["build failed"])[0].strip()


def run_bounded(cmd, timeout, env=None, cwd=None):
    """(return code, output, timed out). A process group of its own, so that
    a timeout ends all of it; pytest is interrupted first so that the bench
    ends the namespaces it made."""
    proc = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=env, cwd=cwd,
                            start_new_session=True)
    try:
        out, _ = proc.communicate(timeout=timeout)
        return proc.returncode, out.decode(errors="replace"), False
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGINT)
        try:
            out, _ = proc.communicate(timeout=30)
        except subprocess.TimeoutExpired:
            os.killpg(proc.pid, signal.SIGKILL)
            out, _ = proc.communicate()
        return None, out.decode(errors="replace"), True


class Runner:
    def __init__(self, ws, e2e_timeout):
        self.ws = ws
        self.e2e_timeout = e2e_timeout
        self.killers = collections.defaultdict(collections.Counter)  # file -> test file -> kills
        self.all_tests = sorted(p.name for p in (ws.root / "tests" / "e2e").glob("test_*.py"))

    def test_order(self, path):
        first = [t for t, _ in self.killers[path].most_common()]
        for pattern, tests in RELATED_TESTS:
            if re.search(pattern, path):
                first += tests
                break
        rest = [t for t in self.all_tests if t not in SLOW_TESTS] + SLOW_TESTS
        order = []
        for t in first + rest:
            if t not in order and t in self.all_tests:
                order.append(t)
        return order

    def pytest(self, args, timeout):
        """(return code, node id of the first failure or None, timed out)."""
        xml = self.ws.build_dir / "mutant-junit.xml"
        xml.unlink(missing_ok=True)
        env = dict(os.environ, SWITCH_BUILD_DIR=str(self.ws.build_dir))
        rc, _, hung = run_bounded([PYTHON, "-m", "pytest", "-x", "-q", "-p", "no:cacheprovider",
                                   f"--junitxml={xml}", *args], timeout, env=env, cwd=self.ws.root)
        first = None
        if xml.exists() and not hung:
            for case in ET.parse(xml).iter("testcase"):
                if case.find("failure") is not None or case.find("error") is not None:
                    module = case.get("classname", "").replace(".", "/")
                    first = f"{module}.py::{case.get('name')}"
                    break
        return rc, first, hung

    def run_tests(self, path):
        """('caught', by what) or ('survived', ''). A failing test counts when
        it fails again alone; one that then passes was upset by the machine's
        load, not by the mutant, and the suite goes on without it."""
        unit = self.ws.build_dir / "tests" / "unit" / "unit_tests"
        rc, out, hung = run_bounded([str(unit), "--gtest_brief=1"], 120)
        if hung or rc != 0:
            return "caught", "unit tests" + (" (hang)" if hung else "")
        tests = [f"tests/e2e/{t}" for t in self.test_order(path)]
        flaky = []
        while True:
            rc, first, hung = self.pytest(tests + [f"--deselect={f}" for f in flaky], self.e2e_timeout)
            if hung:
                return "caught", "end-to-end suite (hang)"
            if rc == 0:
                return "survived", f"flaky: {', '.join(flaky)}" if flaky else ""
            if first is None:
                return "caught", f"end-to-end suite (pytest status {rc})"
            rc, again, hung = self.pytest([first], self.e2e_timeout)
            if hung or rc != 0 or len(flaky) >= 3:
                self.killers[path][first.split("::")[0].rsplit("/", 1)[-1]] += 1
                return "caught", first
            print(f"    {first} failed, then passed alone: run again without it", flush=True)
            flaky.append(first)


def diff_of(mutant, text):
    site = mutant.site
    line_start = text.rfind("\n", 0, site.start) + 1
    line_end = text.find("\n", site.end)
    line_end = len(text) if line_end < 0 else line_end
    before = text[line_start:line_end]
    after = mutant.apply(text)[line_start:line_end + len(site.mutated) - (site.end - site.start)]
    minus = "\n".join("-" + x for x in before.split("\n"))
    plus = "\n".join("+" + x for x in after.split("\n"))
    return f"--- {mutant.path}:{mutant.site.line}\n{minus}\n{plus}"


def write_report(path, results, meta):
    counts = collections.Counter(r["outcome"] for r in results)
    judged = counts["caught"] + counts["survived"]
    score = 100.0 * counts["caught"] / judged if judged else 0.0
    times = [r["seconds"] for r in results if r["outcome"] in ("caught", "survived")]
    lines = [
        "# Mutation run",
        "",
        f"Sample {meta['sample']} of {meta['candidates']} mutants, seed {meta['seed']}; "
        f"{meta['minutes']:.1f} minutes.",
        "",
        f"- caught: {counts['caught']}",
        f"- survived: {counts['survived']}",
        f"- equivalent (listed): {counts['equivalent']}",
        f"- not compiled: {counts['not compiled']}",
        f"- score: {score:.1f}% of the non-equivalent mutants that compiled were caught",
    ]
    if times:
        lines.append(f"- time per tested mutant: mean {sum(times) / len(times):.1f} s, "
                     f"longest {max(times):.1f} s")
    kinds = collections.defaultdict(collections.Counter)
    for r in results:
        kinds[r["kind"]][r["outcome"]] += 1
    lines += ["", "| kind | caught | survived | equivalent | not compiled |", "|---|---|---|---|---|"]
    for kind in sorted(kinds):
        c = kinds[kind]
        lines.append(f"| {kind} | {c['caught']} | {c['survived']} | {c['equivalent']} | {c['not compiled']} |")
    survivors = [r for r in results if r["outcome"] == "survived"]
    if survivors:
        lines += ["", "## Survivors", ""]
        for r in survivors:
            lines += [f"`{r['id']}`", "", "```diff", r["diff"], "```", ""]
    lines += ["", "## All mutants", ""]
    for r in results:
        lines.append(f"- {r['outcome']}: `{r['id']}` {r['by']}".rstrip())
    path.write_text("\n".join(lines) + "\n")
    return counts, score


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--sample", type=int, default=100, help="number of mutants (default 100)")
    ap.add_argument("--seed", type=int, default=1, help="seed of the sample (default 1)")
    ap.add_argument("--workdir", type=Path, default=Path("/var/tmp/zorvi-mutate"),
                    help="scratch copy of the tree and its build (default /var/tmp/zorvi-mutate; "
                    "not under /tmp, which the install tests cover with a tmpfs of their own)")
    ap.add_argument("--report", type=Path, help="report file (default WORKDIR/report.md, and .json)")
    ap.add_argument("--only", nargs="+", metavar="ID", help="run these mutants instead of a sample")
    ap.add_argument("--list", action="store_true", help="list every mutant id with its line and stop")
    ap.add_argument("--check-equivalents", action="store_true", help="run listed equivalents too")
    ap.add_argument("--no-baseline", action="store_true",
                    help="skip the check that the unmutated tree passes (quick re-runs with --only)")
    args = ap.parse_args()

    if args.list:
        for m in enumerate_mutants(REPO):
            print(f"{m.path}:{m.site.line}\t{m.site.kind}\t{m.id}")
        return 0

    ws = Workspace(args.workdir.resolve(), print)
    ws.sync()
    mutants = enumerate_mutants(ws.root)
    by_id = {m.id: m for m in mutants}
    if args.only:
        unknown = [i for i in args.only if i not in by_id]
        if unknown:
            sys.exit(f"mutate.py: no such mutant: {', '.join(unknown)}")
        chosen = [by_id[i] for i in args.only]
    else:
        # In the sample's own order, so that a run cut short (Ctrl-C writes
        # the report of the mutants done) is still a random sample.
        chosen = random.Random(args.seed).sample(mutants, min(args.sample, len(mutants)))
    equivalents = read_equivalents(ws.root / EQUIVALENTS.relative_to(REPO))

    started = time.monotonic()
    ws.configure()
    error = ws.build(1800)
    if error:
        sys.exit(f"mutate.py: the unmutated tree does not build: {error}")
    runner = Runner(ws, e2e_timeout=600)
    if not args.no_baseline:
        t0 = time.monotonic()
        outcome, by = runner.run_tests("")
        baseline = time.monotonic() - t0
        if outcome != "survived":
            sys.exit(f"mutate.py: the unmutated tree fails its tests ({by})")
        # A mutant that makes the suites this much slower hangs.
        runner.e2e_timeout = max(300.0, 3 * baseline)
        print(f"baseline: unit and end-to-end suites pass in {baseline:.0f} s", flush=True)
    print(f"{len(mutants)} mutants, running {len(chosen)}", flush=True)

    results = []
    report = args.report or ws.root / "report.md"
    try:
        for n, m in enumerate(chosen, 1):
            src = ws.root / m.path
            original = src.read_text()
            t0 = time.monotonic()
            reason = equivalent_reason(m, equivalents)
            if reason is not None and not args.check_equivalents:
                outcome, by = "equivalent", reason
            else:
                src.write_text(m.apply(original))
                try:
                    error = ws.build(900)
                    if error:
                        outcome, by = "not compiled", error
                    else:
                        outcome, by = runner.run_tests(m.path)
                finally:
                    src.write_text(original)
                if outcome == "survived" and reason is not None:
                    outcome, by = "equivalent", reason
            seconds = time.monotonic() - t0
            results.append(dict(id=m.id, kind=m.site.kind, outcome=outcome, by=by, seconds=round(seconds, 1),
                                line=m.site.line, diff=diff_of(m, original)))
            print(f"[{n}/{len(chosen)}] {outcome:12} {seconds:6.1f} s  {m.id}  {by}".rstrip(), flush=True)
    finally:
        meta = dict(sample=len(chosen), candidates=len(mutants), seed=args.seed,
                    minutes=(time.monotonic() - started) / 60)
        counts, score = write_report(report, results, meta)
        report.with_suffix(".json").write_text(json.dumps(dict(meta, results=results), indent=1))
        # The scratch build is left as the sources are now, unmutated.
        ws.build(1800)
    print(f"caught {counts['caught']}, survived {counts['survived']}, equivalent {counts['equivalent']}, "
          f"not compiled {counts['not compiled']}: score {score:.1f}%; report {report}")
    return 0 if counts["survived"] == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
