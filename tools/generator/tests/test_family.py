"""Block families: a family generates what a plain table of the same namespace would, versions
show only their differences, and the mistakes only the generator can see are refused with the
file and line to fix."""

import os
import tempfile
import unittest

from goldencase import CATALOGUE, ROOT, paramgen_cli
from paramgen.catalogue import Catalogue
from paramgen.managerlist import load_manager
from paramgen.report import gap_lines, report_line
from paramgen.schema import SchemaError
from paramgen.shape import describe


# Two versions of one block: a nest with a selector level and a renamed level type, and a tree.
FAMILY = """\
family blk
enable_section blk_enable
private_information
  trigger_pt_type  Enum  uint32

version 2.1.0 nest channel aec drc_gain
  name mod_blk21_aec_dataType  mod_blk21_exp_dataType
  region
    gain   Float  float
    tab lut  Int32  float[4]

version 2.1.1 tree
  region like 2.1.0
    - gain
    tab lut  Int32  float[8]
    extra  UInt32  uint32
"""

# What the family's rules make of the nest, written out by hand.
PLAIN = {
    "blk_2_1_0": """\
namespace blk_2_1_0
uses ispglobalelements
uses globalelements
type blk21_rgn_dataType
  gain  Float  float
  lut_tab  lut_tabStruct
    lut  Int32  float[4]
type mod_blk21_channel_dataType
  channel_type  Enum  uint32
  blk21_rgn_data  blk21_rgn_dataType
type mod_blk21_exp_dataType
  aec_trigger  globalelements::trigger_pt_type_aec
  aec_data  aec_dataStruct
    mod_blk21_channel_data  mod_blk21_channel_dataType[]  min 1 dup 8
type mod_blk21_drc_gain_dataType
  drc_gain_trigger  ispglobalelements::trigger_pt_type
  drc_gain_data  drc_gain_dataStruct
    mod_blk21_aec_data  mod_blk21_exp_dataType[]  min 1 dup 9
type varitonal_blk21_coreType
  mod_blk21_drc_gain_data  mod_blk21_drc_gain_dataType[]  min 1 dup 10
module varitonal_blk21Type class varitonal_blk21TypeClass version 2.1.0
  enable_section  enable_sectionStruct
    blk_enable  Int32  int32
  module_version  module_versionStruct
  parameter_version  parameter_versionStruct
  control_variables  control_variablesStruct
    control_var_type  Enum  ispglobalelements::trigger_types[2]
  control_method  control_methodStruct
    aec_exp_control  Enum  uint32
    aec_hdr_control  Enum  uint32
  private_information  private_informationStruct
    trigger_pt_type  Enum  uint32
  varitonal_blk21_core  varitonal_blk21_coreType
""",
}


class FamilyCase(unittest.TestCase):
    """Writes files into a temporary folder beside copies of nothing: the catalogue's shared
    namespaces and dimension table are found through the search path."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def write(self, name, text):
        path = os.path.join(self.folder.name, name)
        with open(path, "w", encoding="utf-8") as handle:
            handle.write(text)
        return path

    def catalogue(self):
        return Catalogue([self.folder.name, CATALOGUE])

    def generated(self, path):
        """{file name: text} of path without the banner, which names the source file."""
        _, outputs = paramgen_cli.generate(path, [CATALOGUE], ROOT, self.catalogue())
        return {name: text.split("\n", 1)[1] for name, text in outputs.items()}


class FamilyExpansionTest(FamilyCase):
    def test_family_generates_the_same_code_as_its_plain_tables(self):
        from_family = self.generated(self.write("blk.family", FAMILY))
        from_plain = {}
        for name, text in PLAIN.items():
            plain_folder = os.path.join(self.folder.name, "plain")
            os.makedirs(plain_folder, exist_ok=True)
            path = os.path.join(plain_folder, name + ".schema")
            with open(path, "w", encoding="utf-8") as handle:
                handle.write(text)
            _, outputs = paramgen_cli.generate(path, [CATALOGUE], ROOT)
            from_plain.update({n: t.split("\n", 1)[1] for n, t in outputs.items()})
        for name in from_plain:
            with self.subTest(name):
                self.assertEqual(from_family[name], from_plain[name])

    def test_one_line_names_every_block_of_a_repeated_namespace(self):
        path = self.write("ver.family", "family verA verB verC\nversion 1.0.0 flat\n"
                                        "  reserve\n    xsd_version  String\n")
        namespaces = self.catalogue().load_file(path)
        self.assertEqual([n.name for n in namespaces], ["verA_1_0_0", "verB_1_0_0", "verC_1_0_0"])
        self.assertEqual([n.modules[0].type_name for n in namespaces],
                         ["varitonal_verA10Type", "varitonal_verB10Type", "varitonal_verC10Type"])

    def test_tree_options_shape_the_leaf(self):
        path = self.write("blk.family", """\
family blk
region
  gain  Float  float
version 1.3.1 tree
  passes 4
  optional-region
  clone
version 1.4.1 tree
  dynamic_enable_triggers blk_enable
  reserve
    offset  Int32  int32
