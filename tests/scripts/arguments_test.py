"""Every script answers --help and refuses unknown arguments, and does nothing else in either case."""
import os
import pathlib
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPTS = sorted([*ROOT.glob("scripts/*.sh"), *ROOT.glob("scripts/*.py"), *ROOT.glob("fuzz/*/make_seeds.py"),
                  ROOT / "driver" / "examples" / "decode.py", ROOT / ".ci" / "run"])


class Arguments(unittest.TestCase):
    def run_script(self, script, *arguments):
        """Runs a script with an empty home and temporary directory, and checks that it leaves nothing behind."""
        with tempfile.TemporaryDirectory() as directory:
            environment = {"PATH": os.environ["PATH"], "HOME": directory, "TMPDIR": directory,
                           "PYTHONDONTWRITEBYTECODE": "1"}
            run = subprocess.run([script, *arguments], cwd=directory, env=environment, capture_output=True, text=True,
                                 timeout=60)
            self.assertEqual(os.listdir(directory), [], script)
        return run

    def test_help(self):
        self.assertGreaterEqual(len(SCRIPTS), 12)
        for script in SCRIPTS:
            for option in ("--help", "-h"):
                with self.subTest(script=script.name, option=option):
                    run = self.run_script(script, option)
                    self.assertEqual(run.returncode, 0, run.stderr)
                    self.assertIn(script.name, run.stdout)
                    self.assertEqual(run.stderr, "")

    def test_unknown_arguments(self):
        for script in SCRIPTS:
            for arguments in (("--no-such-option",), ("--help", "--no-such-option"), ("",)):
                with self.subTest(script=script.name, arguments=arguments):
                    # argparse answers --help before it reads what follows.
                    if script.suffix == ".py" and arguments != ("--no-such-option",):
                        continue
                    run = self.run_script(script, *arguments)
                    self.assertEqual(run.returncode, 2, run.stdout)
                    self.assertEqual(run.stdout, "")


if __name__ == "__main__":
    unittest.main()
