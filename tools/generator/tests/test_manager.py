"""Set managers from module lists: what a small list emits (the shape itself is compiled and run
for every manager of the build), and the mistakes a hand-written list makes."""

import os
import tempfile
import unittest

from goldencase import CATALOGUE, GOLDEN, ROOT, paramgen_cli
from paramgen.managerlist import load_manager, parse
from paramgen.schema import SchemaError

LIST = os.path.join(GOLDEN, "GoldenSetManager.list")


def generate():
    _, outputs = paramgen_cli.generate_manager(LIST, [GOLDEN, CATALOGUE], ROOT)
    return outputs


class ManagerEmitTest(unittest.TestCase):
    def test_every_instance_gets_its_lookup_and_registration_in_list_order(self):
        outputs = generate()
        self.assertEqual(sorted(outputs), ["GoldenSetManager.cpp", "GoldenSetManager.h",
                                           "GoldenSetManager.writer.cpp",
                                           "GoldenSetManager.writer.h"])
        for name, first, second in (("GoldenSetManager.cpp", '{"sampleA"', '{"sampleB"'),
                                    ("GoldenSetManager.writer.cpp", '{"sampleA"', '{"sampleB"'),
                                    ("GoldenSetManager.h", "GetModule_sampleA",
                                     "GetModule_sampleB")):
            with self.subTest(name):
                self.assertLess(outputs[name].index(first), outputs[name].index(second))
        source = outputs["GoldenSetManager.cpp"]
        self.assertIn('GetModuleInternal(m_modeTableIndex, "sampleB"', source)
        # live-tuning quiet: a worker, which the destructor stops, and a quiet log.
        self.assertIn('Traits{"GoldenSetManager", true, false}', source)
        self.assertIn("StopKnobbyWorker();", source)
        self.assertIn('{"sampleB", "goldensample::sampleType", '
                      '&::goldensample::sampleType::Descriptor, {2, 1, 0u}}',
                      outputs["GoldenSetManager.writer.cpp"])


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
                "NotAType.list": "manager NotAType\na  ispglobalelements::trigger_pt_type\n",
                "NoSchema.list": "manager NoSchema\na  missing::T\n",
                "Misnamed.list": "manager Other\na  goldensample::sampleType\n",
            }.items():
                path = os.path.join(folder, name)
                with open(path, "w", encoding="utf-8") as handle:
                    handle.write(text)
                with self.subTest(name):
                    with self.assertRaises(SchemaError):
                        load_manager(path, [GOLDEN, CATALOGUE])


if __name__ == "__main__":
    unittest.main()
