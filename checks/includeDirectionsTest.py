#!/usr/bin/env python3
"""The include check can fail: small trees with one fault each, and one without."""

import pathlib
import tempfile
import unittest

import includeDirections

PAGE = """
```arrows
low      ->
low/part -> low
high     -> low
```

```libraries
sqlite3.h : low
nlohmann/* : low/part
```
"""


class IncludeDirectionsTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = pathlib.Path(self.folder.name)
        self.write("docs/architecture.md", PAGE)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def faults(self):
        return includeDirections.check(self.root)[0]

    def testArrowsDownwardsPass(self):
        self.write("high/A.cpp", '#include "high/A.h"\n#include "low/B.h"\n#include <vector>\n')
        self.write("low/B.cpp", '#include <sqlite3.h>\n')
        self.write("low/part/C.cpp", '#include "low/B.h"\n#include <nlohmann/json.hpp>\n')
        self.assertEqual(includeDirections.check(self.root), ([], 3))

    def testAnArrowUpwardsFails(self):
        self.write("low/B.cpp", '\n#include "high/A.h"\n')
        self.assertEqual(self.faults(), ['low/B.cpp:2: "high/A.h": no arrow low -> high'])

    def testAStarStandsForAFolderAndItsListedParts(self):
        self.write("docs/architecture.md", PAGE.replace("high     -> low", "high -> low/*\nlone ->"))
        self.write("high/A.cpp", '#include "low/B.h"\n#include "low/part/C.h"\n')
        self.assertEqual(self.faults(), [])
        self.write("high/A.cpp", '#include "lone/D.h"\n')
        self.assertEqual(self.faults(), ['high/A.cpp:1: "lone/D.h": no arrow high -> lone'])

    def testAFolderDoesNotReachIntoItsListedPart(self):
        self.write("high/A.cpp", '#include "low/part/C.h"\n')
        self.assertEqual(self.faults(), ['high/A.cpp:1: "low/part/C.h": no arrow high -> low/part'])

    def testIndentedAndImportedHeadersAreRead(self):
        self.write("low/B.mm", '#if X\n  # import "high/A.h"\n#endif\n')
        self.assertEqual(len(self.faults()), 1)

    def testAnIncludeThatIsNotFromTheRootFails(self):
        self.write("high/A.cpp", '#include "A.h"\n')
        self.assertEqual(len(self.faults()), 1)

    def testAFolderThatThePageDoesNotListFails(self):
        self.write("elsewhere/A.cpp", '#include <vector>\n')
        self.assertEqual(len(self.faults()), 1)

    def testALibraryHeaderOutsideItsFoldersFails(self):
        self.write("high/A.cpp", '#include <sqlite3.h>\n#include <nlohmann/json.hpp>\n')
        self.assertEqual(len(self.faults()), 2)

    def testALibraryHeaderOfAFolderIsForItsPartsToo(self):
        self.write("low/part/C.cpp", '#include <sqlite3.h>\n')
        self.assertEqual(self.faults(), [])

    def testAPageWithoutArrowsIsAnError(self):
        self.write("docs/architecture.md", "# Nothing\n")
        with self.assertRaises(includeDirections.PageError):
            includeDirections.check(self.root)

    def testAnArrowToAnUnlistedFolderIsAnError(self):
        self.write("docs/architecture.md", PAGE.replace("high     -> low", "high -> lower"))
        with self.assertRaises(includeDirections.PageError):
            includeDirections.check(self.root)


if __name__ == "__main__":
    unittest.main()
