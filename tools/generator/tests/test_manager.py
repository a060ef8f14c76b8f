"""Set managers from module lists: the emitted shape of a small list, kept as golden files, and
the mistakes a hand-written list makes.

Run with --update-golden after an intended change of the generated code, and review the diff."""

import os
import tempfile
import unittest

from goldencase import GOLDEN, ROOT, GoldenTest, main, paramgen_cli
from paramgen.managerlist import load_manager, parse
from paramgen.schema import SchemaError

LIST = os.path.join(GOLDEN, "GoldenSetManager.list")


def generate():
    _, outputs = paramgen_cli.generate_manager(LIST, [GOLDEN], ROOT)
    return outputs


class ManagerEmitTest(GoldenTest, unittest.TestCase):
    generate = staticmethod(generate)
    script = "test_manager.py"

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
    main(generate)
