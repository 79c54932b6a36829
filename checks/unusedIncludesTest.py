#!/usr/bin/env python3
"""The check of unused includes can fail: small trees with one fault each, and one without."""

import pathlib
import tempfile
import unittest

import unusedIncludes

HEADER = """#pragma once
// Nothing but a comment names Ghost.
namespace tulo {
class Tree;
enum class Colour { red, green };
int heightOf(const Tree& tree);
inline constexpr int kDeepest = 7;
}
"""


class UnusedIncludesTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = pathlib.Path(self.folder.name)
        self.write("service/Tree.h", HEADER)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def faults(self):
        return unusedIncludes.check(self.root)[0]

    def testAnyNameOfTheHeaderIsAUse(self):
        for use in ("const Tree* tree;", "auto c = Colour::red;", "f(heightOf(t));", "int a[kDeepest];"):
            self.write("service/A.cpp", f'#include "service/Tree.h"\n{use}\n')
            self.assertEqual(self.faults(), [], use)

    def testAHeaderOfWhichNothingIsNamedFails(self):
        self.write("service/A.cpp", '#include "service/Tree.h"\nint a;\n')
        self.assertEqual(self.faults(), ['service/A.cpp:1: nothing of "service/Tree.h" is used'])

    def testACommentOrATextIsNoUse(self):
        self.write("service/A.cpp", '#include "service/Tree.h"\n// Tree\nconst char* a = "Tree";\n')
        self.assertEqual(len(self.faults()), 1)

    def testWhatAHeaderOnlySpeaksOfIsNotItsName(self):
        self.write("service/A.cpp", '#include "service/Tree.h"\nGhost a;\n')
        self.assertEqual(len(self.faults()), 1)

    def testTheOwnHeaderAndThatOfATestCount(self):
        self.write("service/Tree.cpp", '#include "service/Tree.h"\n')
        self.write("tests/service/TreeTest.cpp", '#include "service/Tree.h"\n')
        self.assertEqual(self.faults(), [])

    def testAStandardHeaderOfWhichNothingIsNamedFails(self):
        self.write("service/A.cpp", "#include <vector>\nint a;\n")
        self.assertEqual(self.faults(), ["service/A.cpp:1: nothing of <vector> is used"])
        self.write("service/A.cpp", "#include <vector>\nstd::vector<int> a;\n")
        self.assertEqual(self.faults(), [])

    def testAHeaderThatOnlyGathersCounts(self):
        self.write("service/All.h", '#pragma once\n#define VERSION 3\n#include <library.h>\n')
        self.write("service/A.cpp", '#include "service/All.h"\nint a;\n')
        self.assertEqual(self.faults(), [])

    def testAFixtureMayGatherWhatItsTestsUse(self):
        self.write("tests/service/TreeFixture.h", '#include "service/Tree.h"\nclass Fixture;\n')
        self.assertEqual(self.faults(), [])

    def testAReasonKeepsAnInclude(self):
        self.write("service/A.cpp", "#include <vector>  // keep: for a macro\nint a;\n")
        self.assertEqual(self.faults(), [])


if __name__ == "__main__":
    unittest.main()
