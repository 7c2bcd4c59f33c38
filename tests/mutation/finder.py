"""What can be changed in a source: finds the expressions, rewrites them into calls of mutant.h."""
import bisect, os, re, sys
from clang.cindex import CursorKind as K, TypeKind as T

HERE = os.path.dirname(os.path.abspath(__file__))

OPERATORS = {
    "<": ("less", "<="), "<=": ("less_equal", "<"), ">": ("greater", ">="),
    ">=": ("greater_equal", ">"), "==": ("equal", "!="), "!=": ("not_equal", "=="),
    "+": ("plus", "-"), "-": ("minus", "+"), "*": ("times", "/"), "/": ("divided", "*"),
    "%": ("modulo", "*"), "<<": ("shift_left", ">>"), ">>": ("shift_right", "<<"),
    "&": ("bit_and", "|"), "|": ("bit_or", "&"), "^": ("bit_xor", "|"),
}
ASSIGNMENTS = {"+=": ("add_to", "-="), "-=": ("take_from", "+="),
               "&=": ("and_to", "|="), "|=": ("or_to", "&=")}
FUNCTIONS = {K.FUNCTION_DECL, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.CONVERSION_FUNCTION,
             K.FUNCTION_TEMPLATE}
BLOCKS = {K.COMPOUND_STMT, K.IF_STMT, K.FOR_STMT, K.WHILE_STMT, K.DO_STMT, K.CASE_STMT,
          K.DEFAULT_STMT, K.CXX_FOR_RANGE_STMT}
HEADED = {K.IF_STMT, K.FOR_STMT, K.WHILE_STMT, K.SWITCH_STMT, K.CXX_FOR_RANGE_STMT}
# sizeof and its like, static_assert, enumerators: the compiler's own business.
UNTOUCHED = {K.CXX_UNARY_EXPR, K.STATIC_ASSERT, K.ENUM_DECL, K.TYPE_REF, K.TEMPLATE_REF,
             K.NAMESPACE_REF}
INTEGERS = {T.BOOL, T.CHAR_U, T.UCHAR, T.USHORT, T.UINT, T.ULONG, T.ULONGLONG, T.CHAR_S, T.SCHAR,
            T.SHORT, T.INT, T.LONG, T.LONGLONG}
LITERAL = re.compile(r"-?(0[xXbB])?[0-9a-fA-F'.]+[uUlLzZ]*|'(\\.[0-7]*|[^'\\])'|true|false")


class Mutant:
    """One trial fault. Edits is empty for one that needs a build of its own (then `replace`)."""

    def __init__(self, file, start, end, was, becomes, edits=(), replace=None):
        self.file, self.start, self.end = file, start, end
        self.was, self.becomes = " ".join(was.split()), " ".join(becomes.split())
        self.edits, self.replace = edits, replace
        self.number = 0
        self.function, self.constexpr = "", False
        self.state = "survived"

    def change(self):
        return f"`{self.was}` -> `{self.becomes}`"


class Source:
    """A file of a folder: its text, the faults found in it, and its text with faults built in."""

    def __init__(self, tree, path):
        self.tree, self.path = tree, path
        with open(os.path.join(tree, path), encoding="latin-1", newline="") as file:
            self.text = file.read()
        self.lines = [0] + [at.end() for at in re.finditer("\n", self.text)]
        self.mutants, self.seen = [], set()

    def line(self, offset):
        return bisect.bisect_right(self.lines, offset)

    def line_text(self, offset):
        return self.text[self.lines[self.line(offset) - 1]:].split("\n", 1)[0].strip()

    def before(self, offset):
        return self.text[:offset].rstrip()[-1:]

    def after(self, offset):
        return self.text[offset:offset + 200].lstrip()[:1]

    def rewritten(self, alone=None):
        edits = []
        for sequence, mutant in enumerate(self.mutants):
            if not mutant.edits or mutant.state == "dropped":
                continue
            for start, end, kind, text in mutant.edits:
                text = text.replace("#", str(mutant.number))
                order = {"close": (0, -sequence), "open": (2, sequence), "swap": (3, 0)}[kind]
                edits.append((start, order, end, text))
        if alone:
            edits.append((alone.start, (3, 0), alone.end, alone.replace))
        out, at = [], 0
        for start, _, end, text in sorted(edits):
            out += [self.text[at:start], text]
            at = max(at, end)
        out.append(self.text[at:])
        return f'#include "{HERE}/mutant.h"\n#line 1\n' + "".join(out)

    def write(self, alone=None):
        with open(os.path.join(self.tree, self.path), "w", encoding="latin-1", newline="") as file:
            file.write(self.rewritten(alone))


