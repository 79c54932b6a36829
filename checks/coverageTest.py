#!/usr/bin/env python3
"""How lines are counted that several object files have."""

import pathlib
import unittest

import coverage


def report(folder, **files):
    return {"current_working_directory": folder,
            "files": [{"file": name.replace("_", "/") + ".h",
                       "lines": [{"line_number": n, "count": c} for n, c in lines.items()]}
                      for name, lines in files.items()]}


class CoverageTest(unittest.TestCase):
    root = pathlib.Path("/tree")

    def testALineHasRunWhenItHasInAnyProgram(self):
        files = coverage.linesRun([report("/tree", low_A={1: 0, 2: 0}),
                                   report("/tree", low_A={1: 3, 3: 0})], self.root)
        self.assertEqual(files, {"low/A.h": {1: True, 2: False, 3: False}})

    def testPathsAreThoseOfTheFolderThatWasCompiledIn(self):
        files = coverage.linesRun([{"current_working_directory": "/tree/build/x",
                                    "files": [{"file": "../../low/A.cpp",
                                               "lines": [{"line_number": 1, "count": 1}]}]}],
                                  self.root)
        self.assertEqual(list(files), ["low/A.cpp"])

    def testWhatIsOutsideTheTreeDoesNotCount(self):
        self.assertEqual(coverage.linesRun([report("/usr", include_A={1: 1})], self.root), {})

    def testAFolderIsTheSumOfItsFilesAndTestsAreNone(self):
        files = {"low/A.h": {1: True, 2: False}, "low/B.h": {1: True}, "low/part/C.h": {1: False},
                 "tests/D.cpp": {1: True}}
        self.assertEqual(dict(coverage.foldersOf(files, ["low", "low/part", "tests"])),
                         {"low": (2, 3), "low/part": (0, 1)})

    def testABuildInWhichNothingRanIsAnError(self):
        with self.assertRaises(coverage.CoverageError):
            list(coverage.reportsOf(pathlib.Path("/nonexistent")))


if __name__ == "__main__":
    unittest.main()
