"""The emitted shape of one small schema that holds every member kind once, kept as golden files
beside it.

Run with --update-golden after an intended change of the generated code, and review the diff."""

import os
import sys
import unittest

from goldencase import CATALOGUE, GOLDEN, ROOT, paramgen_cli

SCHEMA = os.path.join(GOLDEN, "goldensample.schema")


def generate():
    _, outputs = paramgen_cli.generate(SCHEMA, [GOLDEN, CATALOGUE], ROOT)
    return outputs


class EmitTest(unittest.TestCase):
    def test_output_matches_golden(self):
        outputs = generate()
        self.assertEqual(sorted(outputs), ["goldensample.cpp", "goldensample.h"])
        for name, text in outputs.items():
            with self.subTest(name):
                with open(os.path.join(GOLDEN, name), encoding="utf-8") as handle:
                    self.assertEqual(text, handle.read(),
                                     "regenerate with test_emit.py --update-golden and review")
        self.assertEqual(generate(), outputs)

    def test_units_hold_each_namespace_once_and_keep_it_when_others_come(self):
        names = ["ns%03d" % index for index in range(470)]
        before = paramgen_cli.units(names)
        self.assertEqual(sorted(n for members in before.values() for n in members), names)
        self.assertLessEqual(len(before), 30)
        self.assertGreater(len(before), 20)
        after = paramgen_cli.units(names + ["added"])
        moved = [unit for unit in after if after[unit] != before.get(unit)]
        self.assertEqual(len(moved), 1)
        self.assertIn("added", after[moved[0]])
        self.assertEqual(paramgen_cli.unit_source(["a", "b"]).splitlines()[-2:],
                         ['#include "paramgen/a.cpp"', '#include "paramgen/b.cpp"'])


if __name__ == "__main__":
    if "--update-golden" in sys.argv:
        for file_name, content in generate().items():
            with open(os.path.join(GOLDEN, file_name), "w", encoding="utf-8",
                      newline="\n") as out:
                out.write(content)
        print("golden files rewritten")
    else:
        unittest.main()
