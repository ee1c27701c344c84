"""Runs Tolm as a CGI program under lighttpd on 127.0.0.1 for tests and demos.

A Site lays out a scratch directory:

  public/      lighttpd's document root (empty: pages are never served raw)
  cgi-bin/     Tolm (a symbolic link to the interpreter)
  site/        the pages (unless an existing directory is served); the
               root of the site's line in x.config
  home/        X_HOME with x.config
  tmp/         TMP_DIR (uploads, logs) and lighttpd's upload buffers

and serves http://127.0.0.1:PORT/cgi-bin/Tolm/PAGE, so that the page name
reaches the interpreter as PATH_INFO. Use it as a context manager:

    with Site(tolm, {"x.page": "hello $(name)"}) as site:
        status, headers, body = site.get("/cgi-bin/Tolm?name=you")
"""
import http.client
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time

CGI = "/cgi-bin/Tolm"


def lighttpd_path():
    path = shutil.which("lighttpd") or (
        "/usr/sbin/lighttpd" if os.access("/usr/sbin/lighttpd", os.X_OK) else None)
    if not path:
        sys.exit("lighttpd is not installed: run `make deps` "
                 "(or apt-get install -y lighttpd) first")
    return path


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Response:
    """Status, header lines (name, value) in order, and the body bytes."""

    def __init__(self, status, headers, body):
        self.status, self.headers, self.body = status, headers, body

    def header(self, name):
        return [v for k, v in self.headers if k.lower() == name.lower()]

    @property
    def text(self):
        return self.body.decode("utf-8", "replace")


class Site:
    def __init__(self, tolm, pages=None, root=None, config=None, env=None):
        """pages: {name: text} written into the scratch site; root: serve
        this directory instead; config: the text of x.config with {PORT}
        and {ROOT} filled in (default: one line for this server)."""
        self.tolm = os.path.abspath(tolm)
        self.pages = pages or {}
        self.root = os.path.abspath(root) if root else None
        self.config = config or "127.0.0.1:{PORT} {ROOT}\n"
        self.env = env or {}
        self.port_wanted = None  # a fixed port instead of a free one
        self.proc = None
        self.dir = None
        self.port = None

    # ---- set-up ---------------------------------------------------------
    def path(self, *parts):
        return os.path.join(self.dir, *parts)

    def write_pages(self):
        for name, text in self.pages.items():
            target = self.path("site", name)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            mode = "wb" if isinstance(text, bytes) else "w"
            with open(target, mode) as f:
                f.write(text)

    @property
    def site_root(self):
        return self.root or self.path("site")

    def write_config(self):
        with open(self.path("home", "x.config"), "w") as f:
            f.write(self.config.replace("{PORT}", str(self.port))
                    .replace("{ROOT}", self.site_root))
        env = {"X_HOME": self.path("home"), "TMP_DIR": self.path("tmp")}
        env.update(self.env)
        setenv = ", ".join('"%s" => "%s"' % kv for kv in env.items())
        conf = """
server.modules = ( "mod_alias", "mod_setenv", "mod_cgi" )
server.bind = "127.0.0.1"
server.port = %(port)d
server.document-root = "%(public)s"
server.upload-dirs = ( "%(tmp)s" )
server.errorlog = "%(tmp)s/lighttpd.error.log"
server.max-request-size = 65536
alias.url = ( "/cgi-bin/" => "%(cgi)s/" )
$HTTP["url"] =~ "^/cgi-bin/" { cgi.assign = ( "" => "" ) }
setenv.add-environment = ( %(setenv)s )
""" % {"port": self.port, "public": self.path("public"), "tmp": self.path("tmp"),
       "cgi": self.path("cgi-bin"), "setenv": setenv}
        with open(self.path("lighttpd.conf"), "w") as f:
            f.write(conf)

    def start(self):
        server = lighttpd_path()
        self.dir = os.path.realpath(tempfile.mkdtemp(prefix="tolm-site-"))
        for d in ("public", "cgi-bin", "site", "home", "tmp"):
            os.makedirs(self.path(d))
        os.symlink(self.tolm, self.path("cgi-bin", "Tolm"))
        self.port = self.port_wanted or free_port()
        self.write_pages()
        self.write_config()
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
        if self.proc and self.proc.poll() is None:
            self.proc.terminate()
            try:
                self.proc.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        self.proc = None
        if self.dir and not os.environ.get("TOLM_KEEP_SITE"):
            shutil.rmtree(self.dir, ignore_errors=True)

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc):
        self.stop()

    @property
    def url(self):
        return "http://127.0.0.1:%d%s" % (self.port, CGI)

    # ---- requests -------------------------------------------------------
    def request(self, method, target, body=None, headers=None, timeout=30):
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            conn.request(method, target, body=body, headers=headers or {})
            r = conn.getresponse()
            return Response(r.status, r.getheaders(), r.read())
        finally:
            conn.close()

    def get(self, target, headers=None):
        return self.request("GET", target, headers=headers)

    def post(self, target, body, content_type, headers=None):
        h = {"Content-Type": content_type}
        h.update(headers or {})
        return self.request("POST", target, body=body, headers=h)


def multipart(boundary, parts):
    """A multipart/form-data body: parts are (name, value) for fields and
    (name, filename, data) for files."""
    out = b""
    for p in parts:
        out += b"--" + boundary + b"\r\n"
        if len(p) == 2:
            out += b'Content-Disposition: form-data; name="%s"\r\n\r\n' % p[0] + p[1]
        else:
            out += (b'Content-Disposition: form-data; name="%s"; filename="%s"\r\n'
                    b"Content-Type: application/octet-stream\r\n\r\n" % (p[0], p[1]) + p[2])
        out += b"\r\n"
    return out + b"--" + boundary + b"--\r\n"


def run_checks(checks):
    """Runs each check (a function), prints its result and a closing count;
    returns the exit status."""
    passed = failed = 0
    for check in checks:
        try:
            check()
            print("ok   " + check.__name__)
            passed += 1
        except Exception as e:  # a failed assertion or a broken request
            print("FAIL %s: %s: %s" % (check.__name__, type(e).__name__, e))
            failed += 1
    print("%d passed, %d failed" % (passed, failed))
    return 1 if failed else 0


def expect(cond, what):
    if not cond:
        raise AssertionError(what)


def expect_eq(got, want, what=""):
    if got != want:
        raise AssertionError("%s\n  expected: %r\n  got:      %r" % (what, want, got))
