#!/usr/bin/env python3
"""Checks the example alert rules with promtool, and that they use only metrics that the host's documentation names.

  rules_test.py EXAMPLES OPERATIONS_DOCUMENT

Skipped where promtool is not installed.
"""
import pathlib
import re
import shutil
import subprocess
import sys


def main():
    examples, document = map(pathlib.Path, sys.argv[1:])
    documented = set(re.findall(r"^\| `(fenlux_\w+)`", document.read_text(encoding="utf-8"), re.MULTILINE))
    used = set(re.findall(r"\bfenlux_\w+", (examples / "alerts.yml").read_text(encoding="utf-8")))
    unknown = {name for name in used if re.sub("_(bucket|count|sum)$", "", name) not in documented}
    if unknown or not used:
        sys.exit(f"alerts.yml uses metrics that {document.name} does not name: {sorted(unknown)}")
    if shutil.which("promtool") is None:
        print("skipped, because promtool is not installed (scripts/setup.sh --tools)")
        return
    for arguments in (["check", "rules", "alerts.yml"], ["check", "config", "prometheus.yml"],
                      ["test", "rules", "alerts_test.yml"]):
        result = subprocess.run(["promtool", *arguments], cwd=examples, capture_output=True, text=True, check=False)
        print(result.stdout + result.stderr)
        if result.returncode != 0:
            sys.exit(f"promtool {' '.join(arguments)} ended with {result.returncode}")


main()
