#!/usr/bin/env python3
"""What a check of the tree ends with: by its faults, and never well without having read anything."""

import contextlib
import io
import pathlib
import sys
import tempfile
import unittest

import treeCheck


class TreeCheckTest(unittest.TestCase):
    def run_with(self, look, errors=()):
        """The exit status, and what was printed to either side."""
        output, complaints = io.StringIO(), io.StringIO()
        with tempfile.TemporaryDirectory() as folder:
            arguments, sys.argv = sys.argv, ["check.py", "--root", folder]
            try:
                with contextlib.redirect_stdout(output), contextlib.redirect_stderr(complaints):
                    status = treeCheck.run("What it does.", look, errors)
            finally:
                sys.argv = arguments
        return status, output.getvalue(), complaints.getvalue()

    def testATreeWithoutFaultsIsFine(self):
        self.assertEqual(self.run_with(lambda root: ([], 3, ["3 files read"])),
                         (0, "3 files read\n", ""))

    def testFaultsComeFirstAndMakeItFail(self):
        self.assertEqual(self.run_with(lambda root: (["a.cpp:1: wrong"], 3, ["3 files read"])),
                         (1, "a.cpp:1: wrong\n3 files read\n", ""))

    def testNothingToReadIsNoSuccess(self):
        status, output, complaint = self.run_with(lambda root: ([], 0, ["0 files read"]))
        self.assertEqual((status, output), (2, ""))
        self.assertIn("check.py: no source file below", complaint)

    def testWhatACheckCannotReadIsSaid(self):
        def look(root):
            raise ValueError("brackets do not match")
        self.assertEqual(self.run_with(look, (ValueError,)),
                         (2, "", "check.py: brackets do not match\n"))

    def testAnotherErrorIsADefectOfTheCheck(self):
        def look(root):
            raise KeyError(str(root))
        with self.assertRaises(KeyError):
            self.run_with(look, (ValueError,))

    def testItLooksAtTheGivenRoot(self):
        seen = []
        self.run_with(lambda root: seen.append(root) or ([], 1, []))
        self.assertTrue(seen[0].is_absolute())
        self.assertNotEqual(seen[0], pathlib.Path(__file__).resolve().parent.parent)


if __name__ == "__main__":
    unittest.main()
