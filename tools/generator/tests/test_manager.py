"""Set managers from module lists: the emitted shape of a small list, kept as golden files, and
the mistakes a hand-written list makes.

Run with --update-golden after an intended change of the generated code, and review the diff."""

import os
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))

import importlib.util  # noqa: E402

from paramgen.managerlist import load_manager, parse  # noqa: E402
from paramgen.schema import SchemaError  # noqa: E402

_spec = importlib.util.spec_from_file_location("paramgen_cli", os.path.join(HERE, "..",
                                                                            "paramgen.py"))
paramgen_cli = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(paramgen_cli)

GOLDEN = os.path.join(HERE, "golden")
LIST = os.path.join(GOLDEN, "GoldenSetManager.list")
ROOT = os.path.abspath(os.path.join(HERE, "..", "..", ".."))


def generate():
    _, outputs = paramgen_cli.generate_manager(LIST, [GOLDEN], ROOT)
    return outputs


class ManagerEmitTest(unittest.TestCase):
    def test_output_matches_golden(self):
        for name, text in sorted(generate().items()):
            with self.subTest(name):
                with open(os.path.join(GOLDEN, name), encoding="utf-8") as handle:
                    self.assertEqual(text, handle.read(),
                                     "regenerate with test_manager.py --update-golden and review")

    def test_every_instance_gets_its_lookup_and_registration_in_list_order(self):
        outputs = generate()
        source = outputs["GoldenSetManager.cpp"]
        self.assertLess(source.index('{"sampleA"'), source.index('{"sampleB"'))
        self.assertIn('GetModuleInternal(m_modeTableIndex, "sampleB"', source)
        self.assertIn('Traits{"GoldenSetManager", true, false}', source)


class ManagerListTest(unittest.TestCase):
    def test_class_options(self):
        manager = parse("x.list", "manager quietSet quiet\nx  ns::T\n")
        self.assertEqual(("quietSet", False, True), (manager.name, manager.live_tuning,
                                                     manager.quiet))
        self.assertEqual([("x", "ns", "T")],
                         [(i.name, i.namespace, i.type_name) for i in manager.instances])

    def test_refused_lists(self):
        cases = {
            "no manager line": "a  ns::T\n",
            "unknown option": "manager m live\n",
            "unqualified type": "manager m\na  T\n",
            "repeated instance": "manager m\na  ns::T\na  ns::U\n",
            "long name": "manager m\n%s  ns::T\n" % ("n" * 65),
            "extra word": "manager m\na  ns::T  more\n",
            "empty": "# nothing\n",
        }
        for label, text in cases.items():
            with self.subTest(label):
                with self.assertRaises(SchemaError):
                    parse("m.list", text)

    def test_type_must_be_a_module_of_its_schema(self):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in {
                "NotAType.list": "manager NotAType\na  goldensample::pointType\n",
                "NoSchema.list": "manager NoSchema\na  missing::T\n",
                "Misnamed.list": "manager Other\na  goldensample::sampleType\n",
            }.items():
                path = os.path.join(folder, name)
                with open(path, "w", encoding="utf-8") as handle:
                    handle.write(text)
                with self.subTest(name):
                    with self.assertRaises(SchemaError):
                        load_manager(path, [GOLDEN])


if __name__ == "__main__":
    if "--update-golden" in sys.argv:
        for file_name, content in generate().items():
            with open(os.path.join(GOLDEN, file_name), "w", encoding="utf-8",
                      newline="\n") as out:
                out.write(content)
        print("golden files rewritten")
    else:
        unittest.main()
