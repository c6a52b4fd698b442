"""Tests of scripts/count_tests.py: every kind of test, with every possible result."""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "count_tests.py"


def program(passed, skipped=0, failed=0):
    """The end of a GoogleTest program's output."""
    lines = [f"[==========] {passed + skipped + failed} tests from 2 test suites ran. (3 ms total)"]
    lines.append(f"[  PASSED  ] {passed} test{'s' if passed != 1 else ''}.")
    for kind, count in (("SKIPPED ", skipped), ("FAILED  ", failed)):
        if count:
            lines.append(f"[  {kind}] {count} test{'s' if count != 1 else ''}, listed below:")
            lines += [f"[  {kind}] Suite.Case{index}" for index in range(count)]
    return "\n".join(lines) + "\n"


def counts(*tests):
    """The first line that the script prints for tests of ctest: (name, label, status, output)."""
    return printed(*tests).splitlines(keepends=True)[0]


def failures(*tests):
    """The lines after the first: one for each failed test."""
    return printed(*tests).splitlines()[1:]


def printed(*tests):
    """Everything that the script prints for these tests."""
    report = "".join(f'<testcase name="{name}" status="{status}"><system-out>{output}</system-out></testcase>'
                     for name, _, status, output in tests)
    listing = {"tests": [{"name": name, "properties": [{"name": "LABELS", "value": [label]}] if label else []}
                         for name, label, _, _ in tests]}
    with tempfile.TemporaryDirectory() as directory:
        paths = [pathlib.Path(directory, "report.xml"), pathlib.Path(directory, "list.json")]
        paths[0].write_text(f"<testsuite>{report}</testsuite>", encoding="utf-8")
        paths[1].write_text(json.dumps(listing), encoding="utf-8")
        return subprocess.run([sys.executable, SCRIPT, *paths], check=True, capture_output=True, text=True).stdout


class CountTests(unittest.TestCase):
    def test_script_counts_once(self):
        self.assertEqual(counts(("a", "package", "run", "fine"), ("b", "package", "fail", "no"),
                                ("c", "package", "notrun", "skipped, because")), "1 1 1 package 3\n")

    def test_program_counts_with_its_cases(self):
        self.assertEqual(counts(("a", "unit", "run", program(7, skipped=2)), ("b", "unit", "run", program(1))),
                         "8 0 2 unit 10\n")

    def test_failed_cases_count(self):
        self.assertEqual(counts(("a", "unit", "fail", program(7, failed=2))), "7 2 0 unit 9\n")

    def test_program_failing_outside_its_cases_counts_as_failure(self):
        self.assertEqual(counts(("a", "unit", "fail", program(7))), "7 1 0 unit 8\n")

    def test_program_ending_early_counts_as_failure(self):
        self.assertEqual(counts(("a", "unit", "fail", "[ RUN      ] Suite.Case\n")), "0 1 0 unit 1\n")

    def test_skipped_case_as_its_own_test(self):
        self.assertEqual(counts(("a", "unit", "notrun", program(0, skipped=1))), "0 0 1 unit 1\n")

    def test_failed_cases_are_named_once(self):
        output = "[  FAILED  ] Suite.Case0 (3 ms)\n" + program(7, failed=1)
        self.assertEqual(failures(("a", "unit", "fail", output), ("b", "unit", "run", program(1))),
                         ["a (0 s): Suite.Case0"])

    def test_failure_without_a_case_shows_where_the_output_ends(self):
        self.assertEqual(failures(("a", "unit", "fail", program(7)), ("b", "package", "fail", "one\ntwo\n"),
                                  ("c", "package", "fail", "")),
                         ["a (0 s): its output ends with: [  PASSED  ] 7 tests.", "b (0 s): its output ends with: two",
                          "c (0 s): it printed nothing"])

    def test_labels_are_counted_separately(self):
        self.assertEqual(counts(("a", "unit", "run", ""), ("b", "integration", "run", ""), ("c", None, "run", "")),
                         "3 0 0 integration 1, other 1, unit 1\n")


if __name__ == "__main__":
    unittest.main()
