"""The generator's name hash must equal the library's: a hash that differs by one bit makes
every member of every module unreadable."""

import unittest

import goldencase  # noqa: F401 (the generator's package on the import path)
from paramgen.namehash import name_hash


class NameHashTest(unittest.TestCase):
    def test_known_names(self):
        known = {
            "triggerPt": 0xCB944A716851FFCE,
            "rollShrinkFactor": 0xF11C6C41C908FAAB,
            "enable": 0xB3C00ADF8E304E57,
            "major_revision": 0xCD66249477636693,
        }
        for name, expected in known.items():
            with self.subTest(name=name):
                self.assertEqual(name_hash(name), expected)


if __name__ == "__main__":
    unittest.main()
