"""Finds the small changes that can be made to a C++ file: its mutants. clang reads the file, so that nearly all of
them compile."""
import bisect
import re
from dataclasses import dataclass

import clang.cindex
from clang.cindex import CursorKind, TokenKind, TypeKind

OTHER_OPERATOR = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "+": "-", "-": "+",
    "*": "/", "/": "*", "%": "*", "<<": ">>", ">>": "<<", "&": "|", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=",
}
# A change of one of these also negates the condition or result that it is the outermost operator of.
NEGATING = {"==", "!=", "&&", "||"}
GUARDS = re.compile(r"lock_guard|unique_lock|scoped_lock|Lock\b|RAIIOpenSSLErrorRemover|ErrorMark|ErrorScope|Guard\b")
# These calls stay: the sanitizers notice leaks, and reserved memory only saves time.
MEMORY_CALLS = re.compile(r"(\w+(\.|->))?(reserve|\w+_free(_all)?)\(")
CONDITIONALS = {CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.CONDITIONAL_OPERATOR}
# Statements that can be removed. Declarations cannot, except guards.
REMOVABLE = {
    CursorKind.CALL_EXPR, CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR,
    CursorKind.UNARY_OPERATOR, CursorKind.UNEXPOSED_EXPR, CursorKind.CXX_THROW_EXPR, CursorKind.CONTINUE_STMT,
    CursorKind.BREAK_STMT, CursorKind.CXX_DELETE_EXPR,
}
INTEGERS = {
    TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.USHORT, TypeKind.UINT, TypeKind.ULONG, TypeKind.ULONGLONG,
    TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.SHORT, TypeKind.INT, TypeKind.LONG, TypeKind.LONGLONG,
}
LITERALS = {
    CursorKind.INTEGER_LITERAL, CursorKind.CXX_BOOL_LITERAL_EXPR, CursorKind.STRING_LITERAL,
    CursorKind.CXX_NULL_PTR_LITERAL_EXPR, CursorKind.INIT_LIST_EXPR,
}


@dataclass(frozen=True)
class Mutant:
    """The bytes of a file from `start` to `end` become `text`."""
    file: str
    kind: str
    start: int
    end: int
    text: str

    def applied_to(self, source):
        return source[:self.start] + self.text.encode() + source[self.end:]

    def line(self, source):
        return source.count(b"\n", 0, self.start) + 1

    def line_above(self, source):
        end = max(0, source.rfind(b"\n", 0, self.start))
        return " ".join(source[source.rfind(b"\n", 0, end) + 1:end].decode().split())

    def change(self, source):
        """The lines that change, before and after, each as one text with single blanks."""
        first = source.rfind(b"\n", 0, self.start) + 1
        last = source.find(b"\n", self.end)
        before = source[first:last]
        after = source[first:self.start] + self.text.encode() + source[self.end:last]
        return tuple(" ".join(text.decode().split()) for text in (before, after))


