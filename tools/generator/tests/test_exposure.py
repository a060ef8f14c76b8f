"""The exposure modules' forms: a data bank whose rows carry a trigger system generates what its
types written out by hand would (over the catalogue's shared namespace, whose forms every exposure
module compiles), and a form that cannot be expanded is refused with its line."""

import os
import unittest

from goldencase import CATALOGUE, ROOT, paramgen_cli
from paramgen.schema import SchemaError
from test_family import FamilyCase

# A bank whose rows carry their own three-level tree, made level by level down to the payload.
BANK_FORMS = """\
namespace expobank
uses aecxglobalelements
type SpeedType
  speed  Float  float
type DBSpeedCoreData
  tolerance  UInt32  uint32
  trigger-system 3 databank levels SpeedLevel{n}DataType payload SpeedType
module AECXDBSpeedType version 10.0.0
  module_version     module_versionStruct
  parameter_version  parameter_versionStruct
  data-bank DBSpeedPayload DBSpeedCoreData dup 12
  extra  Float  float
"""

# The model the forms stand for, written out.
BANK_PLAIN = """\
namespace expobank
uses aecxglobalelements
type SpeedType
  speed  Float  float
type SpeedLevel3DataType
  trigger       aecxglobalelements::StartEndType
  trigger3Data  SpeedType
type SpeedLevel2DataType
  trigger       aecxglobalelements::StartEndType
  trigger3Data  SpeedLevel3DataType[]
type SpeedLevel1DataType
  trigger       aecxglobalelements::StartEndType
  trigger2Data  SpeedLevel2DataType[]
type DBSpeedCoreData
  tolerance  UInt32  uint32
  trigger1DataBank  aecxglobalelements::DataBankType
  trigger2DataBank  aecxglobalelements::DataBankType
  trigger3DataBank  aecxglobalelements::DataBankType
  trigger1Data  SpeedLevel1DataType[]
type DBSpeedPayload
  dataID       Int32  int32
  description  String
  value        DBSpeedCoreData
module AECXDBSpeedType version 10.0.0
  module_version     module_versionStruct
  parameter_version  parameter_versionStruct
  dataBank  aecxglobalelements::VaritonalBankDataType
  data      DBSpeedPayload[]  dup 12
  extra  Float  float
"""


class ExposureFormTest(FamilyCase):
    def generated(self, folder, text):
        """{file name: text without the banner} of the bank written into folder."""
        os.makedirs(os.path.join(self.folder.name, folder))
        path = self.write(os.path.join(folder, "expobank.schema"), text)
        _, made = paramgen_cli.generate(path, [CATALOGUE], ROOT)
        return {name: text.split("\n", 1)[1] for name, text in made.items()}

    def test_forms_generate_the_code_of_their_model(self):
        from_forms = self.generated("forms", BANK_FORMS)
        from_plain = self.generated("plain", BANK_PLAIN)
        self.assertEqual(sorted(from_forms), sorted(from_plain))
        for name in from_plain:
            with self.subTest(name):
                self.assertEqual(from_forms[name], from_plain[name])

    def test_mistakes_are_refused_with_the_form_line(self):
        head = "namespace expobank\nuses aecxglobalelements\ntype RowType\n"
        cases = {
            "no uses of the shared types": ("namespace expobank\ntype RowType\n"
                                            "  trigger-system 1 end E\n", 3),
            "neither end nor payload": (head + "  trigger-system 2\n", 4),
            "both end and payload": (head + "  trigger-system 2 end E payload P\n", 4),
            "four levels": (head + "  trigger-system 4 end E\n", 4),
            "pattern without a number": (head + "  trigger-system 2 end E levels Lvl\n", 4),
            "unknown option": (head + "  trigger-system 2 end E deep\n", 4),
            "form in an enumeration": ("namespace expobank\nuses aecxglobalelements\nenum e\n"
                                       "  data-bank Row\n", 4),
            "made row of another namespace": (head + "  x  Int32  int32\n"
                                                     "  data-bank other::Row RowType\n", 5),
        }
        for label, (text, line) in cases.items():
            with self.subTest(label):
                path = self.write("expobank.schema", text)
                with self.assertRaises(SchemaError) as caught:
                    self.catalogue().load_file(path)
                self.assertIn("expobank.schema:%d:" % line, str(caught.exception))


if __name__ == "__main__":
    unittest.main()
