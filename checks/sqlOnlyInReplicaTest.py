#!/usr/bin/env python3
"""The SQL check can fail: small trees with one fault each, and one without."""

import pathlib
import tempfile
import unittest

import sqlOnlyInReplica


class SqlOnlyInReplicaTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = pathlib.Path(self.folder.name)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def faults(self, text):
        self.write("service/room/A.cpp", text)
        return sqlOnlyInReplica.check(self.root)[0]

    def testTheReplicaMayHaveSql(self):
        self.write("service/replica/A.cpp",
                   '#include "sqlite/Connection.h"\nauto sql = "DELETE FROM node WHERE id=?";\n')
        self.assertEqual(sqlOnlyInReplica.check(self.root), ([], 0))

    def testTheProbeOfTheHostsIndexMayHaveSql(self):
        text = '#include "sqlite/Connection.h"\nauto sql = "SELECT count(*) FROM items";\n'
        self.write("service/listing/IndexProbe.cpp", text)
        self.assertEqual(sqlOnlyInReplica.check(self.root), ([], 0))
        self.write("service/listing/Lister.cpp", text)
        self.assertEqual(len(sqlOnlyInReplica.check(self.root)[0]), 2)

    def testOtherFoldersAreNotLookedAt(self):
        self.write("host/A.cpp", 'auto sql = "DELETE FROM node";\n')
        self.assertEqual(sqlOnlyInReplica.check(self.root), ([], 0))

    def testCodeThatAsksTheReplicaPasses(self):
        self.assertEqual(self.faults(
            '#include "sqlite/DatabaseError.h"\n'
            '// SELECT what is to be shown; sqlite3_step is elsewhere\n'
            'try { nodeContents::markDirty(writer, id); }\n'
            'catch (const sqlite::DatabaseError& e) { log("cannot UPDATE the row, DELETE it"); }\n'
            'auto c = \'"\';\n'), [])

    def testAStatementFails(self):
        self.assertEqual(self.faults('\nx("UPDATE node SET state=2 WHERE id=?");\n'),
                         ["service/room/A.cpp:2: SQL: UPDATE node SET state=2 WHERE id=?"])

    def testEveryKindOfStatementFails(self):
        for sql in ("SELECT id FROM node", "SELECT 1", "INSERT INTO link VALUES (?,?)",
                    "INSERT OR IGNORE INTO local_time VALUES (?)", "DELETE FROM content",
                    "CREATE TABLE t (x)", "DROP INDEX i", "PRAGMA user_version", "ROLLBACK",
                    "BEGIN IMMEDIATE", "SAVEPOINT one",
                    "WITH RECURSIVE up(id) AS (VALUES (1))", " WHERE parent=? ", " ORDER BY id"):
            with self.subTest(sql):
                self.assertEqual(len(self.faults(f'x("{sql}");\n')), 1)

    def testAStatementInSeveralPiecesIsOneFault(self):
        self.assertEqual(len(self.faults('x("UPDATE node "\n  // why\n  "SET state=2");\n')), 1)

    def testARawStringFails(self):
        self.assertEqual(len(self.faults('x(R"(\nSELECT id\nFROM node)");\n')), 1)

    def testSqliteItselfFails(self):
        self.assertEqual(len(self.faults("int r = sqlite3_step(s);\n")), 1)
        self.assertEqual(len(self.faults("sqlite3* database;\n")), 1)

    def testTheWrapperFails(self):
        self.assertEqual(len(self.faults("void f(sqlite::Connection& database);\n")), 1)
        self.assertEqual(len(self.faults("tulo::sqlite::Statement s;\n")), 1)

    def testTheWayToTheConnectionFails(self):
        self.assertEqual(len(self.faults("sqlOf(writer);\n")), 1)

    def testAHeaderFails(self):
        for header in ('"sqlite/Connection.h"', "<sqlite3.h>", '"service/replica/Sql.h"'):
            with self.subTest(header):
                self.assertEqual(len(self.faults(f"#include {header}\n")), 1)


if __name__ == "__main__":
    unittest.main()
