# SPDX-License-Identifier: MIT
"""Finds the places of a source where a mutant can stand, with libclang (python3-clang).

A site is a range of bytes of a file and what may take its place: another expression, or nothing in place of a
statement. Sites in macros, in constant expressions and behind `#if` of other systems are left out.
"""

import re
from dataclasses import dataclass

from clang import cindex
from clang.cindex import CursorKind as K
from clang.cindex import TypeKind as T

COMPARISONS = {"<": ["<="], "<=": ["<"], ">": [">="], ">=": [">"], "==": ["!="], "!=": ["=="]}
ARITHMETIC = {"+": ["-"], "-": ["+"], "*": ["+"], "/": ["*"], "%": ["/"], "<<": [">>"], ">>": ["<<"], "&": ["|"],
              "|": ["&"], "^": ["|"]}
LOGIC = {"&&": ["||"], "||": ["&&"]}
ASSIGNMENTS = {"+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="], "|=": ["&="], "&=": ["|="]}
# Functions whose name can be exchanged for another one with the same arguments.
RENAMED = {"floor": "trunc", "ceil": "floor", "min": "max", "max": "min", "Add": "Sub", "Sub": "Add", "Lt": "Le",
           "Le": "Lt", "Gt": "Ge", "Ge": "Gt", "Eq": "Ne", "Min": "Max", "Max": "Min", "Floor": "Trunc", "Ceil": "Floor",
           "Or": "And", "And": "Or", "wrapping_add": "wrapping_sub", "wrapping_sub": "wrapping_add"}
ROUNDING = {"floor", "ceil", "Floor", "Ceil"}
COMPARING = {"Lt", "Le", "Gt", "Ge", "Eq", "min", "max", "Min", "Max"}
ORDERED = {"Sub", "Div", "Lt", "Le", "Gt", "Ge", "Min", "Max", "AndNot"}  # vector operations that are not symmetric
SYMMETRIC = {"Add", "Mul", "Or", "And", "Eq", "min", "max", "plus", "times", "wrapping_add", "wrapping_mul"}
FLOATS = {T.FLOAT, T.DOUBLE, T.LONGDOUBLE}
INTEGERS = {T.CHAR_U, T.UCHAR, T.USHORT, T.UINT, T.ULONG, T.ULONGLONG, T.CHAR_S, T.SCHAR, T.SHORT, T.INT, T.LONG,
            T.LONGLONG}
LOOPS = {K.FOR_STMT, K.WHILE_STMT, K.DO_STMT, K.CXX_FOR_RANGE_STMT}


@dataclass(frozen=True)
class Site:
    path: str
    start: int
    end: int
    line: int
    kind: str
    statement: bool
    original: str
    mutated: str
    source_line: str


