"""Lists the end-to-end test ids for ctest, one per line: the unittest id,
then a tab and "serial" for tests that need the foreground to themselves or
that load the whole machine (ctest runs those alone, with no other test
beside them)."""

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
    serial = getattr(type(test), "needs_foreground", False) or getattr(type(test), "loads_the_machine", False)
    print(test.id() + ("\tserial" if serial else ""))
