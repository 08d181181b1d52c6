"""Makes single-place mutants of C++ sources laid out by clang-format.

A mutant replaces one span of one file. Which spans are worth changing is decided on tokens, so that
comments and preprocessor lines stay as they are; binary operators are distinguished from template brackets
and pointer declarators by the blanks that clang-format puts around them.
"""

import dataclasses
import hashlib
import re

TOKEN = re.compile(
    r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<preprocessor>^[ \t]*\#(?:[^\n\\]|\\\n|\\.)*)
  | (?P<string>(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*")
  | (?P<char>'(?:[^'\\\n]|\\.)+')
  | (?P<number>\b(?:0[xX][0-9a-fA-F']+|[0-9][0-9'.]*)[uUlLzZ]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<operator>->|::|\.\.\.|<<=|>>=|<=>|==|!=|<=|>=|&&|\|\||\+\+|--|[-+*/%&|^]=|[-+*/%&|^~!<>=?:;,.()\[\]{}])
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

# Each operator with replacements that are easily overlooked.
BINARY_OPERATORS = {
    "==": ["!="],
    "!=": ["=="],
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
    "&&": ["||"],
    "||": ["&&"],
    "+": ["-"],
    "-": ["+"],
    "|": ["&"],
    "&": ["|"],
}

# Names that stand for a neighbour of the same type.
WORDS = {
    "true": ["false"],
    "false": ["true"],
    "EVP_sha224": ["EVP_sha256"],
    "EVP_sha256": ["EVP_sha224"],
    "EVP_sha384": ["EVP_sha512"],
    "EVP_sha512": ["EVP_sha384"],
    "EVP_sha3_224": ["EVP_sha3_256"],
    "EVP_sha3_384": ["EVP_sha3_512"],
    "EVP_sha3_512": ["EVP_sha3_384"],
    "RSA_PKCS1_OAEP_PADDING": ["RSA_PKCS1_PADDING"],
    "RSA_PKCS1_PADDING": ["RSA_PKCS1_OAEP_PADDING"],
    "RSA_PKCS1_PSS_PADDING": ["RSA_PKCS1_PADDING"],
    "PEM_read_bio_PUBKEY": ["PEM_read_bio_PrivateKey"],
    "PEM_read_bio_PrivateKey": ["PEM_read_bio_PUBKEY"],
    "EVP_PKEY_encrypt_init": ["EVP_PKEY_decrypt_init"],
    "EVP_PKEY_decrypt_init": ["EVP_PKEY_encrypt_init"],
    "EVP_PKEY_encrypt": ["EVP_PKEY_decrypt"],
    "EVP_PKEY_decrypt": ["EVP_PKEY_encrypt"],
    "STRING_RESULT": ["INT_RESULT"],
    "INT_RESULT": ["STRING_RESULT"],
    "ERR_get_error": ["ERR_peek_error", "ERR_peek_last_error"],
    "warning": ["DOVRIN_PRIORITY_ERROR"],
    "DOVRIN_PRIORITY_ERROR": ["DOVRIN_PRIORITY_WARNING"],
    "DOVRIN_PRIORITY_WARNING": ["DOVRIN_PRIORITY_ERROR"],
    "int32_t": ["int64_t"],
    "uint32_t": ["uint64_t"],
}

KEYWORDS_THAT_OPEN_NO_STATEMENT = {
    "if", "else", "for", "while", "do", "switch", "case", "default", "using", "static", "const",
    "constexpr", "struct", "class", "namespace", "template", "auto", "public", "private", "protected",
    "friend", "enum", "extern", "typedef", "void", "bool", "int", "unsigned", "long", "char", "try",
    "catch", "static_assert", "explicit", "virtual", "return", "delete",
}  # fmt: skip

STATEMENTS_OF_ONE_WORD = {"break", "continue", "throw", "return"}

# The ends of names that are numbers; an exchange of one with anything else would not compile.
NUMBER_LIKE = re.compile(r"(length|size|capacity|needed|bits|code|line|priority|warning|error|padding|PADDING|RESULT)(_|$)")

# What may stand before the brace that opens a function's body or a block in it.
BEFORE_A_BLOCK = {")", "noexcept", "override", "const", "else", "try", "do", "}", "{", ";"}


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclasses.dataclass(frozen=True)
class Mutant:
    path: str  # relative to the tree
    line: int
    kind: str
    start: int
    end: int
    before: str
    after: str
    identity: str  # stays the same while the line and its place among equal lines do

    @property
    def unit(self):
        stem = self.path.rsplit("/", 1)[-1].rsplit(".", 1)[0]
        return {"function_metadata": "functions", "load_order": "component"}.get(stem, stem)

    def describe(self):
        squeeze = lambda text: " ".join(text.split()) or "(nothing)"
        return f"{self.path}:{self.line}: {self.kind}: {squeeze(self.before)} -> {squeeze(self.after)}"


def tokenize(text):
    tokens = []
    for match in TOKEN.finditer(text):
        kind = match.lastgroup
        if kind not in ("comment", "preprocessor"):
            tokens.append(Token(kind, match.group(), match.start(), match.end()))
    return tokens


def matching_brackets(tokens):
    """Index of the closing bracket of every opening one."""
    closing = {"(": ")", "[": "]", "{": "}"}
    partner, open_ones = {}, []
    for index, token in enumerate(tokens):
        if token.kind != "operator":
            continue
        if token.text in closing:
            open_ones.append(index)
        elif token.text in closing.values() and open_ones:
            partner[open_ones.pop()] = index
    return partner


def split_at_commas(tokens, partner, first, last):
    """Spans (first token, last token) of the elements between two brackets."""
    elements, start, index = [], first, first
    while index < last:
        if index in partner:
            index = partner[index]
        elif tokens[index].text == ",":
            elements.append((start, index - 1))
            start = index + 1
        index += 1
    if start < last:
        elements.append((start, last - 1))
    return elements


class Generator:
    def __init__(self, path, text):
        self.path = path
        self.text = text
        self.tokens = tokenize(text)
        self.partner = matching_brackets(self.tokens)
        self.mutants = []
        self.seen = {}

    def add(self, kind, start, end, after):
        before = self.text[start:end]
        if before == after:
            return
        line_start = self.text.rfind("\n", 0, start) + 1
        line_end = self.text.find("\n", start)
        line = self.text[line_start:line_end]
        key = (self.path, line.strip(), kind, start - line_start, before, after)
        nth = self.seen[key] = self.seen.get(key, 0) + 1
        digest = hashlib.sha256(repr((key, nth)).encode()).hexdigest()[:12]
        number = self.text.count("\n", 0, start) + 1
        self.mutants.append(Mutant(self.path, number, kind, start, end, before, after, digest))

    def span(self, first, last):
        return self.tokens[first].start, self.tokens[last].end

    def on_line_with(self, token, word):
        start = self.text.rfind("\n", 0, token.start) + 1
        return word in self.text[start : token.start]

    def generate(self):
        for index, token in enumerate(self.tokens):
            getattr(self, "from_" + token.kind, lambda *_: None)(index, token)
        self.conditions()
        self.statements()
        self.calls()
        self.tables()
        return self.mutants

    def from_operator(self, index, token):
        blank_before = self.text[token.start - 1 : token.start].isspace()
        blank_after = self.text[token.end : token.end + 1].isspace()
        if blank_before and blank_after:
            for other in BINARY_OPERATORS.get(token.text, []):
                self.add("operator", token.start, token.end, other)
        if token.text == "!":
            self.add("operator", token.start, token.end, "")

    def from_word(self, index, token):
        following = self.tokens[index + 1].text if index + 1 < len(self.tokens) else ""
        if token.text == "warning" and following == "=":
            return
        if token.text in ("int32_t", "uint32_t") and following != ">":
            return
        for other in WORDS.get(token.text, []):
            self.add("name", token.start, token.end, other)

    def from_number(self, index, token):
        if self.on_line_with(token, "static_assert"):
            return
        digits = token.text.rstrip("uUlLzZ").replace("'", "")
        suffix = token.text[len(token.text.rstrip("uUlLzZ")) :]
        if "." in digits:
            return
        value = int(digits, 0) if digits.lower().startswith("0x") or digits == "0" else int(digits.lstrip("0") or "0")
        self.add("number", token.start, token.end, f"{value + 1}{suffix}")
        if value == 1:
            self.add("number", token.start, token.end, f"0{suffix}")

    def from_string(self, index, token):
        if self.on_line_with(token, "static_assert"):
            return
        self.add("text", token.start, token.end, token.text[:-1] + 'x"')

    def conditions(self):
        for index, token in enumerate(self.tokens[:-1]):
            if token.text in ("if", "while") and index + 1 in self.partner:
                start, end = self.span(index + 2, self.partner[index + 1] - 1)
                inside = self.text[start:end]
                if token.text == "if":
                    self.add("condition", start, end, f"true || ({inside})")
                self.add("condition", start, end, f"false && ({inside})")
            if token.text == "?" and index + 1 < len(self.tokens):
                self.add("condition", token.start, token.end, "&& false ?")

    def statements(self):
        """Drops calls, assignments and jumps, one at a time."""
        for opening, closing in sorted(self.partner.items()):
            if self.tokens[opening].text != "{" or not self.opens_a_block(opening):
                continue
            index = opening + 1
            while index < closing:
                end = self.end_of_statement(index, closing)
                if self.can_be_dropped(index, end):
                    start, stop = self.span(index, end)
                    self.add("dropped step", start, stop, ";")
                index = end + 1

    def opens_a_block(self, opening):
        before = self.tokens[opening - 1]
        if before.text in BEFORE_A_BLOCK:
            return True
        return before.kind == "word" and self.tokens[opening - 2].text in ("->", "::")

    def end_of_statement(self, index, closing):
        while index < closing:
            if index in self.partner:
                was_block = self.tokens[index].text == "{" and self.opens_a_block(index)
                index = self.partner[index]
                if was_block:
                    return index
            elif self.tokens[index].text == ";":
                return index
            index += 1
        return closing

    def can_be_dropped(self, first, last):
        tokens = self.tokens[first : last + 1]
        if len(tokens) < 2 or tokens[-1].text != ";":
            return False
        if tokens[0].text in STATEMENTS_OF_ONE_WORD:
            return len(tokens) == 2
        if tokens[0].text in KEYWORDS_THAT_OPEN_NO_STATEMENT:
            return False
        if tokens[0].kind != "word" and tokens[0].text not in ("*", "++", "--", "("):
            return False
        index = 1 if tokens[0].text in ("*", "++", "--") else 0
        while index < len(tokens) and (
            tokens[index].kind == "word" or tokens[index].text in ("::", ".", "->", "]", "[")
        ):
            if index and tokens[index].kind == "word" and tokens[index - 1].kind == "word":
                return False  # a declaration
            index += 1
        if index < len(tokens) and tokens[index].text in ("<", "*", "&", "{"):
            return False
        return True

    def calls(self):
        """Exchanges neighbouring arguments."""
        for opening, closing in sorted(self.partner.items()):
            if self.tokens[opening].text != "(" or opening == 0:
                continue
            before = self.tokens[opening - 1]
            if before.kind != "word" or before.text in ("if", "while", "for", "switch", "catch", "static_assert", "operator", "decltype", "sizeof"):  # fmt: skip
                continue
            if closing + 1 < len(self.tokens) and self.tokens[closing + 1].text in ("{", "const", "noexcept", "override", ":"):  # fmt: skip
                continue
            elements = split_at_commas(self.tokens, self.partner, opening + 1, closing)
            if any(self.looks_like_a_parameter(*element) for element in elements):
                continue
            self.exchange_neighbours("argument order", elements)

    def looks_like_a_parameter(self, first, last):
        words = [token.kind == "word" for token in self.tokens[first : last + 1]]
        texts = [token.text for token in self.tokens[first : last + 1]]
        if texts and texts[0] in ("const", "unsigned", "void", "bool", "int"):
            return True
        if any(left and right for left, right in zip(words, words[1:])):
            return True
        return len(texts) > 2 and words[-1] and texts[-2] in ("*", "&", "&&") and words[-3]

    def is_a_number(self, first, last):
        """Whether an element looks like a number, by its last word."""
        word = self.tokens[last]
        return word.kind == "number" or (word.kind == "word" and bool(NUMBER_LIKE.search(word.text)))

    def exchange_neighbours(self, kind, elements):
        for left, right in zip(elements, elements[1:]):
            if "nullptr" in (self.tokens[left[0]].text, self.tokens[right[0]].text):
                continue
            if self.is_a_number(*left) != self.is_a_number(*right):
                continue  # the compiler would reject it
            left_start, left_end = self.span(*left)
            right_start, right_end = self.span(*right)
            self.add(
                kind,
                left_start,
                right_end,
                self.text[right_start:right_end]
                + self.text[left_end:right_start]
                + self.text[left_start:left_end],
            )

    def tables(self):
        """Drops and exchanges the rows of braced lists."""
        for opening, closing in sorted(self.partner.items()):
            if self.tokens[opening].text != "{":
                continue
            elements = split_at_commas(self.tokens, self.partner, opening + 1, closing)
            if any(self.tokens[i].text == ";" for i in range(opening, closing)):
                continue
            rows = [e for e in elements if self.tokens[e[0]].text == "{"]
            if len(rows) != len(elements) or len(rows) < 2:
                if len(elements) > 1 and not self.opens_a_block(opening):
                    self.exchange_neighbours("argument order", elements)
                continue
            for position, row in enumerate(rows):
                start, end = self.span(*row)
                if position + 1 < len(rows):
                    end = self.tokens[rows[position + 1][0]].start
                self.add("dropped row", start, end, "")
            self.exchange_neighbours("row order", rows)


def mutants_of(path, text):
    return Generator(path, text).generate()