""")
        first, second = self.catalogue().load_file(path)
        node = first.find_type("triggerType")
        region = next(m for m in node.members if m.name == "region")
        self.assertEqual((region.shape, region.type.name), ("optional",
                                                          "mod_blk13_rgn_array_dataType"))
        passes = region.type.members[0]
        self.assertEqual((passes.name, passes.shape, passes.length, passes.type.name),
                         ("mod_blk13_pass_data", "fixed", 4, "mod_blk13_pass_dataType"))
        self.assertTrue(first.modules[0].clone)
        top = second.top_type(second.modules[0])
        self.assertEqual([m.name for m in top.members][-3:],
                         ["dynamic_enable_triggers", "varitonal_blk14_reserve",
                          "varitonal_blk14_core"])
        switch = top.members[-3].type.members[0]
        self.assertEqual([m.name for m in switch.type.members],
                         ["enable", "hyst_control_var", "hyst_mode", "hyst_trigger"])

    def test_manager_lists_find_namespaces_in_families(self):
        self.write("blk.family", FAMILY)
        path = self.write("BlkSetManager.list",
                          "manager BlkSetManager\nblk21_ife_v2  blk_2_1_1::varitonal_blk21Type\n")
        manager = load_manager(path, [self.folder.name, CATALOGUE])
        self.assertEqual(manager.instances[0].module.version, (2, 1, 1))
        self.assertIn(os.path.join(self.folder.name, "blk.family"), manager.schemas_read)

    def test_gaps_come_along_with_the_region_a_version_is_like(self):
        path = self.write("blk.family", FAMILY.replace(
            "    gain   Float  float\n", "    gain   Float  float\n    ... knee slope\n"))
        for namespace in self.catalogue().load_file(path):
            region = namespace.name + "::blk21_rgn_dataType  "
            self.assertEqual(gap_lines(namespace), [region + "knee", region + "slope"])

    def test_report_tells_a_flat_block_by_its_versioned_namespace(self):
        # A one-off module whose top type happens to start with varitonal_ is no block.
        text = "namespace %s\nmodule varitonal_x_type version 1.0.0\n  a  Int32  int32\n"
        shapes = [describe(self.catalogue().load_file(self.write(name + ".schema", text % name))[0])
                  for name in ("blk_1_0_0", "oneoff")]
        self.assertEqual(shapes, [(0, "flat"), ("-", "module")])

    def test_unknown_nest_and_open_top_are_frames_with_their_gaps(self):
        path = self.write("blk.family", """\
family blk
enable_section
  ...
region
  ... knee
version 3.0.0 nest ?
  open
version 3.0.1 tree
""")
        first, second = self.catalogue().load_file(path)
        self.assertEqual([report_line(n).split()[1:4] for n in (first, second)],
                         [["gen", "0", "nest"], ["gen", "1", "tree"]])
        self.assertEqual(describe(first), (0, "nest ?"))
        # The core and the top type are frames; control_var_type's length follows the unknown
        # levels, so it is a gap; control_method stays; no region is placed.
        top = first.top_type(first.modules[0])
        self.assertTrue(top.open)
        self.assertEqual([m.name for m in top.members],
                         ["enable_section", "module_version", "parameter_version",
                          "control_variables", "control_method", "varitonal_blk30_core"])
        core = top.members[-1].type
        self.assertEqual((core.open, core.members), (True, []))
        self.assertEqual(gap_lines(first),
                         ["blk_3_0_0::varitonal_blk30Type::control_variablesStruct  "
                          "control_var_type"])
        self.assertIsNone(first.find_type("blk30_rgn_dataType"))
        self.assertFalse(second.top_type(second.modules[0]).open)
        self.assertEqual(gap_lines(second), ["blk_3_0_1::blk30_rgn_dataType  knee"])


class FamilyCheckTest(FamilyCase):
    def test_mistakes_are_refused_with_the_family_line(self):
        base = "family blk\nregion\n  gain  Float  float\n"
        cases = {
            "unknown dimension": (base + "version 1.0.0 nest aec zoom\n", 4),
            "nest of the second generation": (base + "version 1.0.1 nest aec\n", 4),
            "tree of the first generation": (base + "version 1.0.0 tree\n", 4),
            "override of nothing": (base + "version 1.0.1 tree\n  name mod_blk10_x mod_y\n", 5),
            "member twice in a region": (base + "version 1.0.1 tree\n  region\n"
                                                "    a  Float  float\n    a  Int32  int32\n", 7),
            "removing what the base lacks": (base + "version 1.0.1 tree\nversion 1.1.1 tree\n"
                                                    "  region like 1.0.1\n    - other\n", 7),
            "like an unknown version": (base + "version 1.0.1 tree\n  region like 9.9.9\n", 5),
            "dup taken twice in a holder": (base + "version 1.0.1 tree\n  region\n"
                                                   "    a  Float  float[]  dup 20\n"
                                                   "    b  Float  float[]  dup 20\n", 7),
            "top type as a member": (base + "version 1.0.1 tree\n  region\n"
                                            "    a  gamma_1_6_1::varitonal_gamma16Type\n"
                                            "uses gamma_1_6_1\n", 6),
            "unknown section": (base + "version 1.0.1 tree\n  regions\n    a  Float  float\n",
                                5),
            "unknown nest among dimensions": (base + "version 1.0.0 nest aec ?\n", 4),
            "region under an unknown nest": (base + "version 1.0.0 nest ?\n  region\n"
                                                    "    a  Float  float\n", 5),
        }
        for label, (text, line) in cases.items():
            with self.subTest(label):
                path = self.write("blk.family", text)
                with self.assertRaises(SchemaError) as caught:
                    self.catalogue().load_file(path)
                self.assertIn("blk.family:%d:" % line, str(caught.exception))

    def test_control_var_type_must_match_the_nest_depth(self):
        table = PLAIN["blk_2_1_0"].replace("trigger_types[2]", "trigger_types[3]")
        path = self.write("blk_2_1_0.schema", table)
        with self.assertRaises(SchemaError) as caught:
            self.catalogue().load_file(path)
        self.assertIn("blk_2_1_0.schema:27: control_var_type has 3 entries but the core nests 2",
                      str(caught.exception))


if __name__ == "__main__":
    unittest.main()