class Generator:
    def __init__(self, file, arguments, name=None):
        self.file = file
        self.name = name or file
        with open(file, "rb") as content:
            self.source = content.read()
        self.mutants = {}
        unit = clang.cindex.Index.create().parse(file, args=arguments)
        errors = [str(found) for found in unit.diagnostics if found.severity >= clang.cindex.Diagnostic.Error]
        if errors:
            raise RuntimeError(f"clang cannot read {file}: {errors[0]}")
        # Comments would be found between the operands of an operator.
        self.tokens = [token for token in unit.get_tokens(extent=unit.cursor.extent)
                       if token.kind != TokenKind.COMMENT]
        self.token_starts = [token.extent.start.offset for token in self.tokens]
        for cursor in unit.cursor.get_children():
            if cursor.location.file and cursor.location.file.name == file:
                self.visit(cursor, None)

    def found(self):
        return sorted(self.mutants.values(), key=lambda mutant: (mutant.start, mutant.end, mutant.text))

    def add(self, kind, start, end, text):
        if start < end and self.source[start:end] != text.encode():
            # The same change under two names is one mutant.
            self.mutants.setdefault((start, end, text), Mutant(self.name, kind, start, end, text))

    def text(self, cursor):
        return self.source[cursor.extent.start.offset:cursor.extent.end.offset].decode()

    def tokens_between(self, start, end):
        first = bisect.bisect_left(self.token_starts, start)
        return self.tokens[first:bisect.bisect_left(self.token_starts, end)]

    def replace(self, kind, cursor, text):
        self.add(kind, cursor.extent.start.offset, cursor.extent.end.offset, text)

    def visit(self, cursor, function):
        kind = cursor.kind
        if kind == CursorKind.CALL_EXPR and self.manages_memory(cursor):
            return
        children = list(cursor.get_children())
        if kind in (CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.FUNCTION_TEMPLATE,
                    CursorKind.CONVERSION_FUNCTION):
            function = cursor.result_type
        elif kind == CursorKind.LAMBDA_EXPR:
            function = None
        if kind in (CursorKind.STATIC_ASSERT, CursorKind.TYPE_ALIAS_DECL, CursorKind.USING_DECLARATION):
            return
        if kind in CONDITIONALS and children and children[0].kind.is_expression():
            self.condition(children[0])
        elif kind == CursorKind.DO_STMT:
            self.condition(children[1])
        elif kind in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.operator(children)
        elif kind == CursorKind.CALL_EXPR and cursor.spelling.startswith("operator"):
            if cursor.spelling not in ("operator<<", "operator>>"): # of streams
                self.operator(list(cursor.get_arguments()))
        elif kind == CursorKind.UNARY_OPERATOR:
            self.unary(cursor)
        elif kind in LITERALS:
            self.literal(cursor)
        elif kind == CursorKind.COMPOUND_STMT:
            self.statements(children)
        elif kind == CursorKind.RETURN_STMT and children:
            self.returned(children[0], function)
        if kind in (CursorKind.IF_STMT, CursorKind.FOR_STMT, CursorKind.WHILE_STMT):
            for branch in children[1:] if kind == CursorKind.IF_STMT else children[-1:]:
                self.removal(branch)
        for child in children:
            self.visit(child, function)

    def condition(self, condition):
        if not self.has_operator(condition):
            self.replace("condition", condition, f"!({self.text(condition)})")

    def has_operator(self, value):
        """Whether a change of the outermost operator already negates the value."""
        while value.kind in (CursorKind.UNEXPOSED_EXPR, CursorKind.PAREN_EXPR):
            children = list(value.get_children())
            if len(children) != 1:
                return False
            value = children[0]
        if value.kind == CursorKind.UNARY_OPERATOR:
            return self.text(value).startswith("!")
        operands = list(value.get_children() if value.kind == CursorKind.BINARY_OPERATOR else value.get_arguments())
        return len(operands) == 2 and any(token.spelling in NEGATING for token in self.tokens_between(
            operands[0].extent.end.offset, operands[1].extent.start.offset))

    def operator(self, operands):
        if len(operands) != 2:
            return
        left, right = operands
        between = self.tokens_between(left.extent.end.offset, right.extent.start.offset)
        signs = [token for token in between if token.kind == TokenKind.PUNCTUATION and token.spelling not in "()"]
        if len(signs) != 1:
            return # a macro, or an operator that is written as a call
        sign = signs[0].spelling
        start = signs[0].extent.start.offset
        if sign == "|" and len(between) == 1:
            self.add("flag", left.extent.start.offset, right.extent.end.offset, self.text(left))
            if "|" not in self.text(left): # otherwise one flag after the other is dropped from there
                self.add("flag", left.extent.start.offset, right.extent.end.offset, self.text(right))
        if sign in OTHER_OPERATOR:
            self.add("operator", start, start + len(sign), OTHER_OPERATOR[sign])

    def unary(self, cursor):
        text = self.text(cursor)
        if text.startswith("!"):
            self.replace("condition", cursor, text[1:])
        elif text.startswith(("++", "--")):
            self.add("operator", cursor.extent.start.offset, cursor.extent.start.offset + 2,
                     "--" if text[0] == "+" else "++")

    def literal(self, cursor):
        text = self.text(cursor)
        if cursor.kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            self.replace("constant", cursor, {"true": "false", "false": "true"}.get(text, text))
        elif cursor.kind == CursorKind.INTEGER_LITERAL:
            number = re.fullmatch(r"(0[xX][0-9a-fA-F']+|[0-9']+)([uUlLzZ]*)", text)
            if number:
                value = int(number[1].replace("'", ""), 0 if number[1][:2].lower() == "0x" else 10)
                self.replace("constant", cursor, f"{value + 1}{number[2]}")
        elif cursor.kind == CursorKind.STRING_LITERAL:
            for token in self.tokens_between(cursor.extent.start.offset, cursor.extent.end.offset):
                self.character(token)

    def character(self, token):
        """Changes the letter that is nearest to the middle of a string."""
        content = self.source[token.extent.start.offset:token.extent.end.offset]
        places = [place for place in range(1, len(content) - 1)
                  if chr(content[place]).isalnum() and content[place - 1:place] != b"\\"]
        if token.kind == TokenKind.LITERAL and content[:1] == b'"' and places:
            place = min(places, key=lambda place: abs(2 * place - len(content)))
            start = token.extent.start.offset + place
            self.add("text", start, start + 1, "x" if content[place:place + 1] != b"x" else "y")

    def returned(self, value, result):
        if value.kind in LITERALS or not result:
            return
        canonical = result.get_canonical()
        text = self.text(value)
        if text == "std::nullopt": # {} is the same
            return
        if canonical.kind == TypeKind.BOOL:
            if not self.has_operator(value):
                self.replace("result", value, f"!({text})")
        elif canonical.kind in INTEGERS:
            self.replace("result", value, f"({text}) + 1")
        elif canonical.kind == TypeKind.POINTER:
            self.replace("result", value, "nullptr")
        elif canonical.kind == TypeKind.RECORD:
            self.replace("result", value, "{}")

    def manages_memory(self, statement):
        return MEMORY_CALLS.match(self.text(statement))

    def end_of_statement(self, statement):
        """Returns the offset behind the semicolon; None without one."""
        following = self.tokens_between(statement.extent.end.offset, len(self.source))[:1]
        return following[0].extent.end.offset if following and following[0].spelling == ";" else None

    def removal(self, statement):
        end = self.end_of_statement(statement)
        if statement.kind in REMOVABLE and end and not self.manages_memory(statement):
            self.add("statement", statement.extent.start.offset, end, ";")

    def statements(self, statements):
        previous = None
        for statement in statements:
            self.removal(statement)
            if statement.kind == CursorKind.DECL_STMT:
                variables = [child for child in statement.get_children() if child.kind == CursorKind.VAR_DECL]
                if variables and GUARDS.search(variables[0].type.spelling):
                    self.replace("guard", statement, ";")
            is_call = statement.kind in (CursorKind.CALL_EXPR, CursorKind.UNEXPOSED_EXPR)
            declares_result = statement.kind == CursorKind.DECL_STMT and "(" in self.text(statement)
            if previous is not None and (is_call or declares_result):
                self.swap(previous, statement)
            previous = statement if is_call else None

    def swap(self, first, second):
        end_of_first = self.end_of_statement(first)
        end = second.extent.end.offset if second.kind == CursorKind.DECL_STMT else self.end_of_statement(second)
        if end_of_first and end and not self.manages_memory(first) and not self.manages_memory(second):
            start = first.extent.start.offset
            one = self.source[start:end_of_first].decode()
            other = self.source[second.extent.start.offset:end].decode()
            self.add("order", start, end, f"{other} {one}")


def mutants_of(file, arguments, name=None):
    return Generator(file, arguments, name).found()
