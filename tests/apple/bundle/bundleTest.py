#!/usr/bin/env python3
"""Checks the property lists of the macOS bundle as the build fills them in.

usage: bundleTest.py INFO-PLIST ENTITLEMENTS VERSION HOST-IDENTIFIER TEAM
"""

import plistlib
import sys
import unittest


class BundleTest(unittest.TestCase):
    info, entitlements = {}, {}
    version = host = team = ""

    def test_the_version_is_the_projects(self):
        self.assertEqual(self.info["CFBundleShortVersionString"], self.version)
        self.assertEqual(self.info["CFBundleVersion"], self.version)

    # The system loads an extension only inside an application whose identifier begins its own.
    def test_the_identifier_begins_with_the_hosts(self):
        self.assertEqual(self.info["CFBundleIdentifier"], self.host + ".fileprovider")

    def test_it_is_an_extension_for_the_oldest_system_that_has_them(self):
        self.assertEqual(self.info["CFBundlePackageType"], "XPC!")
        self.assertEqual(self.info["LSMinimumSystemVersion"], "11.0")
        self.assertEqual(self.info["CFBundleExecutable"], "TuloFileProvider")

    def test_the_system_finds_the_class_by_its_plain_name(self):
        self.assertEqual(self.info["NSExtension"], {
            "NSExtensionPointIdentifier": "com.apple.fileprovider-nonui",
            "NSExtensionPrincipalClass": "FileProviderExtension",
            "NSExtensionFileProviderDocumentGroup": f"{self.team}.{self.host}",
            "NSExtensionFileProviderSupportsEnumeration": True,
        })

    def test_the_sandbox_has_the_group_of_the_bundle(self):
        self.assertEqual(self.entitlements, {
            "com.apple.security.app-sandbox": True,
            "com.apple.security.application-groups": [f"{self.team}.{self.host}"],
        })


def main(arguments):
    if len(arguments) != 6:
        sys.exit(__doc__)
    with open(arguments[1], "rb") as info, open(arguments[2], "rb") as entitlements:
        BundleTest.info, BundleTest.entitlements = plistlib.load(info), plistlib.load(entitlements)
    BundleTest.version, BundleTest.host, BundleTest.team = arguments[3:]
    unittest.main(argv=arguments[:1])


if __name__ == "__main__":
    main(sys.argv)
