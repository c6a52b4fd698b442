"""Reads what `fenlux-host decode --json --hex` prints, and prints every notification once, as the small host reads them:
an x, the message in hexadecimal, and the verdict of its reply, 0 if it has none."""
import json
import sys

seen = set()
for line in sys.stdin:
    exchange = json.loads(line)
    if exchange["kind"] != "notification":
        continue
    reply = exchange.get("reply")
    entry = f"x{exchange['message_bytes']} {reply['verdict'] if reply else 0}"
    if entry not in seen:
        seen.add(entry)
        print(entry)
