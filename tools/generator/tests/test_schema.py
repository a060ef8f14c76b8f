"""Reading schema tables: dup type numbering and the mistakes a hand-written table makes."""

import unittest

import goldencase  # noqa: F401 (the generator's package on the import path)
from paramgen.schema import SchemaError, parse, resolve


def load(text, used=None):
    namespace = parse("test.schema", text)
    used = used or {}

    def loader(name):
        if name not in used:
            raise SchemaError("no %s" % name)
        return used[name]

    resolve(namespace, loader)
    return namespace


def locs(namespace):
    return {(decl.name, member.name): member.loc
            for decl in namespace.all_types() for member in decl.members if member.is_pointer}


class DupTypeTest(unittest.TestCase):
    def test_pointer_members_are_numbered_from_eight_in_emission_order(self):
        cases = {
            # An inline structure is emitted ahead of the type that holds it.
            "inline structure first": ("""
type leafType
  values  Float  float[]
type outerType
  label   String
  inner   innerStruct
    items  leafType[] min 0
  names   String[]
""", {("leafType", "values"): 8, ("innerStruct", "items"): 9, ("outerType", "label"): 10,
      ("outerType", "names"): 11}),
            "pinned numbers kept and skipped": ("""
type aType
  first   Float  float[]
  second  Float  float[]  dup 9
  third   String
""", {("aType", "first"): 8, ("aType", "second"): 9, ("aType", "third"): 10}),
            "no number for non-pointers": ("""
type aType
  scalar   Float  float
  fixed    Float  float[4]
  optional Float  float?
  counted  Float  float[]
""", {("aType", "counted"): 8}),
        }
        for label, (text, expected) in cases.items():
            with self.subTest(label):
                self.assertEqual(locs(load("namespace dups" + text)), expected)


class SchemaErrorTest(unittest.TestCase):
    def test_mistakes_are_refused_with_their_line(self):
        cases = {
            "unknown type": ("namespace n\ntype a\n  x  missingType\n", ":3:"),
            "used before declared":
                ("namespace n\ntype a\n  x  bType\ntype bType\n  y  Float  float\n", ":3:"),
            "float name on int": ("namespace n\ntype a\n  x  Float  int32\n", ":3:"),
            "enum on float": ("namespace n\ntype a\n  x  Enum  float\n", ":3:"),
            "unknown option": ("namespace n\ntype a\n  x  Float  float  maybe\n", ":3:"),
            "min on a scalar": ("namespace n\ntype a\n  x  Float  float  min 1\n", ":3:"),
            "dup on a scalar": ("namespace n\ntype a\n  x  Float  float  dup 9\n", ":3:"),
            "repeated member": ("namespace n\ntype a\n  x  Float  float\n  x  Float  float\n",
                                ":4:"),
            "count clash": ("namespace n\ntype a\n  x  Float  float[]\n  xCount  UInt32  uint32\n",
                            ":3:"),
            "tab": ("namespace n\ntype a\n\tx  Float  float\n", ":3:"),
            "no version": ("namespace n\nmodule aType\n  x  Float  float\n", ":2:"),
            "unused namespace": ("namespace n\ntype a\n  x  other::bType\n", ":3:"),
            "self without array": ("namespace n\ntype a\n  x  a\n", ":3:"),
            "counted narrow numbers": ("namespace n\ntype a\n  x  UInt16  uint16[]\n", ":3:"),
            "gap of a declared member": ("namespace n\ntype a\n  x  Float  float\n  ... x\n",
                                         ":4:"),
            "member after its gap": ("namespace n\ntype a\n  ... x\n  x  Float  float\n", ":4:"),
            "gap not a name": ("namespace n\ntype a\n  ... x-1\n", ":3:"),
        }
        for label, (text, where) in cases.items():
            with self.subTest(label):
                with self.assertRaises(SchemaError) as caught:
                    load(text)
                self.assertIn("test.schema" + where, str(caught.exception))

    def test_keywords_keep_their_schema_name_on_paths(self):
        namespace = load("namespace n\ntype a\n  default  UInt8  uint8\n  Load  Float  float\n")
        members = namespace.types[0].members
        self.assertEqual([(m.name, m.cpp_name) for m in members],
                         [("default", "default_"), ("Load", "Load_")])

    def test_used_namespaces_resolve_types_and_enumerations(self):
        shared = load("namespace shared\nenum kinds\n  lux\ntype pointType\n  x  Float  float\n")
        namespace = load("namespace n\nuses shared\ntype a\n  p  shared::pointType[] min 0\n"
                         "  k  Enum  shared::kinds\n", {"shared": shared})
        point, kind = namespace.types[0].members
        self.assertIs(point.type, shared.types[0])
        self.assertIs(kind.enum, shared.enums[0])


if __name__ == "__main__":
    unittest.main()
