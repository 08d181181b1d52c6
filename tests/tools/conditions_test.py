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

    def report(self, text, decisions=(), operands=(), singles=(), listed=""):
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
        list_file = self.root / "listed.toml"
        list_file.write_text(listed)
        result = subprocess.run([sys.executable, TOOL, list_file, self.root], text=True, capture_output=True, check=False,
                                input=json.dumps({"data": [{"files": [file]}]}))  # fmt: skip
        return result.returncode, result.stdout.splitlines()[1:] + result.stderr.splitlines()

    def test_everything_covered(self):
        status, lines = self.report("if (p && q) {", [("p && q", [True, True])], ["p", "q"])
        self.assertEqual((status, lines), (0, ["         2        2       0  a.cc", "         2        2       0  all"]))

    def test_uncovered_condition_is_named_with_its_decision(self):
        text = "int x;\nif (one(\n      1) ||\n    two) {"
        status, lines = self.report(
            text, [("one(\n      1) ||\n    two", [False, True])], ["one(\n      1)", "two"])  # fmt: skip
        self.assertEqual(status, 1)
        self.assertEqual(lines, ["         2        1       0  a.cc", "         2        1       0  all",
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
        self.assertEqual(self.report("int x;"), (1, ["         0        0       0  all"]))

    def report_listed(self, text="if (p &&\n    q) {", *, covered=False, **entry):
        """The report about `p && q`, whose q may be covered, with one entry in the list: q's, but for the given keys."""
        keys = {"file": "a.cc", "decision": "p\n  && q", "condition": "q", "reason": "why"} | entry
        listed = "[[condition]]\n" + "".join(f"{key} = {json.dumps(value)}\n" for key, value in keys.items())
        return self.report(text, [("p &&\n    q", [True, covered])], ["p", "q"], listed=listed)

    def test_listed_condition_need_not_be_covered(self):
        self.assertEqual(self.report_listed(), (0, ["         2        1       1  a.cc",
                                                    "         2        1       1  all"]))  # fmt: skip

    def test_listed_condition_that_is_covered_is_a_failure(self):
        status, lines = self.report_listed(covered=True)
        self.assertEqual(status, 1)
        self.assertEqual(lines[-2:], ["a.cc:2: listed, but covered: q", "  in: p && q"])

    def test_listed_condition_that_does_not_exist_is_a_failure(self):
        for entry in ({"file": "b.cc"}, {"decision": "p && r"}, {"condition": "r"}):
            status, lines = self.report_listed(**entry)
            self.assertEqual(status, 1)
            self.assertIn("a.cc:2: not covered: q", lines)
            self.assertRegex(lines[-2], r"^[ab]\.cc: listed, but there 0 times: [qr]$")

    def test_entry_stands_for_one_condition_only(self):
        listed = '[[condition]]\nfile = "a.cc"\ndecision = "p( 1) && q( 1)"\ncondition = "q( 1)"\nreason = "why"\n'
        operands = ["p( 1)", "q( 1)", "p(\n1)", "q(\n1)"]
        decisions = [(f"{p} && {q}", [True, False]) for p, q in (operands[:2], operands[2:])]
        status, lines = self.report(f"{decisions[0][0]};\n{decisions[1][0]}", decisions, operands, listed=listed)
        self.assertEqual(status, 1)
        self.assertEqual(lines[-2:], ["a.cc: listed, but there 2 times: q( 1)", "  in: p( 1) && q( 1)"])

    def test_entry_without_a_reason_is_rejected(self):
        status, lines = self.report_listed(reason="")
        self.assertEqual(status, 1)
        self.assertRegex(lines[-1], "^listed.toml: an entry needs a file, a decision, a condition and a reason: {")


unittest.main()