# Finding what to change -------------------------------------------------------------------------

class Finder:
    def __init__(self, sources):
        self.sources, self.used, self.constants = sources, set(), []
        self.tree = next(iter(sources.values())).tree

    def read(self, index, command):
        skip = {"-c", command["file"]}
        words, arguments = command["command"].split(), []
        for i, word in enumerate(words[1:], 1):
            if word in skip or word == "-o" or words[i - 1] == "-o" or word.endswith("/c++"):
                continue
            arguments.append(word.replace('\\"', '"'))
        unit = index.parse(command["file"], arguments + ["-Wno-everything"])
        errors = [str(d) for d in unit.diagnostics if d.severity >= 3]
        if errors:
            sys.exit("cannot be read: " + errors[0])
        for cursor in unit.cursor.get_children():
            if self.source_of(cursor):
                self.declaration(cursor)

    def source_of(self, cursor):
        file = cursor.location.file
        if not file:
            return None
        return self.sources.get(os.path.relpath(os.path.realpath(file.name), self.tree))

    def declaration(self, cursor):
        if cursor.kind in FUNCTIONS:
            if cursor.is_definition():
                self.function(cursor)
        elif cursor.kind == K.VAR_DECL:
            self.constant(cursor)
        elif cursor.kind == K.FIELD_DECL:
            self.variable(cursor, {"source": self.source_of(cursor), "type": None,
                                   "function": cursor.spelling, "constexpr": False})
        elif cursor.kind not in UNTOUCHED:
            for child in cursor.get_children():
                self.declaration(child)

    def function(self, cursor):
        source = self.source_of(cursor)
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        head = source.text[start:end].split("{", 1)[0]
        if (start, end) in source.seen or re.search(r"\bconsteval\b|=\s*(default|delete)", head):
            return
        source.seen.add((start, end))
        context = {"source": source, "type": cursor.result_type.get_canonical(),
                   "function": cursor.spelling,
                   "constexpr": bool(re.search(r"\bconstexpr\b", head))}
        for child in cursor.get_children():
            if child.kind != K.PARM_DECL:
                self.visit(child, cursor, context)

    # A constant's initialiser is the compiler's: its numbers are changed one build each, unless
    # it is a number whose uses are changed.
    def constant(self, cursor):
        source = self.source_of(cursor)
        key = (source.path, cursor.location.offset)
        if key in source.seen:
            return
        source.seen.add(key)
        is_number = (cursor.type.get_canonical().kind in INTEGERS
                     and cursor.type.is_const_qualified())

        def collect(at):
            start, end = at.extent.start.offset, at.extent.end.offset
            text = source.text[start:end]
            if at.kind in (K.INTEGER_LITERAL, K.CHARACTER_LITERAL, K.CXX_BOOL_LITERAL_EXPR):
                if LITERAL.fullmatch(text) and (start, end) not in source.seen:
                    source.seen.add((start, end))
                    becomes = {"true": "false", "false": "true"}.get(text, f"({text} + 1)")
                    mutant = Mutant(source.path, start, end, text, becomes.strip("()"),
                                    replace=becomes)
                    mutant.function = cursor.spelling
                    self.constants.append((key if is_number else None, mutant))
            if at.kind not in UNTOUCHED:
                for child in at.get_children():
                    collect(child)
        for child in cursor.get_children():
            collect(child)

    def variable(self, cursor, context):
        source = context["source"]
        text = source.text[cursor.extent.start.offset:cursor.location.offset]
        if re.search(r"\bconstexpr\b", text):
            self.constant(cursor)
            return
        for child in cursor.get_children():
            if source.before(child.extent.start.offset) != "[":  # an array's bound
                self.visit(child, cursor, context)

    def visit(self, cursor, parent, context):
        source = context["source"]
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        if cursor.kind in UNTOUCHED or end <= start:
            return
        if cursor.kind == K.LAMBDA_EXPR:
            context = {**context, "type": None}
        children = [c for c in cursor.get_children()]
        if cursor.kind == K.VAR_DECL:
            self.variable(cursor, context)
            return
        if cursor.kind in BLOCKS:
            self.statements(cursor, children, context)
        if cursor.kind == K.RETURN_STMT and children:
            if self.result(children[0], context):
                return
        if cursor.kind == K.CONDITIONAL_OPERATOR and len(children) == 3:
            self.condition(children[0], context)
        if cursor.kind in (K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR):
            self.binary(cursor, children, context)
        elif cursor.kind in (K.INTEGER_LITERAL, K.CHARACTER_LITERAL, K.CXX_BOOL_LITERAL_EXPR):
            self.literal(start, end, context)
        elif cursor.kind == K.UNARY_OPERATOR and LITERAL.fullmatch(source.text[start:end]):
            self.literal(start, end, context)
            return
        elif cursor.kind == K.DECL_REF_EXPR:
            self.use(cursor, context)
            return
        if cursor.kind == K.CASE_STMT:
            children = children[1:]
        for child in children:
            self.visit(child, cursor, context)

    def add(self, context, start, end, becomes, edits):
        source = context["source"]
        key = (start, end, edits[0][3])
        if key in source.seen:
            return
        source.seen.add(key)
        mutant = Mutant(source.path, start, end, source.text[start:end], becomes, edits)
        mutant.function, mutant.constexpr = context["function"], context["constexpr"]
        source.mutants.append(mutant)

    def wrap(self, context, start, end, becomes, name, cast=""):
        self.add(context, start, end, becomes,
                 [(start, start, "open", f"mutant::{name}(#, {cast}("),
                  (end, end, "close", "))")])

    # What one sees as one operator: (operator, its place) between the operands.
    def operator(self, source, children):
        if len(children) != 2:
            return None
        left, right = children[0].extent.end.offset, children[1].extent.start.offset
        between = re.sub(r"//[^\n]*|/\*.*?\*/", lambda m: " " * len(m.group()),
                         source.text[left:right])
        found = re.fullmatch(r"\s*([-+*/%<>=!&|^]+)\s*", between)
        return (found.group(1), left + found.start(1)) if found else None

    def is_comparison(self, source, cursor):
        while cursor.kind in (K.UNEXPOSED_EXPR, K.PAREN_EXPR):
            inner = list(cursor.get_children())
            if len(inner) != 1:
                return False
            cursor = inner[0]
        if cursor.kind != K.BINARY_OPERATOR:
            return False
        operator = self.operator(source, list(cursor.get_children()))
        return operator is not None and operator[0] in ("==", "!=")

    def binary(self, cursor, children, context):
        source = context["source"]
        operator = self.operator(source, children)
        if not operator:
            return
        name, at = operator
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        if source.text[start:end].count("(") != source.text[start:end].count(")"):
            return  # half of a macro
        def text(becomes):
            return source.text[start:at] + becomes + source.text[at + len(name):end]
        if name in ("&&", "||"):
            swapped = "||" if name == "&&" else "&&"
            edits = [(start, start, "open", "mutant::flip(#, mutant::flip(#, static_cast<bool>("),
                     (at, at + len(name), "swap",
                      f")) {name} mutant::flip(#, static_cast<bool>("),
                     (end, end, "close", ")))")]
            self.add(context, start, end, text(swapped), edits)
        elif name in OPERATORS or name in ASSIGNMENTS:
            helper, becomes = {**OPERATORS, **ASSIGNMENTS}[name]
            pointers = [c.type.get_canonical().kind in (T.POINTER, T.CONSTANTARRAY)
                        for c in children]
            if name in "+-" and (pointers[1] or (name == "-" and all(pointers))):
                return
            self.add(context, start, end, text(becomes),
                     [(start, start, "open", f"mutant::{helper}(#, ("),
                      (at, at + len(name), "swap", "), ("), (end, end, "close", "))")])

    def literal(self, start, end, context):
        source = context["source"]
        text = source.text[start:end]
        if not LITERAL.fullmatch(text) or "." in text:
            return
        if source.before(start) == "<" and source.after(end) == ">":
            return  # a template's argument
        becomes = {"true": "false", "false": "true"}.get(text, text + " + 1")
        self.wrap(context, start, end, becomes, "next")

    def use(self, cursor, context):
        source, target = context["source"], cursor.referenced
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        if target is None or not re.fullmatch(r"[\w:]+", source.text[start:end]):
            return
        if target.kind == K.VAR_DECL:
            if (not target.type.is_const_qualified()
                    or target.type.get_canonical().kind not in INTEGERS
                    or target.semantic_parent.kind in FUNCTIONS
                    and "constexpr" not in [t.spelling for t in target.get_tokens()]):
                return
            where = self.source_of(target)
            if where:
                self.used.add((where.path, target.location.offset))
        elif target.kind != K.ENUM_CONSTANT_DECL:
            return
        self.wrap(context, start, end, source.text[start:end] + " + 1", "next")

    def condition(self, cursor, context):
        source = context["source"]
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        text = source.text[start:end]
        if self.is_comparison(source, cursor) or LITERAL.fullmatch(text) or end <= start:
            return
        self.wrap(context, start, end, f"!({text})", "flip", "static_cast<bool>")

    def head(self, source, cursor):
        begin = source.text.index("(", cursor.extent.start.offset)
        depth, at = 0, begin
        for found in re.finditer(r"'(\\.|[^'\\])'|\"(\\.|[^\"\\])*\"|[()]", source.text[begin:]):
            depth += {"(": 1, ")": -1}.get(found.group(), 0)
            if depth == 0:
                at = begin + found.start()
                break
        return begin, at

    def statements(self, cursor, children, context):
        source = context["source"]
        begin = end = cursor.extent.start.offset
        if cursor.kind in HEADED:
            begin, end = self.head(source, cursor)
        constant_if = "constexpr" in source.text[cursor.extent.start.offset:begin]
        for child in children:
            at, to = child.extent.start.offset, child.extent.end.offset
            if not child.kind.is_expression():
                continue
            if begin < at < end:
                following = source.text[to:end + 1].lstrip()[:1]
                last = following == ")" and cursor.kind in (K.IF_STMT, K.WHILE_STMT)
                middle = (following == ";" and cursor.kind == K.FOR_STMT
                          and source.before(at) == ";")
                if (last or middle) and not constant_if:
                    self.condition(child, context)
            elif cursor.kind == K.DO_STMT and source.before(at) == "(":
                self.condition(child, context)
            elif source.after(to) == ";" and (cursor.kind != K.CASE_STMT or child != children[0]):
                self.statement(child, context)

    def statement(self, cursor, context):
        source = context["source"]
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        text = source.text[start:end]
        if cursor.kind in (K.CXX_STATIC_CAST_EXPR, K.CSTYLE_CAST_EXPR):
            return  # to void: nothing is done
        self.add(context, start, end, "",
                 [(start, start, "open", "(mutant::keep(#) ? static_cast<void>("),
                  (end, end, "close", ") : static_cast<void>(0))")])

    # @return whether the value is dealt with and nothing inside needs a change
    def result(self, cursor, context):
        source = context["source"]
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        text = source.text[start:end]
        kind = (context["type"] or cursor.type.get_canonical()).kind
        literal = bool(LITERAL.fullmatch(text))
        if literal and kind in INTEGERS and kind != T.BOOL:
            becomes = "1" if text in ("0", "'\\0'") else "0"
            self.wrap(context, start, end, becomes, "other")
        elif kind == T.BOOL:
            if not self.is_comparison(source, cursor):
                self.wrap(context, start, end, f"!({text})", "flip", "static_cast<bool>")
        elif kind in INTEGERS or kind == T.ENUM:
            self.wrap(context, start, end, f"({text}) == 0 ? 1 : 0", "other")
        elif kind == T.POINTER:
            if text != "nullptr" and "nullptr" not in cursor.type.spelling:
                self.wrap(context, start, end, "nullptr", "other")
            return text == "nullptr"
        # A plain constant has been changed.
        return literal or bool(re.fullmatch(r"(\w+::)*k[A-Z]\w*", text)) and kind in INTEGERS
