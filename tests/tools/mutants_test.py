"""Tests tools/mutants.py: which places of a source it changes, and how."""

import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))
from mutants import mutants_of  # noqa: E402

COMPONENT = ROOT / "components" / "halvex_encryption"
UNITS = {"component", "utilities", "functions", "algorithm_implementation", "rsa_implementation"}


def changes(text, kind=None):
    """Every mutated form of a text, as (before, after)."""
    return [(m.before, m.after) for m in mutants_of("unit.cc", text) if kind in (None, m.kind)]


class Mutants(unittest.TestCase):
    def test_component_yields_many_in_every_unit(self):
        found = [m for path in COMPONENT.glob("*.cc") for m in mutants_of(path.name, path.read_text())]
        self.assertEqual({m.unit for m in found}, UNITS)
        for unit in UNITS:
            self.assertGreaterEqual(sum(m.unit == unit for m in found), 30, unit)

    def test_identities_differ(self):
        for path in COMPONENT.glob("*.cc"):
            identities = [m.identity for m in mutants_of(path.name, path.read_text())]
            self.assertEqual(len(identities), len(set(identities)))

    def test_identity_survives_a_moved_line(self):
        text = "int f() {\n  return a == b;\n}\n"
        moved = "// more\n" + text
        self.assertEqual(
            [m.identity for m in mutants_of("unit.cc", text)],
            [m.identity for m in mutants_of("unit.cc", moved)],
        )

    def test_comments_directives_and_templates_stay(self):
        self.assertEqual(changes("// a == 1\n/* b < 2 */\n#define c 3\n"), [])
        self.assertEqual(changes("std::vector<int> *values;\n"), [])

    def test_operators_change(self):
        self.assertIn(("==", "!="), changes("bool f() { return a == b; }"))
        self.assertIn(("<", "<="), changes("bool f() { return a < b; }"))
        self.assertIn(("!", ""), changes("bool f() { return !a; }"))

    def test_numbers_and_texts_change(self):
        self.assertIn(("13917", "13918"), changes("int code = 13917;"))
        self.assertIn(("0x10", "17"), changes("int mask = 0x10;"))
        self.assertIn(('"add"', '"addx"'), changes('const char *name = "add";'))

    def test_calls_and_assignments_are_dropped(self):
        text = "void f() {\n  int a = g();\n  clear();\n  *length = 0;\n  a.b(c);\n  return;\n}\n"
        dropped = [before for before, _ in changes(text, "dropped step")]
        self.assertEqual(dropped, ["clear();", "*length = 0;", "a.b(c);", "return;"])

    def test_declarations_are_kept(self):
        self.assertEqual(changes("class A {\n  A(int a);\n  void f();\n};\n", "dropped step"), [])

    def test_arguments_change_places(self):
        self.assertIn(("a, b", "b, a"), changes("void f() { g(a, b); }", "argument order"))
        self.assertEqual(changes("void g(char *a, char *b) {}", "argument order"), [])

    def test_rows_are_dropped_and_exchanged(self):
        text = "constexpr Row rows[]{\n    {a, b},\n    {c, d},\n};\n"
        self.assertEqual(len(changes(text, "dropped row")), 2)
        self.assertEqual(len(changes(text, "row order")), 1)

    def test_conditions_are_forced(self):
        self.assertEqual(
            [after for _, after in changes("void f() { if (a) { g(); } }", "condition")],
            ["true || (a)", "false && (a)"],
        )


if __name__ == "__main__":
    unittest.main()
