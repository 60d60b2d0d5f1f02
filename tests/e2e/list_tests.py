"""Lists the end-to-end test ids for ctest, one per line: the unittest id,
then, for a test that needs something to itself, a tab and its kind:
"machine" for tests that load the whole machine (ctest runs those alone) and
"screen" for tests that need which window is in front, or the screen, to
themselves (ctest runs those one at a time on the screen lane's display)."""

import os
import sys
import unittest

here = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, here)


def walk(suite):
    for item in suite:
        if isinstance(item, unittest.TestSuite):
            yield from walk(item)
        else:
            yield item


for test in walk(unittest.defaultTestLoader.discover(here, pattern="test_*.py", top_level_dir=here)):
    if type(test).__name__ in ("_FailedTest", "ModuleImportFailure"):
        raise SystemExit("cannot import %s" % test.id())
    if getattr(type(test), "loads_the_machine", False):
        print(test.id() + "\tmachine")
    elif getattr(type(test), "needs_foreground", False):
        print(test.id() + "\tscreen")
    else:
        print(test.id())
