"""What the generator's tests share: the generator's folders on the import path, the golden
folder, the repository root, the catalogue's schema folder, and the command-line script loaded as
a module."""

import importlib.util
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))

GOLDEN = os.path.join(HERE, "golden")
ROOT = os.path.abspath(os.path.join(HERE, "..", "..", ".."))
CATALOGUE = os.path.join(ROOT, "parametermodules", "schemas")

# The command-line script shares its name with the package beside it: load it by path.
_spec = importlib.util.spec_from_file_location("paramgen_cli", os.path.join(HERE, "..",
                                                                            "paramgen.py"))
paramgen_cli = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(paramgen_cli)
