#!/usr/bin/env python3
"""Counts the tests of a ctest run.

Prints the numbers of passed, failed and skipped tests, and the number of tests per label. A GoogleTest program that is a
single test of ctest counts with each of its cases. A line for each test that failed follows: its name, and its
failed cases or else the last line of its output.
"""
import argparse
import collections
import json
import re
import sys
import xml.etree.ElementTree as tree


def labels_of(path):
    labels = {}
    with open(path, encoding="utf-8") as file:
        for test in json.load(file)["tests"]:
            properties = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
            labels[test["name"]] = properties.get("LABELS", ["other"])[0]
    return labels


def cases_of(test):
    """The numbers of passed, failed and skipped cases of one test of ctest."""
    output = test.findtext("system-out") or ""
    if not re.search(r"^\[==========\] \d+ tests? from .* ran\.", output, re.MULTILINE):
        status = test.get("status")
        return status == "run", status == "fail", status not in ("run", "fail")
    passed, skipped, failed = (sum(int(count) for count in re.findall(pattern, output, re.MULTILINE)) for pattern in
                               (r"^\[  PASSED  \] (\d+) tests?\.", r"^\[  SKIPPED \] (\d+) tests?, listed below:",
                                r"^\[  FAILED  \] (\d+) tests?, listed below:"))
    if test.get("status") == "fail":
        failed = max(failed, 1)  # the program failed outside of its cases
    return passed, failed, skipped


def failure_of(test):
    """One line about a failed test: its failed cases, or else the last line of its output."""
    output = test.findtext("system-out") or ""
    cases = list(dict.fromkeys(re.findall(r"^\[  FAILED  \] (\w+\.[\w/]+)", output, re.MULTILINE)))
    end = [line.strip() for line in output.splitlines() if line.strip()][-1:]
    reason = ", ".join(cases) if cases else f"its output ends with: {end[0]}" if end else "it printed nothing"
    return f"{test.get('name')} ({float(test.get('time') or 0):.0f} s): {reason}"


def main(report, listing):
    labels = labels_of(listing)
    totals = [0, 0, 0]
    by_label = collections.Counter()
    failures = []
    for test in tree.parse(report).getroot().iter("testcase"):
        cases = [int(count) for count in cases_of(test)]
        totals = [total + count for total, count in zip(totals, cases)]
        by_label[labels.get(test.get("name"), "other")] += sum(cases)
        if cases[1]:
            failures.append(failure_of(test))
    print(*totals, ", ".join(f"{label} {count}" for label, count in sorted(by_label.items())))
    for failure in failures:
        print(failure)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
                                     allow_abbrev=False)
    parser.add_argument("report", help="what `ctest --output-junit` wrote")
    parser.add_argument("listing", help="what `ctest --show-only=json-v1` printed")
    arguments = parser.parse_args()
    main(arguments.report, arguments.listing)
