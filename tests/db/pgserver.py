"""A throw-away PostgreSQL server for the tests: initdb in a temporary
directory, listening only on a Unix socket in that directory. As root the
server runs as the postgres (or nobody) user, since PostgreSQL refuses root.

    with PgServer() as pg:      # pg.env: PGHOST, PGUSER, PGDATABASE
        ...
PgServer.binaries() is None when no server binaries are installed.
"""
import glob
import os
import pwd
import shutil
import subprocess
import tempfile


class PgServer:
    @staticmethod
    def binaries():
        found = sorted(glob.glob("/usr/lib/postgresql/*/bin/pg_ctl"))
        return os.path.dirname(found[-1]) if found else None

    def __init__(self):
        self.bin = self.binaries()
        self.dir = None
        self.env = {}

    def _as_owner(self, args):
        if os.getuid() != 0:
            return args
        return ["runuser", "-u", self.user, "--"] + args

    def start(self):
        self.dir = tempfile.mkdtemp(prefix="tolm-pg-")
        self.user = None
        if os.getuid() == 0:
            for name in ("postgres", "nobody"):
                try:
                    pw = pwd.getpwnam(name)
                except KeyError:
                    continue
                self.user = name
                os.chown(self.dir, pw.pw_uid, pw.pw_gid)
                break
        data = os.path.join(self.dir, "data")
        quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.STDOUT, "check": True,
                 "cwd": self.dir}
        subprocess.run(self._as_owner([os.path.join(self.bin, "initdb"), "-D", data, "-A",
                                       "trust", "-U", "tolm", "-E", "UTF8", "--no-sync"]),
                       **quiet)
        opts = "-k %s -c listen_addresses='' -c fsync=off -c max_connections=120" % self.dir
        subprocess.run(self._as_owner([os.path.join(self.bin, "pg_ctl"), "-D", data, "-o", opts,
                                       "-l", os.path.join(self.dir, "log"), "-w", "start"]),
                       **quiet)
        self.env = {"PGHOST": self.dir, "PGUSER": "tolm", "PGDATABASE": "postgres"}
        return self

    def _stop_args(self, mode):
        return self._as_owner([os.path.join(self.bin, "pg_ctl"), "-D",
                               os.path.join(self.dir, "data"), "-m", mode, "-w", "stop"])

    def stop_command(self):
        """A shell command that stops the server at once, for a page to run."""
        return " ".join(self._stop_args("immediate")) + " >/dev/null 2>&1"

    def stop(self, mode="immediate"):
        if self.dir and os.path.isdir(os.path.join(self.dir, "data")):
            subprocess.run(self._stop_args(mode), stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, cwd=self.dir)

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.stop()
        shutil.rmtree(self.dir, ignore_errors=True)
