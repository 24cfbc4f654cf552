"""The state database, read and written as any program may."""

import json
import os
import sqlite3
import time

STATE, RUN = "/run/state", "/run/vmagent"


class Database:
    """Read all the time, so that a change is seen when it is there."""

    def __init__(self):
        self.config = sqlite3.connect(f"{STATE}/config.db", isolation_level=None, timeout=30)
        self.config.execute("PRAGMA synchronous = FULL")
        self.status = sqlite3.connect(f"{RUN}/status.db", isolation_level=None, timeout=30)

    def commit(self, changes):
        """Writes configuration rows (None: deletes) as vmctl would; when it was committed."""
        self.config.execute("BEGIN IMMEDIATE")
        for name, document in changes.items():
            if document is None:
                self.config.execute("DELETE FROM record WHERE tbl = 'vmConfig' AND key = ?",
                                    (name,))
            else:
                self.config.execute(
                    "INSERT INTO record(tbl, key, doc) VALUES('vmConfig', ?, ?) "
                    "ON CONFLICT(tbl, key) DO UPDATE SET doc = excluded.doc",
                    (name, json.dumps(document)))
        self.config.execute("COMMIT")
        committed = time.perf_counter()
        os.close(os.open(f"{STATE}/config.db-bell", os.O_WRONLY | os.O_CREAT))
        return committed

    def row(self, table, name):
        """The status row's revision, which is new after each change, and its document."""
        row = self.status.execute("SELECT rev, doc FROM record WHERE tbl = ? AND key = ?",
                                  (table, name)).fetchone()
        return (row[0], json.loads(row[1])) if row else (0, {})

    def count(self, table):
        return self.status.execute("SELECT count(*) FROM record WHERE tbl = ?",
                                   (table,)).fetchone()[0]
