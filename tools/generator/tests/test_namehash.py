"""The generator's name hash must equal the library's: a hash that differs by one bit makes
every member of every module unreadable."""

import os
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

from paramgen.namehash import crc64, name_hash  # noqa: E402


class NameHashTest(unittest.TestCase):
    def test_known_names(self):
        known = {
            "triggerPt": 0xCB944A716851FFCE,
            "triggerData": 0xD5DC9FCB428AF073,
            "rollShrinkFactor": 0xF11C6C41C908FAAB,
            "enable": 0xB3C00ADF8E304E57,
            "faceNum": 0x8BE4B30FF7A88D86,
            "module_version": 0xE11CD9F365A2599F,
            "major_revision": 0xCD66249477636693,
        }
        for name, expected in known.items():
            with self.subTest(name=name):
                self.assertEqual(name_hash(name), expected)

    def test_length_is_part_of_the_hash(self):
        # Without the length the empty name hashes to 0, as every name would start alike.
        self.assertEqual(crc64(b"", add_length=False), 0)
        self.assertNotEqual(name_hash(""), 0)
        self.assertNotEqual(crc64(b"enable", add_length=False), name_hash("enable"))


if __name__ == "__main__":
    unittest.main()
