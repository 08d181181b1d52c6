"""Tests tools/conditions.py with exports of llvm-cov made up for it."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

TOOL = pathlib.Path(__file__).resolve().parents[2] / "tools" / "conditions.py"
SINGLE, ONE_OF_SEVERAL = 4, 6


class Conditions(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name).resolve()

    def report(self, text, decisions=(), operands=(), singles=()):
        """The exit status and the output for a.cc, whose parts are given as their texts; each is there once."""
        source = self.root / "a.cc"
        source.write_text(text)

        def span(part):
            start = text.index(part)
            place = []
            for position in (start, start + len(part)):
                line_start = text.rfind("\n", 0, position) + 1
                place += [text.count("\n", 0, position) + 1, position - line_start + 1]
            return place

        branches = [[*span(part), 1, 1, 0, 0, ONE_OF_SEVERAL] for part in operands]
        branches += [[*span(part), 1, 1, 0, 0, SINGLE] for part in singles]
        records = [[*span(part), 0, 5, flags] for part, flags in decisions]
        file = {"filename": str(source), "branches": branches, "mcdc_records": records}
        result = subprocess.run([sys.executable, TOOL, self.root], text=True, capture_output=True, check=False,
                                input=json.dumps({"data": [{"files": [file]}]}))  # fmt: skip
        self.assertEqual(result.stderr, "")
        return result.returncode, result.stdout.splitlines()[1:]

    def test_everything_covered(self):
        status, lines = self.report("if (p && q) {", [("p && q", [True, True])], ["p", "q"])
        self.assertEqual((status, lines), (0, ["         2        2  a.cc", "         2        2  all"]))

    def test_uncovered_condition_is_named_with_its_decision(self):
        text = "int x;\nif (one(\n      1) ||\n    two) {"
        status, lines = self.report(
            text, [("one(\n      1) ||\n    two", [False, True])], ["one(\n      1)", "two"])  # fmt: skip
        self.assertEqual(status, 1)
        self.assertEqual(lines, ["         2        1  a.cc", "         2        1  all",
                                 "a.cc:2: not covered: one( 1)", "  in: one( 1) || two"])  # fmt: skip

    def test_instances_of_a_template_complete_each_other(self):
        decisions = [("p && q", [True, False]), ("p && q", [False, True])]
        self.assertEqual(self.report("if (p && q) {", decisions, ["p", "q"])[0], 0)

    def test_conditions_of_a_lambda_belong_to_the_inner_decision(self):
        inner = "x1 && x2"
        second = "any([] { return x1 && x2; })"
        outer = "y1 || any([] { return x1 && x2; })"
        decisions = [(outer, [True, True]), (inner, [True, False])]
        status, lines = self.report(f"return {outer};", decisions, ["y1", second, "x1", "x2"])
        self.assertEqual(status, 1)
        self.assertEqual(lines[-2:], ["a.cc:1: not covered: x2", "  in: x1 && x2"])

    def test_operand_that_the_compiler_did_not_measure(self):
        for text, single in [("if (f(x) &&\n    y) {", "f(x)"), ("if (x ||\n    (!yes)) {", "yes"), ("a == b || c", "c")]:
            status, lines = self.report("int n = 1;\n" + text, singles=[single])
            self.assertEqual(status, 1)
            self.assertRegex(lines[-1], r"^a\.cc:[23]: not measured: ")
            self.assertTrue(lines[-1].endswith(single), lines)

    def test_condition_of_its_own_is_none_of_several(self):
        decision = ("p && q", [True, True])
        self.assertEqual(self.report("if (only) {}\nif (p && q) {", [decision], ["p", "q"], ["only"])[0], 0)

    def test_no_condition_at_all_is_a_failure(self):
        self.assertEqual(self.report("int x;"), (1, ["         0        0  all"]))


unittest.main()
