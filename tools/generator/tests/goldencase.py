"""What the golden-file tests share: the command-line script loaded as a module, the golden
folder, and a test case that compares generated text with the files kept there.

A test module names its generate() and calls main(generate): with --update-golden it rewrites
the golden files (review the diff), otherwise it runs its tests."""

import importlib.util
import os
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))

GOLDEN = os.path.join(HERE, "golden")
ROOT = os.path.abspath(os.path.join(HERE, "..", "..", ".."))

# The command-line script shares its name with the package beside it: load it by path.
_spec = importlib.util.spec_from_file_location("paramgen_cli", os.path.join(HERE, "..",
                                                                            "paramgen.py"))
paramgen_cli = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(paramgen_cli)


class GoldenTest:
    """Compares every output of generate() with its golden file. A mixin, so that the loader does
    not collect it on its own: test classes take it with unittest.TestCase."""

    generate = None  # set by the test module: returns {file name: text}
    script = ""      # the test module's file name, for the hint in a failure

    def test_output_matches_golden(self):
        for name, text in sorted(type(self).generate().items()):
            with self.subTest(name):
                with open(os.path.join(GOLDEN, name), encoding="utf-8") as handle:
                    self.assertEqual(text, handle.read(),
                                     "regenerate with %s --update-golden and review"
                                     % self.script)


def main(generate):
    if "--update-golden" in sys.argv:
        for file_name, content in generate().items():
            with open(os.path.join(GOLDEN, file_name), "w", encoding="utf-8",
                      newline="\n") as out:
                out.write(content)
        print("golden files rewritten")
    else:
        unittest.main()
