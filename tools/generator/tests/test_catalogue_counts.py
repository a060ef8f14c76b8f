"""The real catalogue against the figures its block list and module lists fix: instance names per
engine, generations, shared types, and every pipeline instance's type by the naming rule."""

import collections
import os
import re
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

from goldencase import ROOT  # noqa: E402
from paramgen.catalogue import Catalogue  # noqa: E402
from paramgen.managerlist import load_manager  # noqa: E402
from paramgen.shape import describe  # noqa: E402

SCHEMAS = os.path.join(ROOT, "parametermodules", "schemas")
LISTS = os.path.join(ROOT, "parametermodules", "lists")
# The eight namespaces that record the pipeline schema's version are no block.
NOT_BLOCKS = ("versions.family",)
ENGINES = {"ife": 109, "ipe": 107, "sw": 94, "eva": 93, "bps": 81, "ope": 63, "tfe": 32,
           "sfe": 31, "aon": 7, "ofe": 6, "ais": 2}
# Names the rule does not spell: the second generation without "_v2", and the one namespace of
# two version numbers.
IRREGULAR = {"hidrx10": "hidrx_1_0_1", "bds10_tfe": "bds_1_0"}
# After the block: <major><minor>[<patch>] ("ds4to1" writes a "v" before the version), then the
# engine and use; "_v2" for the second generation is taken off first.
_VERSION = re.compile(r"^v?(?P<major>\d)(?P<minor>\d)(?P<patch>\d)?(?:_(?P<rest>.+))?$")
_VERSIONS = re.compile(r"^versions[A-H]_sw$")


def pipeline_instances(manager):
    """The instances ahead of the first 3A algorithm block, t2tconfigdata."""
    names = [instance.name for instance in manager.instances]
    return manager.instances[:names.index("t2tconfigdata")]


def parse(name, blocks):
    """(block, version match, second generation) of an instance name, the longest block that
    fits first (gtmfd13 is gtmfd's, not gtm's); (None, None, v2) where no block fits."""
    v2 = name.endswith("_v2")
    stem = name[:-len("_v2")] if v2 else name
    for block in sorted(blocks, key=len, reverse=True):
        match = _VERSION.match(stem[len(block):]) if stem.startswith(block) else None
        if match:
            return block, match, v2
    return None, None, v2


def namespace_by_rule(name, blocks):
    """The namespace an instance name selects, or None where the name does not parse."""
    if name in IRREGULAR:
        return IRREGULAR[name]
    if _VERSIONS.match(name):
        return name[:-len("_sw")] + "_1_0_0"
    block, match, v2 = parse(name, blocks)
    if block is None:
        return None
    patch = match.group("patch") or ("1" if v2 else "0")
    return "%s_%s_%s_%s" % (block, match.group("major"), match.group("minor"), patch)


def engine_of(name, blocks):
    """The engine of a pipeline instance name, or None (hidrx10, ioteis26, tof10_v2 ...)."""
    if _VERSIONS.match(name):
        return "sw"
    block, match, _ = parse(name, blocks)
    rest = match.group("rest") if block is not None else None
    return rest.split("_")[0] if rest else None


class CatalogueCountsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        catalogue = Catalogue([SCHEMAS])
        cls.manager = load_manager(os.path.join(LISTS, "TuningSetManager.list"), [SCHEMAS],
                                   catalogue)
        cls.pipeline = pipeline_instances(cls.manager)
        cls.families = {}
        for name in sorted(os.listdir(SCHEMAS)):
            if name.endswith(".family") and name not in NOT_BLOCKS:
                path = os.path.join(SCHEMAS, name)
                cls.families[name] = catalogue.load_file(path)
        cls.namespaces = [namespace for family in cls.families.values() for namespace in family]
        cls.blocks = {namespace.name.rsplit("_", 3)[0] if namespace.name != "bds_1_0" else "bds"
                      for namespace in cls.namespaces}

    def test_block_list_holds_both_generations_of_every_block(self):
        self.assertEqual((len(self.families), len(self.namespaces)), (113, 332))
        shapes = collections.Counter(describe(namespace) for namespace in self.namespaces)
        generations = collections.Counter(generation for generation, _ in shapes.elements())
        self.assertEqual((generations[0], generations[1]), (155, 177))
        # hidrx_1_0_1 is the one second-generation namespace without a tree.
        self.assertEqual(shapes[(1, "tree")], 176)
        # Of the first generation, the eleven namespaces known to lack a core are flat; the block
        # table puts 29 without a core and 126 with one, but does not say which, so the others
        # keep a core frame of unknown levels ("nest ?"), which a file without a core leaves
        # empty. Six nests are known: gamma 1.6.0 and the five of the lens shading family.
        self.assertEqual(shapes[(0, "flat")], 11)
        self.assertEqual(shapes[(0, "nest ?")], 138)
        self.assertEqual(shapes[(0, "nest 6")] + shapes[(0, "nest 7")], 6)
        self.assertLessEqual(shapes[(0, "flat")], 29)

    def test_engines_and_generations_of_the_instance_names(self):
        self.assertEqual(len(self.pipeline), 629)
        engines = collections.Counter(engine_of(instance.name, self.blocks)
                                      for instance in self.pipeline)
        self.assertEqual({engine: engines[engine] for engine in ENGINES}, ENGINES)
        # Four pipeline names carry no engine.
        self.assertEqual(engines[None], 4)
        names = {instance.name for instance in self.manager.instances}
        second = [name for name in names if name.endswith("_v2")]
        self.assertEqual(len(second), 342)
        self.assertEqual(sum(1 for name in second if name[:-len("_v2")] in names), 192)

    def test_every_pipeline_instance_has_the_type_its_name_selects(self):
        for instance in self.pipeline:
            with self.subTest(instance.name):
                namespace = namespace_by_rule(instance.name, self.blocks)
                self.assertEqual(instance.namespace, namespace)
                self.assertEqual(instance.type_name, instance.schema.modules[0].type_name)
        types = collections.Counter("%s::%s" % (i.namespace, i.type_name)
                                    for i in self.manager.instances)
        self.assertEqual(types["gamma_1_6_1::varitonal_gamma16Type"], 11)
        self.assertEqual(types["cst_1_2_0::varitonal_cst12Type"], 10)
        self.assertEqual(max(types.values()), 11)
        # Every block namespace is used by some instance.
        used = {instance.namespace for instance in self.pipeline}
        self.assertEqual({n.name for n in self.namespaces} - used, set())

    def test_every_manager_registers_its_whole_list(self):
        # The 3A, sensor, detection and network namespaces complete the tuning set: 629 pipeline
        # names over 340 namespaces, 131 algorithm names over 129 (two pairs share a type).
        types = {"%s::%s" % (i.namespace, i.type_name) for i in self.manager.instances}
        self.assertEqual((len(self.manager.instances), len(types)), (760, 469))
        sizes = {}
        for name in ("ImageSensorModuleSetManager", "fdSetManager", "bitmlSetManager"):
            manager = load_manager(os.path.join(LISTS, name + ".list"), [SCHEMAS])
            sizes[name] = len(manager.instances)
        self.assertEqual(sizes, {"ImageSensorModuleSetManager": 11, "fdSetManager": 2,
                                 "bitmlSetManager": 1})


if __name__ == "__main__":
    unittest.main()
