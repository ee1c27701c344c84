#!/usr/bin/env python3
"""make install and make uninstall into a scratch DESTDIR with a PREFIX of
/usr: the binary runs from its new place, the manual page names the docs
under that prefix and renders without warnings, and uninstall leaves no file.

    install_test.py SOURCE_DIR BUILD_DIR
"""
import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))
from server import expect, expect_eq, run_checks  # noqa: E402


def main(src, build):
    dest = tempfile.mkdtemp(prefix="tolm-install-")
    usr = os.path.join(dest, "usr")

    def make(target):
        r = subprocess.run(["make", "-s", "-C", src, target, "DESTDIR=" + dest,
                            "PREFIX=/usr", "BUILD=" + build], capture_output=True, text=True)
        expect_eq(r.returncode, 0, "make %s: %s%s" % (target, r.stdout, r.stderr))

    def files():
        return sorted(os.path.relpath(os.path.join(d, f), dest)
                      for d, _, fs in os.walk(dest) for f in fs)

    def install_places_every_file():
        make("install")
        got = files()
        for want in ("usr/bin/Tolm", "usr/bin/tolm-pg", "usr/share/man/man1/tolm.1",
                     "usr/share/doc/tolm/pages.md", "usr/share/doc/tolm/commands.md",
                     "usr/share/doc/tolm/servers/nginx.conf"):
            expect(want in got, "%s not installed: %s" % (want, got))
        expect(os.access(os.path.join(usr, "bin", "Tolm"), os.X_OK), "Tolm not executable")
        r = subprocess.run([os.path.join(usr, "bin", "Tolm"), "--version"],
                           capture_output=True, text=True)
        expect_eq((r.returncode, r.stdout), (0, "Tolm v.8.7-8\n"), "installed --version")

    def manual_page_names_the_prefix():
        with open(os.path.join(usr, "share", "man", "man1", "tolm.1")) as f:
            text = f.read()
        expect("/usr/share/doc/tolm/pages.md" in text and "/usr/local" not in text, text)
        if shutil.which("man"):
            r = subprocess.run(["man", "--warnings", "-l", "-"], input=text,
                               capture_output=True, text=True,
                               env=dict(os.environ, MANWIDTH="80", LANG="C.UTF-8"))
            expect_eq(r.stderr, "", "man page warnings")
            expect("Tolm page [-name value ...]" in r.stdout, r.stdout)

    def uninstall_removes_every_file():
        make("uninstall")
        expect_eq(files(), [], "left after uninstall")

    try:
        return run_checks([install_places_every_file, manual_page_names_the_prefix,
                           uninstall_removes_every_file])
    finally:
        shutil.rmtree(dest, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main(os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])))
