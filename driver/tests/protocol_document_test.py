"""docs/protocol.md: its dumps are the vectors', every kind of record has one, and the tests that it names exist."""
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
VECTORS = ROOT / "driver" / "vectors"
TEXT = (ROOT / "docs" / "protocol.md").read_text(encoding="utf-8")
DUMPS = dict(re.findall(r"^`([a-z-]+/[a-z0-9-]+)`:\n\n```\n(.*?)^```$", TEXT, re.MULTILINE | re.DOTALL))


class ProtocolDocument(unittest.TestCase):
    def test_dumps_are_those_of_the_vectors(self):
        for name, dump in DUMPS.items():
            with self.subTest(name):
                self.assertEqual(dump, (VECTORS / f"{name}.hex").read_text(encoding="utf-8"))

    def test_every_kind_of_record_and_every_command_has_a_dump(self):
        kinds = {path.parent.name for path in VECTORS.glob("*/*.hex")} - {"malformed"}
        self.assertEqual({name.split("/")[0] for name in DUMPS}, kinds)
        commands = {path.name[:2] for path in VECTORS.glob("request/*.hex")}
        described = {int(number) for heading in re.findall(r"^### ([0-9].*)$", TEXT, re.MULTILINE)
                     for number in re.findall(r"\d+", heading.split(":")[0])}
        described |= {22}  # "21 to 23"
        self.assertEqual({int(command) for command in commands}, described)

    def test_named_vectors_exist(self):
        for name in re.findall(r"`((?:connect-context|request|version-reply|notification|reply)/[a-z0-9-]+)`", TEXT):
            self.assertTrue((VECTORS / f"{name}.hex").exists(), name)

    def test_named_tests_exist(self):
        sources = "\n".join(path.read_text(encoding="utf-8") for folder in ("tests", "driver/tests")
                            for path in (ROOT / folder).rglob("*.cpp"))
        names = re.findall(r"`([A-Z][A-Za-z]+)\.([A-Z][A-Za-z0-9]+)`", TEXT)
        self.assertTrue(names)
        for suite, case in names:
            self.assertIsNotNone(re.search(rf"\(\s*{suite},\s*{case}\)", sources), f"no test {suite}.{case}")
        for name in re.findall(r"`([a-z_]+_test)`", TEXT):
            self.assertTrue((ROOT / "tests" / "unit" / "module" / f"{name}.cpp").exists(), name)


if __name__ == "__main__":
    unittest.main()
