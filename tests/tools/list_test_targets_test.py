"""Tests tools/list-test-targets, with programs made up for it and with the tests of this build.

Usage: list_test_targets_test.py BUILD_FOLDER
"""

import importlib.machinery
import importlib.util
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
TOOL = pathlib.Path(__file__).resolve().parents[2] / "tools" / "list-test-targets"
loader = importlib.machinery.SourceFileLoader("list_test_targets", str(TOOL))
tool = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
loader.exec_module(tool)
BUILD = pathlib.Path(sys.argv.pop())


class MadeUpBuild(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = pathlib.Path(folder.name).resolve()
        self.add_program("plain_test", "fast", "TEST(Digest, Empty) {}\nTEST_F(Rows, Null) {}\n")
        self.add_program("cases_test", "slow", "TEST_P(Faults, Each) {}\n")
        self.build.joinpath("CTestTestfile.cmake").write_text(
            "add_test(plain_test_NOT_BUILT plain_test_NOT_BUILT)\n"
            f"add_test(Script.sql /bin/true)\n"
            f"set_tests_properties(Script.sql PROPERTIES LABELS sql REQUIRED_FILES {self.build}/host/host.so)\n"
        )

    def add_program(self, name, labels, text):
        self.build.joinpath(f"{name}.cc").write_text(text)
        with self.build.joinpath("test_programs.tsv").open("a") as table:
            print(name, self.build / name, labels, "", self.build, f"{name}.cc", sep="\t", file=table)

    def finish_program(self, name, *tests):
        """Builds it, as far as CTest can see."""
        self.build.joinpath(name).write_text("")
        self.build.joinpath("CTestTestfile.cmake").write_text(
            "".join(f"add_test({test} {self.build}/{name})\n" for test in tests))  # fmt: skip

    def listed(self, *options):
        return subprocess.check_output([TOOL, self.build, *options], text=True).split()

    def test_everything_without_a_selection(self):
        for options in [(), ("-j", "2"), ("--rerun-failed",), ("-R", "Digest", "-I", "1,2")]:
            self.assertEqual(self.listed(*options), ["all"], options)

    def test_a_label_selects_programs_that_are_not_built(self):
        self.assertEqual(self.listed("-L", "fast"), ["plain_test"])
        self.assertEqual(self.listed("-L", "slow"), ["cases_test"])
        self.assertEqual(self.listed("-L", "fast|slow"), ["cases_test", "plain_test"])

    def test_a_name_selects_by_the_sources(self):
        self.assertEqual(self.listed("-R", "^Rows.Null$", "-L", "fast"), ["plain_test"])
        self.assertEqual(self.listed("-R", "Unknown", "-L", "fast"), [])

    def test_names_that_the_sources_do_not_give_count_as_selected(self):
        self.assertEqual(self.listed("-R", "Unknown"), ["cases_test"])

    def test_a_built_program_answers_for_itself(self):
        self.finish_program("cases_test", "All/Faults.Each/first")
        self.assertEqual(self.listed("-R", "first"), ["cases_test"])
        self.assertEqual(self.listed("-R", "second"), [])

    def test_a_changed_source_makes_a_built_program_unknown(self):
        self.finish_program("cases_test", "All/Faults.Each/first")
        later = self.build.joinpath("cases_test").stat().st_mtime + 10
        os.utime(self.build / "cases_test.cc", (later, later))
        self.assertEqual(self.listed("-R", "second"), ["cases_test"])

    def test_a_name_of_what_is_not_built_selects_it(self):
        self.assertIn("plain_test", self.listed("-R", "plain_test"))

    def test_other_tests_need_the_files_that_they_require(self):
        self.assertEqual(self.listed("-L", "sql"), ["host/host.so"])


class ThisBuild(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.programs = tool.read_programs(BUILD)
        cls.tests = tool.list_tests(BUILD)

    def test_every_program_is_in_the_table(self):
        executables = {str(program.executable) for program in self.programs}
        for test in self.tests:
            if any(argument.startswith("--gtest_filter=") for argument in test.get("command", [])):
                self.assertIn(test["command"][0], executables, test["name"])

    def test_sources_give_every_name_or_are_known_not_to(self):
        names = {}
        for program in self.programs:
            if program.is_current() and not program.has_parametrized_tests():
                names[str(program.executable)] = program.names_in_sources()
        for test in self.tests:
            if test.get("command", [""])[0] in names:
                self.assertIn(test["name"], names[test["command"][0]])

    def test_files_of_the_build_in_a_command_are_required(self):
        executables = {str(program.executable) for program in self.programs}
        for test in self.tests:
            command = test.get("command", [""])
            settings = [s.partition("=")[2] for s in tool.property_of(test, "ENVIRONMENT")]
            if command[0] in executables:
                continue
            for file in [*command, *settings]:
                if file.endswith(".so") or (file == command[0] and file.startswith(f"{BUILD}/")):
                    self.assertIn(file, tool.property_of(test, "REQUIRED_FILES"), test["name"])


if __name__ == "__main__":
    unittest.main()
