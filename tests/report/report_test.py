#!/usr/bin/env python3
"""Compares the page of `fenlux-host report` with what `fenlux-host decode` shows of the same capture.

  report_test.py FENLUX_HOST CAPTURE        parses the page
  report_test.py FENLUX_HOST CAPTURE --browser   lets chromium load it; skipped where that is not installed
"""
import collections
import html.parser
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

TITLE = "A <script>alert(1)</script> & \"title\""


class Page(html.parser.HTMLParser):
    """The texts by id, the links, the rows of numbers by table, and what must not be there."""
    VOID = {"meta", "br", "link", "img", "input", "hr"}

    def __init__(self, text):
        super().__init__()
        self.tags = collections.Counter()
        self.ids, self.links, self.external = {}, [], []
        self.numbers = {}
        self.texts = []
        self.stack = []
        self.table = None
        self.row = None
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        self.tags[tag] += 1
        if "id" in attributes:
            assert attributes["id"] not in self.ids, f"two elements have the id {attributes['id']}"
            self.ids[attributes["id"]] = ""
        if tag == "table":
            self.table = attributes.get("id")
        if "data-number" in attributes:
            self.row = []
            self.numbers.setdefault(self.table, {})[int(attributes["data-number"])] = self.row
        for name in ("href", "src", "xlink:href"):
            if name in attributes:
                (self.links if attributes[name].startswith("#") else self.external).append(attributes[name])
        self.external += [name for name in attributes if name.startswith("on")]
        if tag not in self.VOID:
            self.stack.append((tag, attributes.get("id")))

    def handle_startendtag(self, tag, attributes):
        self.tags[tag] += 1

    def handle_endtag(self, tag):
        assert self.stack and self.stack[-1][0] == tag, f"</{tag}> closes {self.stack[-1:]}"
        self.stack.pop()
        if tag == "tr":
            self.row = None

    def handle_data(self, data):
        self.texts.append(data)
        for _, element in self.stack:
            if element:
                self.ids[element] += data
        if self.row is not None and data.strip():
            self.row.append(data.strip())


def check(found, expected, what):
    if found != expected:
        sys.exit(f"{what}: the page has {found!r} instead of {expected!r}")


def run(command):
    return subprocess.run(command, capture_output=True, check=False)


def exchanges_of(program, capture):
    output = run([program, "decode", "--json", capture]).stdout.decode()
    return [json.loads(line) for line in output.splitlines()]


def is_malformed(fields):
    return isinstance(fields, dict) and "error" in fields


def check_figures(page, exchanges):
    packets = [exchange for exchange in exchanges if "kind" in exchange]
    notifications = [exchange for exchange in packets if exchange["kind"] == "notification"]
    requests = [exchange for exchange in packets if exchange["kind"] == "request"]
    check(page.ids["notifications"], str(len(notifications)), "notifications")
    check(page.ids["requests"], str(len(requests)), "requests")
    unanswered = sum("unanswered" in exchange for exchange in packets)
    check(page.ids["unanswered"], str(unanswered), "exchanges without a reply")
    codes, verdicts, decisions = collections.Counter(), collections.Counter(), collections.Counter()
    malformed = sum(is_malformed(exchange["message"]) for exchange in packets
                    if exchange["kind"] in ("connect_context", "request", "notification"))
    for exchange in notifications:
        if not is_malformed(exchange["message"]):
            codes[exchange["message"]["code"]] += 1
        reply = exchange.get("reply")
        if is_malformed(reply):
            malformed += 1
        elif reply:
            verdicts[reply["verdict"]] += 1
        if "judgement" in exchange:
            decisions[exchange["judgement"]["decision"]] += 1
    check(page.ids["malformed"], str(malformed), "malformed messages")
    for table, numbers in (("codes", codes), ("verdicts", verdicts), ("decisions", decisions)):
        # The cells are the number, its name if it has one, and the count.
        found = {number: int(cells[-1]) for number, cells in page.numbers.get(table, {}).items()}
        check(found, dict(numbers), table)
    answered = [exchange for exchange in notifications if "latency_us" in exchange]
    slowest = max(answered, key=lambda exchange: exchange["latency_us"])
    message = slowest["message"]
    subject = message.get("path") or ("malformed: " + message["error"] if "error" in message else slowest.get("name", ""))
    check(subject.replace("\\", "\\\\") in page.ids["slowest"], True, f"{subject} among the slowest")
    check(page.ids["connection-count"], str(sum(exchange["kind"] == "connect_context" for exchange in packets)),
          "connections")


def check_form(page):
    check(page.stack, [], "elements left open")
    check(page.external, [], "references outside the page, and handlers")
    check(page.tags["script"], 0, "scripts")
    for link in page.links:
        if link[1:] not in page.ids:
            sys.exit(f"the link {link} leads nowhere")
    if TITLE not in "".join(page.texts):
        sys.exit("the title is not shown as it was given")


def browsed(page_file, folder):
    """The page's DOM after chromium has loaded it, and the size of its screenshot."""
    chromium = shutil.which("chromium")
    if chromium is None:
        print("skipped, because chromium is not installed: scripts/setup.sh --tools")
        sys.exit(0)
    shot = os.path.join(folder, "page.png")
    command = [chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
               f"--user-data-dir={folder}/profile", "--virtual-time-budget=2000"]
    dom = run(command + ["--dump-dom", f"file://{page_file}"])
    if not dom.stdout:
        sys.exit(f"chromium shows nothing: {dom.stderr.decode()}")
    run(command + [f"--screenshot={shot}", "--window-size=1200,3000", f"file://{page_file}"])
    return dom.stdout.decode(), os.path.getsize(shot)


def main():
    program, capture = sys.argv[1:3]
    with tempfile.TemporaryDirectory() as folder:
        page_file = os.path.join(folder, "page.html")
        result = run([program, "report", capture, "--html", page_file, "--title", TITLE])
        check(result.returncode, 0, f"exit code ({result.stderr.decode()})")
        with open(page_file, encoding="utf-8") as stream:
            text = stream.read()
        exchanges = exchanges_of(program, capture)
        page = Page(text)
        check_form(page)
        check_figures(page, exchanges)
        check(page.tags["svg"] >= 4, True, "at least four pictures")
        if "--browser" in sys.argv:
            dom, size = browsed(page_file, folder)
            for number in re.findall(r'id="(notifications|requests|malformed)">(\d+)<', text):
                if f'id="{number[0]}">{number[1]}<' not in dom:
                    sys.exit(f"chromium does not show {number}")
            check(dom.count("<rect") >= text.count("<rect "), True, "the bars in chromium")
            check(size > 20000, True, "a screenshot with content")
        if run([program, "report", __file__, "--html", page_file]).returncode != 2:
            sys.exit("a file that is no capture was accepted")
        if run([program, "report", capture, "--html", capture]).returncode != 2:
            sys.exit("the capture was to be replaced")


if __name__ == "__main__":
    main()
