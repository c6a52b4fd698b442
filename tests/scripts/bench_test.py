"""Tests of what scripts/bench.sh makes of its measurements."""
import contextlib
import io
import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "lib"))

# pylint: disable=wrong-import-position
from bench import print_table, verdict_of
from bench_measure import Figure, summary_of, unit_for


class Bench(unittest.TestCase):
    def test_summary_is_median_and_quartiles(self):
        figure = summary_of("dispatch", "module", [5, 1, 4, 2, 3], "ns")
        self.assertEqual((figure.value, figure.low, figure.high), (3, 2, 4))

    def test_summary_of_three_measurements(self):
        figure = summary_of("dispatch", "module", [1, 2, 3], "ns")
        self.assertEqual((figure.value, figure.low, figure.high), (2, 1.5, 2.5))

    def test_unit_fits_the_value(self):
        self.assertEqual([unit_for(value)[0] for value in (999, 1e3, 999e3, 1e6, 5e9)],
                         ["ns", "us", "us", "ms", "ms"])

    def test_ratio_is_compared_with_its_target(self):
        self.assertEqual(verdict_of(Figure("g", "n", 9.0, "ns", ratio=1.25, target=1.25)), "≤ 1.25")
        self.assertEqual(verdict_of(Figure("g", "n", 9.0, "ns", ratio=1.26, target=1.25)), "≤ 1.25, missed")
        self.assertEqual(verdict_of(Figure("g", "n", 9.0, "M/s", ratio=1.7, target=1.7, at_least=True)), "≥ 1.7")
        self.assertEqual(verdict_of(Figure("g", "n", 9.0, "M/s", ratio=1.6, target=1.7, at_least=True)),
                         "≥ 1.7, missed")

    def test_value_without_a_ratio_is_compared_with_its_target(self):
        self.assertEqual(verdict_of(Figure("g", "n", 19.0, "ms", target=20)), "≤ 20")
        self.assertEqual(verdict_of(Figure("g", "n", 21.0, "ms", target=20)), "≤ 20, missed")
        self.assertEqual(verdict_of(Figure("g", "n", 21.0, "ms")), "")

    def test_table_has_a_heading_for_each_group(self):
        out = io.StringIO()
        with contextlib.redirect_stdout(out):
            print_table([Figure("dispatch", "floor", 100, "ns", 99, 101),
                         Figure("dispatch", "module", 120, "ns", 118, 121, "floor", 1.2, 1.25),
                         Figure("memory", "host", 9, "MiB", target=20)])
        self.assertEqual(out.getvalue().splitlines(), [
            "                                               median       spread   ratio  target",
            "dispatch",
            "  floor                                        100.00 ns      1.0%",
            "  module                                       120.00 ns      1.2%    1.20  ≤ 1.25",
            "memory",
            "  host                                           9.00 MiB                   ≤ 20"])


if __name__ == "__main__":
    unittest.main()
