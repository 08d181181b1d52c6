"""Prints how many conditions the tests covered in every source file, and the conditions that they did not.

Usage: llvm-cov export ... | conditions.py ROOT

A condition is an operand of && or ||. It is covered if evaluations of its decision show that it alone changes
the result (MC/DC). Of a template, one covered instance is enough. Reads the JSON of llvm-cov 18 or newer; file
names are printed relative to the folder ROOT. The exit status is 1 if a condition is not covered or not
measured, or if there is none at all.
"""

import dataclasses
import json
import pathlib
import re
import sys

# The kinds of regions in the JSON: a condition of its own, and one of several that make a decision.
SINGLE_CONDITION = 4
ONE_OF_SEVERAL = 6


@dataclasses.dataclass(frozen=True)
class Condition:
    line: int
    text: str
    decision: str
    covered: bool


class Source:
    """The text of a file. A span in it is (line, column, line, column), counted from 1, the end excluded."""

    def __init__(self, text):
        self.lines = text.splitlines()

    def slice(self, span):
        """The text of a span in one line."""
        first, start, last, end = span
        lines = self.lines[first - 1 : last]
        lines[-1] = lines[-1][: end - 1]
        lines[0] = lines[0][start - 1 :]
        return " ".join(" ".join(lines).split())

    def is_operand(self, span):
        """Whether && or || stands beside the span."""
        first, start, last, end = span
        before = self.slice((max(first - 3, 1), 1, first, start))
        after = self.slice((last, end, min(last + 3, len(self.lines)), sys.maxsize))
        return bool(re.search(r"(&&|\|\|)[ (!]*$", before) or re.match(r"[ )]*(&&|\|\|)", after))


def contains(outer, inner):
    return outer[:2] <= inner[:2] and inner[2:] <= outer[2:]


def conditions_of(exported, source):
    """The conditions of a file, and the spans of operands that were not measured."""
    decisions = {}
    for *span, _, _, flags in exported["mcdc_records"]:
        known = decisions.setdefault(tuple(span), flags)
        decisions[tuple(span)] = [a or b for a, b in zip(known, flags, strict=True)]
    operands = {tuple(branch[:4]) for branch in exported["branches"] if branch[-1] == ONE_OF_SEVERAL}
    singles = {tuple(branch[:4]) for branch in exported["branches"] if branch[-1] == SINGLE_CONDITION}

    conditions = []
    # The inner ones first: an operand can contain another decision, in a lambda.
    for decision in sorted(decisions, key=lambda span: (span[2] - span[0], span[3] - span[1])):
        own = sorted(operand for operand in operands if contains(decision, operand))
        operands.difference_update(own)
        for operand, covered in zip(own, decisions[decision], strict=True):
            text = source.slice(operand)
            conditions.append(Condition(operand[0], text, source.slice(decision), covered))
    unmeasured = operands | {span for span in singles if source.is_operand(span)}
    return sorted(conditions, key=lambda condition: condition.line), sorted(unmeasured)


def main(root):
    files = json.load(sys.stdin)["data"][0]["files"]
    faults = []
    total = total_covered = 0
    print("conditions  covered  file")
    for exported in sorted(files, key=lambda file: file["filename"]):
        path = pathlib.Path(exported["filename"])
        name = path.relative_to(root)
        source = Source(path.read_text(encoding="utf-8"))
        conditions, unmeasured = conditions_of(exported, source)
        covered = sum(condition.covered for condition in conditions)
        total += len(conditions)
        total_covered += covered
        if conditions:
            print(f"{len(conditions):10}  {covered:7}  {name}")
        faults += [f"{name}:{condition.line}: not covered: {condition.text}\n  in: {condition.decision}"
                   for condition in conditions if not condition.covered]  # fmt: skip
        faults += [f"{name}:{span[0]}: not measured: {source.slice(span)}" for span in unmeasured]
    print(f"{total:10}  {total_covered:7}  all")
    for fault in faults:
        print(fault)
    return 1 if faults or total == 0 else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
