#!/usr/bin/env python3
"""Writes the seeds of fuzz_control_request: one request for each operation, and malformed ones. Run it after adding an
operation, and commit the seeds."""
import argparse
import json
import pathlib

SEEDS = pathlib.Path(__file__).parent / "seeds"
ITEM = "11" * 48 + ":7"

REQUESTS = {
    "status": {}, "summary": {}, "driver": {}, "reload": {}, "policy-changed": {}, "port-value": {}, "version": {},
    "features": {}, "debug-dump": {}, "send-config": {},
    "grsp": {"mode": "1"}, "grpm": {"mode": "3", "not-implemented": ""}, "grdto": {"value": "4294967295"},
    "grhara": {"state": "on"}, "spsp": {"skip-middle": ""}, "register-process": {"kind": "2", "process": "400"},
    "monitor add": {"type": "1", "path": "/data/ä"}, "monitor send": {"type": "2"}, "monitor clear": {"type": "3"},
    "net-control mode1": {}, "net-control mode3": {}, "net-control apply": {"items": f"{ITEM},{ITEM}", "alternate": ""},
    "net-control add": {"type": "2", "items": ITEM}, "interface kernel-data": {"data": "18446744073709551615"},
    "interface ltrkd": {},
}
MALFORMED = {
    "empty": "", "no-operation": "{}", "array": "[]", "number-argument": '{"operation":"grsp","arguments":{"mode":3}}',
    "nested-argument": '{"operation":"grsp","arguments":{"mode":{}}}', "unknown": '{"operation":"\\u001b[2J"}',
    "deep": "[" * 40, "bool-argument": '{"operation":"grhara","arguments":{"state":true}}',
    "real-argument": '{"operation":"grdto","arguments":{"value":1e999}}',
    "repeated": '{"operation":"status","operation":"grdto","arguments":{"value":"-1","value":"1"}}',
}


def main():
    argparse.ArgumentParser(description=__doc__).parse_args()
    SEEDS.mkdir(exist_ok=True)
    for old in SEEDS.iterdir():
        old.unlink()
    for operation, arguments in REQUESTS.items():
        line = json.dumps({"operation": operation, "arguments": arguments}, separators=(",", ":"))
        (SEEDS / operation.replace(" ", "-")).write_text(line, encoding="utf-8")
    for name, line in MALFORMED.items():
        (SEEDS / f"malformed-{name}").write_text(line, encoding="utf-8")


if __name__ == "__main__":
    main()
