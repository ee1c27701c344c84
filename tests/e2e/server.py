"""Runs Tolm as a CGI program under lighttpd on 127.0.0.1 for tests and demos.

A Site lays out a scratch directory: public/ (lighttpd's empty document
root), cgi-bin/Tolm (a link to the interpreter), site/ (the pages, unless an
existing directory is served), home/ (X_HOME with x.config) and tmp/
(TMP_DIR), and serves http://127.0.0.1:PORT/cgi-bin/Tolm/PAGE, so that the
page name reaches the interpreter as PATH_INFO:

    with Site(tolm, {"x.page": "hello $(name)"}) as site:
        r = site.get("/cgi-bin/Tolm?name=you")
"""
import http.client
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

CGI = "/cgi-bin/Tolm"

LIGHTTPD_CONF = """
server.modules = ( "mod_alias", "mod_setenv", "mod_cgi" )
server.bind = "127.0.0.1"
server.port = %(port)d
server.document-root = "%(dir)s/public"
server.upload-dirs = ( "%(dir)s/tmp" )
server.errorlog = "%(dir)s/tmp/lighttpd.error.log"
server.breakagelog = "%(dir)s/tmp/cgi.log"
server.max-request-size = 65536
alias.url = ( "/cgi-bin/" => "%(dir)s/cgi-bin/" )
$HTTP["url"] =~ "^/cgi-bin/" { cgi.assign = ( "" => "" ) }
setenv.add-environment = ( "X_HOME" => "%(dir)s/home", "TMP_DIR" => "%(dir)s/tmp" )
"""


def server_path(name, package):
    """The path of the web server NAME (on PATH or in /usr/sbin); ends the
    test with advice when Debian's PACKAGE is not installed."""
    fallback = "/usr/sbin/" + name
    path = shutil.which(name) or (fallback if os.access(fallback, os.X_OK) else None)
    if not path:
        sys.exit("%s is not installed: run `make deps` (or apt-get install -y %s) first"
                 % (name, package))
    return path


def lighttpd_path():
    return server_path("lighttpd", "lighttpd")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Response:
    """Status, header lines (name, value) in order, and the body bytes."""

    def __init__(self, status, headers, body):
        self.status, self.headers, self.body = status, headers, body
        self.text = body.decode("utf-8", "replace")

    def header(self, name):
        return [v for k, v in self.headers if k.lower() == name.lower()]


def end_process(p, sig=signal.SIGTERM, timeout=10):
    """Asks the process P (or None) to end with SIG, kills it after TIMEOUT
    seconds, and returns its exit status."""
    if p is None:
        return None
    if p.poll() is None:
        p.send_signal(sig)
        try:
            p.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            p.kill()
            p.wait()
    return p.returncode


class Site:
    def __init__(self, tolm, pages=None, root=None, config=None, settings=None, files=None):
        """pages: {name: text} written into the scratch site; root: serve this
        directory instead; config: the text of x.config with {PORT} and
        {ROOT} filled in (default: one line for this server); settings: the
        text of x.site (default: none); files: more {path under the scratch
        directory: text}, {DIR} filled in."""
        self.tolm = os.path.abspath(tolm)
        self.pages = pages or {}
        self.root = os.path.abspath(root) if root else None
        self.config = config or "127.0.0.1:{PORT} {ROOT}\n"
        self.settings = settings
        self.files = files or {}
        self.port_wanted = None  # a fixed port instead of a free one
        self.proc = self.dir = self.port = None

    def path(self, *parts):
        return os.path.join(self.dir, *parts)

    @property
    def site_root(self):
        return self.root or self.path("site")

    @property
    def url(self):
        return "http://127.0.0.1:%d%s" % (self.port, CGI)

    def write(self, name, text):
        os.makedirs(os.path.dirname(name), exist_ok=True)
        with open(name, "wb" if isinstance(text, bytes) else "w") as f:
            f.write(text)

    def write_files(self):
        for name, text in self.files.items():
            self.write(self.path(name), text.replace("{DIR}", self.dir))

    def start(self):
        server = lighttpd_path()
        self.dir = os.path.realpath(tempfile.mkdtemp(prefix="tolm-site-"))
        for d in ("public", "cgi-bin", "site", "home", "tmp"):
            os.makedirs(self.path(d))
        os.symlink(self.tolm, self.path("cgi-bin", "Tolm"))
        self.port = self.port_wanted or free_port()
        for name, text in self.pages.items():
            self.write(self.path("site", name), text)
        self.write(self.path("home", "x.config"), self.config.replace(
            "{PORT}", str(self.port)).replace("{ROOT}", self.site_root))
        if self.settings is not None:
            self.write(self.path("home", "x.site"), self.settings)
        self.write_files()
        self.write(self.path("lighttpd.conf"), LIGHTTPD_CONF % {"port": self.port,
                                                                "dir": self.dir})
        self.proc = subprocess.Popen([server, "-D", "-f", self.path("lighttpd.conf")],
                                     stdin=subprocess.DEVNULL)
        deadline = time.time() + 10
        while time.time() < deadline:
            if self.proc.poll() is not None:
                raise RuntimeError("lighttpd stopped at start-up: see "
                                   + self.path("tmp", "lighttpd.error.log"))
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=0.2).close()
                return self
            except OSError:
                time.sleep(0.05)
        self.stop()
        raise RuntimeError("lighttpd did not answer on port %d" % self.port)

    def stop(self):
        end_process(self.proc)
        self.proc = None
        if self.dir and not os.environ.get("TOLM_KEEP_SITE"):
            shutil.rmtree(self.dir, ignore_errors=True)

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.stop()

    def get(self, target, headers=None):
        return self.request("GET", target, None, headers or {})

    def post(self, target, body, content_type):
        return self.request("POST", target, body, {"Content-Type": content_type})

    def request(self, method, target, body, headers):
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        try:
            conn.request(method, target, body=body, headers=headers)
            r = conn.getresponse()
            return Response(r.status, r.getheaders(), r.read())
        finally:
            conn.close()


def multipart(boundary, parts):
    """A multipart/form-data body: parts are (name, value) for fields and
    (name, filename, data) for files."""
    out = b""
    for p in parts:
        out += b'--%s\r\nContent-Disposition: form-data; name="%s"' % (boundary, p[0])
        if len(p) == 2:
            out += b"\r\n\r\n" + p[1] + b"\r\n"
        else:
            out += (b'; filename="%s"\r\nContent-Type: application/octet-stream\r\n\r\n'
                    % p[1] + p[2] + b"\r\n")
    return out + b"--" + boundary + b"--\r\n"


def run_checks(checks):
    """Runs each check, prints its result and a count; returns the exit status."""
    failed = 0
    for check in checks:
        try:
            check()
            print("ok   " + check.__name__)
        except Exception as e:  # a failed assertion or a broken request
            print("FAIL %s: %s: %s" % (check.__name__, type(e).__name__, e))
            failed += 1
    print("%d passed, %d failed" % (len(checks) - failed, failed))
    return 1 if failed else 0


def expect(cond, what):
    if not cond:
        raise AssertionError(what)


def expect_eq(got, want, what=""):
    if got != want:
        raise AssertionError("%s\n  expected: %r\n  got:      %r" % (what, want, got))
