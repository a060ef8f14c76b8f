"""The emitted shape of one small schema, kept as golden files beside it.

Run with --update-golden after an intended change of the generated code, and review the diff."""

import os
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))

import importlib.util  # noqa: E402

from paramgen import emitcpp  # noqa: E402

# The command-line script shares its name with the package beside it: load it by path.
_spec = importlib.util.spec_from_file_location("paramgen_cli", os.path.join(HERE, "..",
                                                                            "paramgen.py"))
paramgen_cli = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(paramgen_cli)

GOLDEN = os.path.join(HERE, "golden")
SCHEMA = os.path.join(GOLDEN, "goldensample.schema")
ROOT = os.path.abspath(os.path.join(HERE, "..", "..", ".."))


def generate():
    _, outputs = paramgen_cli.generate(SCHEMA, [GOLDEN], ROOT)
    return outputs


class EmitTest(unittest.TestCase):
    def test_output_matches_golden(self):
        for name, text in sorted(generate().items()):
            with self.subTest(name):
                with open(os.path.join(GOLDEN, name), encoding="utf-8") as handle:
                    self.assertEqual(text, handle.read(),
                                     "regenerate with test_emit.py --update-golden and review")

    def test_output_is_deterministic(self):
        self.assertEqual(generate(), generate())

    def test_banner_and_layout_assertion(self):
        outputs = generate()
        expected = ("// Generated from tools/generator/tests/golden/goldensample.schema by the "
                    "module generator. Do not edit.\n")
        for name, text in outputs.items():
            with self.subTest(name):
                self.assertTrue(text.startswith(expected))
        self.assertIn("static_assert(ParameterModuleLayoutVersion == %d,"
                      % emitcpp.LAYOUT_VERSION, outputs["goldensample.h"])


if __name__ == "__main__":
    if "--update-golden" in sys.argv:
        for file_name, content in generate().items():
            with open(os.path.join(GOLDEN, file_name), "w", encoding="utf-8",
                      newline="\n") as out:
                out.write(content)
        print("golden files rewritten")
    else:
        unittest.main()
