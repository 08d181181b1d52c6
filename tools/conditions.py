"""Prints how many conditions the tests covered in every source file, and the conditions that they did not.

Usage: llvm-cov export ... | conditions.py LIST ROOT

A condition is an operand of && or ||. It is covered if evaluations of its decision show that it alone changes
the result (MC/DC). Of a template, one covered instance is enough. Reads the JSON of llvm-cov 18 or newer; file
names are printed relative to the folder ROOT.

LIST is a TOML file of the conditions that need not be covered: tables [[condition]] with the keys
  file       name of the source file, relative to ROOT
  decision   the whole expression, in any layout
  condition  its operand that is not covered, as it is written there
  reason     why

The exit status is 1 if a condition is not measured, or neither covered nor listed; if a listed condition is
covered, or does not stand in its file exactly once; or if there is no condition at all.
"""

import dataclasses
import json
import pathlib
import re
import sys
import tomllib

# The kinds of regions in the JSON: a condition of its own, and one of several that make a decision.
SINGLE_CONDITION = 4
ONE_OF_SEVERAL = 6


@dataclasses.dataclass(frozen=True)
class Condition:
    line: int
    text: str
    decision: str
    covered: bool


class Listed_conditions:
    """The conditions that need not be covered."""

    def __init__(self, path):
        # By file, decision and operand: the conditions of that text.
        self.found = {}
        for entry in tomllib.loads(path.read_text(encoding="utf-8")).get("condition", []):
            if entry.keys() != {"file", "decision", "condition", "reason"} or not all(entry.values()):
                sys.exit(f"{path.name}: an entry needs a file, a decision, a condition and a reason: {entry}")
            self.found[entry["file"], in_one_line(entry["decision"]), in_one_line(entry["condition"])] = []

    def take(self, file, condition):
        """Whether the condition is listed; remembers it for faults()."""
        found = self.found.get((file, condition.decision, condition.text))
        if found is None:
            return False
        found.append(condition)
        return True

    def faults(self):
        """What is wrong with the list, once take() has got all conditions."""
        for (file, decision, operand), found in self.found.items():
            if len(found) != 1:
                yield f"{file}: listed, but there {len(found)} times: {operand}\n  in: {decision}"
            elif found[0].covered:
                yield f"{file}:{found[0].line}: listed, but covered: {operand}\n  in: {decision}"


def in_one_line(text):
    return " ".join(text.split())


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
        return in_one_line(" ".join(lines))

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


def main(list_name, root):
    listed = Listed_conditions(pathlib.Path(list_name))
    files = json.load(sys.stdin)["data"][0]["files"]
    faults = []
    total = total_covered = total_listed = 0
    print("conditions  covered  listed  file")
    for exported in sorted(files, key=lambda file: file["filename"]):
        path = pathlib.Path(exported["filename"])
        name = str(path.relative_to(root))
        source = Source(path.read_text(encoding="utf-8"))
        conditions, unmeasured = conditions_of(exported, source)
        covered = sum(condition.covered for condition in conditions)
        unlisted = [condition for condition in conditions if not listed.take(name, condition)]
        total += len(conditions)
        total_covered += covered
        total_listed += len(conditions) - len(unlisted)
        if conditions:
            print(f"{len(conditions):10}  {covered:7}  {len(conditions) - len(unlisted):6}  {name}")
        faults += [f"{name}:{condition.line}: not covered: {condition.text}\n  in: {condition.decision}"
                   for condition in unlisted if not condition.covered]  # fmt: skip
        faults += [f"{name}:{span[0]}: not measured: {source.slice(span)}" for span in unmeasured]
    print(f"{total:10}  {total_covered:7}  {total_listed:6}  all")
    faults += listed.faults()
    for fault in faults:
        print(fault)
    return 1 if faults or total == 0 else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