class Finder:
    """All sites of one source and of the headers beside it."""

    def __init__(self, root, folders):
        self.root = root
        self.folders = tuple(f"{root}/{folder}/" for folder in folders)
        self.index = cindex.Index.create()
        self.texts = {}
        self.sites = {}
        self.done = set()  # top-level declarations of headers, which many sources include

    def parse(self, path, arguments):
        unit = self.index.parse(path, args=arguments, options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [d for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
        if errors:
            raise RuntimeError(f"{path}: {errors[0]}")
        self.macros = {}
        declarations = []
        for cursor in unit.cursor.get_children():
            file = cursor.location.file
            if file is None or not file.name.startswith(self.folders):
                continue
            if cursor.kind == K.MACRO_INSTANTIATION:
                self.remember_macro(cursor)
            elif not cursor.kind.is_preprocessing():
                declarations.append(cursor)
        for cursor in declarations:
            self.visit(cursor, False)

    def text(self, path):
        if path not in self.texts:
            with open(path, "rb") as file:
                self.texts[path] = file.read()
        return self.texts[path]

    def remember_macro(self, cursor):
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        if self.text(cursor.extent.start.file.name)[start:end].endswith(b")"):
            self.macros.setdefault(cursor.location.file.name, []).append((start, end))

    # ---- the tree ----------------------------------------------------------------------------------------------------

    def visit(self, cursor, in_increment):
        kind = cursor.kind
        if kind in (K.STATIC_ASSERT, K.ENUM_DECL, K.TYPE_REF, K.TEMPLATE_REF, K.TEMPLATE_NON_TYPE_PARAMETER,
                    K.TYPE_ALIAS_DECL, K.TYPEDEF_DECL):
            return
        if kind == K.VAR_DECL and self.is_constant(cursor):
            return
        if kind == K.NAMESPACE or cursor.kind.is_declaration():
            file = cursor.location.file
            if file is None or not file.name.startswith(self.folders):
                return
        self.look_at(cursor, in_increment)
        if kind in (K.DECL_REF_EXPR, K.MEMBER_REF_EXPR) and self.source(cursor).endswith(">"):
            return  # template arguments
        children = list(cursor.get_children())
        if kind == K.VAR_DECL and cursor.type.kind in (T.CONSTANTARRAY, T.DEPENDENTSIZEDARRAY):
            children = [c for c in children if self.is_initialiser(cursor, c)]
        if kind == K.VAR_DECL:  # not what stands in its type
            children = [c for c in children if c.extent.start.offset >= cursor.location.offset]
        if kind == K.CASE_STMT:
            children = children[1:]
        if kind == K.IF_STMT and self.source(cursor).startswith("if constexpr"):
            children = children[1:]
        for place, child in enumerate(children):
            self.visit(child, kind == K.FOR_STMT and place < len(children) - 1)

    def source(self, cursor):
        file = cursor.extent.start.file
        if file is None or not file.name.startswith(self.folders):
            return ""
        return self.text(file.name)[cursor.extent.start.offset:cursor.extent.end.offset].decode()

    def is_constant(self, cursor):
        return re.match(r"(static |inline )*constexpr\b", self.source(cursor)) is not None

    def is_initialiser(self, cursor, child):
        text = self.source(cursor)
        begin = min([i for i in (text.find("="), text.find("{")) if i >= 0], default=len(text))
        return child.extent.start.offset >= cursor.extent.start.offset + begin

    def look_at(self, cursor, in_increment):
        kind = cursor.kind
        if cursor.extent.start.file is None:
            return  # what the compiler adds
        if kind == K.BINARY_OPERATOR:
            self.binary(cursor)
        elif kind == K.COMPOUND_ASSIGNMENT_OPERATOR and not in_increment:
            self.compound(cursor)
        elif kind == K.UNARY_OPERATOR:
            self.unary(cursor)
        elif kind == K.CONDITIONAL_OPERATOR:
            self.conditional(cursor)
        elif kind in (K.INTEGER_LITERAL, K.FLOATING_LITERAL, K.CXX_BOOL_LITERAL_EXPR):
            self.literal(cursor)
        elif kind == K.DECL_REF_EXPR:
            self.constant(cursor)
        elif kind == K.ARRAY_SUBSCRIPT_EXPR:
            self.subscript(cursor)
        elif kind == K.CALL_EXPR:
            self.call(cursor)
        elif kind == K.COMPOUND_STMT:
            for child in cursor.get_children():
                self.dropped(child)
        elif kind in (K.IF_STMT, K.FOR_STMT, K.WHILE_STMT, K.CXX_FOR_RANGE_STMT):
            for child in list(cursor.get_children())[1:]:
                if kind != K.FOR_STMT or child.extent.end.offset == cursor.extent.end.offset:
                    self.dropped(child)

    # ---- kinds of mutants ---------------------------------------------------------------------------------------------

    def binary(self, cursor):
        parts = self.operands(cursor)
        if parts is None:
            return
        left, operator, right = parts
        for table, kind in ((COMPARISONS, "comparison"), (ARITHMETIC, "arithmetic"), (LOGIC, "logic")):
            for other in table.get(operator, []):
                self.add(cursor, kind, f"({left}) {other} ({right})")
        if operator in ("-", "/", "%", "<<", ">>"):
            self.add(cursor, "swapped operands", f"({right}) {operator} ({left})")

    def compound(self, cursor):
        parts = self.operands(cursor)
        if parts is not None:
            for other in ASSIGNMENTS.get(parts[1], []):
                self.add(cursor, "arithmetic", f"({parts[0]}) {other} ({parts[2]})")

    def operands(self, cursor):
        children = list(cursor.get_children())
        if len(children) != 2:
            return None
        data = self.text(cursor.extent.start.file.name)
        begin, end = children[0].extent.end.offset, children[1].extent.start.offset
        if not cursor.extent.start.offset < begin < end < cursor.extent.end.offset:
            return None
        operator = data[begin:end].decode().strip()
        return self.source(children[0]), operator, self.source(children[1])

    def unary(self, cursor):
        text = self.source(cursor)
        if text.startswith("!") and not text.startswith("!="):
            self.add(cursor, "logic", f"({text[1:]})")
        elif text.startswith("-") and not text.startswith("--"):
            self.add(cursor, "arithmetic", f"({text[1:]})")

    def conditional(self, cursor):
        children = list(cursor.get_children())
        if len(children) == 3:
            condition, yes, no = (self.source(c) for c in children)
            self.add(cursor, "swapped operands", f"({condition}) ? ({no}) : ({yes})")

    def literal(self, cursor):
        text = self.source(cursor)
        if cursor.kind == K.CXX_BOOL_LITERAL_EXPR:
            self.add(cursor, "constant", "false" if text == "true" else "true")
        elif cursor.kind == K.INTEGER_LITERAL and text[:1].isdigit():
            self.add(cursor, "constant", f"({text} + 1)")
            if text.rstrip("uUlL") not in ("0", "0x0"):
                self.add(cursor, "constant", f"({text} - 1)")
        elif text[:1].isdigit():
            suffix = "f" if cursor.type.get_canonical().kind == T.FLOAT else ""
            is_zero = re.fullmatch(r"0*\.?0*[fFlL]?", text) is not None
            self.add(cursor, "constant", f"({text} + 1.0{suffix})" if is_zero else f"({text} * 1.0625{suffix})")

    def constant(self, cursor):
        text = self.source(cursor)
        if not re.fullmatch(r"([a-z_]+::)*k[A-Z]\w*", text) or cursor.referenced is None:
            return
        kind = cursor.type.get_canonical().kind
        if kind in FLOATS:
            self.add(cursor, "constant", f"({text} * 1.0625{'f' if kind == T.FLOAT else ''})")
        elif kind in INTEGERS:
            self.add(cursor, "constant", f"({text} + 1)")

    def subscript(self, cursor):
        children = list(cursor.get_children())
        if len(children) == 2 and children[1].kind != K.INTEGER_LITERAL:
            text = self.source(children[1])
            self.add(children[1], "plus or minus one", f"({text}) + 1")
            self.add(children[1], "plus or minus one", f"({text}) - 1")

    def call(self, cursor):
        text = self.source(cursor)
        found = re.match(r"((?:\w+::)*)(\w+)\(", text)
        arguments = list(cursor.get_arguments()) or list(cursor.get_children())[1:]
        if not found or not text.endswith(")"):
            return
        name = found.group(2)
        other = RENAMED.get(name)
        if other and (name not in ("min", "max") or found.group(1) == "std::"):
            kind = "rounding" if name in ROUNDING else "comparison" if name in COMPARING else "arithmetic"
            self.add(cursor, kind, found.group(1) + other + text[found.end() - 1:])
        elif name == "truncate_to_int":
            self.add(cursor, "rounding", f"{found.group(1)}{name}(std::floor{text[found.end() - 1:]})")
        if any(argument.extent.start.offset <= cursor.extent.start.offset for argument in arguments):
            return
        if name not in SYMMETRIC and len(arguments) >= 2 and \
                (name in ORDERED or self.exchangeable(arguments[0], arguments[1])):
            data = self.text(cursor.extent.start.file.name)
            end = arguments[1].extent.end.offset
            rest = data[end:cursor.extent.end.offset].decode()
            first, second = self.source(arguments[0]), self.source(arguments[1])
            self.add(cursor, "swapped operands", f"{found.group(1)}{name}({second}, {first}{rest}")
        for argument in arguments:
            if argument.type.get_canonical().kind in INTEGERS and re.fullmatch(r"[\w.\->]+", self.source(argument)) \
                    and not self.source(argument)[:1].isdigit():
                self.add(argument, "plus or minus one", f"{self.source(argument)} + 1")

    def exchangeable(self, first, second):
        a, b = first.type.get_canonical(), second.type.get_canonical()
        known = a.kind not in (T.DEPENDENT, T.UNEXPOSED, T.INVALID)
        return known and a.spelling.replace("const ", "") == b.spelling.replace("const ", "") \
            and self.source(first) != self.source(second)

    def dropped(self, child):
        """A statement of a block or the one behind an if or a loop."""
        data = self.text(child.extent.start.file.name)
        end = child.extent.end.offset
        if child.kind.is_expression() or child.kind in (K.BREAK_STMT, K.CONTINUE_STMT):
            semicolon = re.match(rb"\s*;", data[end:])
            if not semicolon or self.source(child).startswith(("++", "--", "static_cast<void>")):
                return
            self.add(child, "dropped statement", "", end + semicolon.end())
        elif child.kind == K.IF_STMT and b" else" not in data[child.extent.start.offset:end] \
                and not self.source(child).startswith("if constexpr"):
            semicolon = re.match(rb"\s*;", data[end:]) if data[end - 1:end] != b";" else None
            self.add(child, "dropped statement", "", end + (semicolon.end() if semicolon else 0))

    def line_around(self, path, start, end):
        """The line that a site begins in, with the site in brackets."""
        data = self.text(path)
        stop = data.find(b"\n", start)
        marked = data[data.rfind(b"\n", 0, start) + 1:start] + b"[[" + data[start:min(end, stop)] + b"]]" + \
            data[end:max(end, stop)]
        return " ".join(marked.decode().split())

    def add(self, cursor, kind, mutated, end=None):
        if cursor.extent.start.file is None:
            return
        path = cursor.extent.start.file.name
        start, end = cursor.extent.start.offset, end or cursor.extent.end.offset
        original = self.text(path)[start:end].decode()
        if not original or not path.startswith(self.folders) or cursor.extent.end.file.name != path:
            return
        if any(s < end and start < e and not (start <= s and e <= end) or (s <= start and end <= e)
               for s, e in self.macros.get(path, [])):
            return
        if kind != "dropped statement" and ("//" in original or "#" in original):
            return
        if original.count("(") != original.count(")") or mutated.count("(") != mutated.count(")"):
            return
        site = Site(path[len(self.root) + 1:], start, end, cursor.extent.start.line, kind, kind == "dropped statement",
                    " ".join(original.split()), " ".join(mutated.split()), self.line_around(path, start, end))
        self.sites[(site.path, start, end, site.kind, site.mutated)] = site
