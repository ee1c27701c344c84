"""Web servers on 127.0.0.1 for tests, demos and benchmarks.

A Site lays out a scratch directory: public/ (the empty document root),
cgi-bin/Tolm (a link to the interpreter), site/ (the pages, unless an
existing directory is served), home/ (X_HOME with x.config) and tmp/
(TMP_DIR), runs Tolm as a CGI program under lighttpd and serves
http://127.0.0.1:PORT/cgi-bin/Tolm/PAGE, the page name as PATH_INFO:

    with Site(tolm, {"x.page": "hello $(name)"}) as site:
        r = site.get("/cgi-bin/Tolm?name=you")

fcgi_server.FcgiSite serves the same URLs with Tolm as a FastCGI server
behind nginx; ConfSite runs a set-up file of docs/servers as written.
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
URLENCODED = "application/x-www-form-urlencoded"
BOUNDARY = b"----TolmTestBoundary7MA4"
MULTIPART = "multipart/form-data; boundary=" + BOUNDARY.decode()
HERE = os.path.dirname(os.path.abspath(__file__))

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


def program(name):
    """The path of the program NAME on PATH, in /usr/sbin or /usr/bin, or None."""
    return shutil.which(name) or shutil.which(name, path="/usr/sbin:/usr/bin")


def server_path(name, package):
    """The path of the web server NAME; ends the test with advice when
    Debian's PACKAGE is not installed."""
    path = program(name)
    if not path:
        sys.exit("%s is not installed: run `make deps` (or apt-get install -y %s) first"
                 % (name, package))
    return path


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def answers(port):
    try:
        socket.create_connection(("127.0.0.1", port), timeout=0.2).close()
        return True
    except OSError:
        return False


def wait_for(test, what, procs=(), seconds=15):
    """Waits until test() holds; fails when time runs out or one of PROCS ends."""
    deadline = time.time() + seconds
    while time.time() < deadline:
        for p in procs:
            if p is not None and p.poll() is not None:
                raise RuntimeError("%s: the process stopped (status %s)" % (what, p.returncode))
        if test():
            return
        time.sleep(0.02)
    raise RuntimeError("%s: timed out" % what)


def end_process(p, sig=signal.SIGTERM, timeout=10, group=False):
    """Asks the process P (or None; with GROUP its process group) to end with
    SIG, kills it after TIMEOUT seconds, and returns its exit status."""
    if p is None:
        return None
    send = (lambda s: os.killpg(p.pid, s)) if group else p.send_signal
    if p.poll() is None:
        send(sig)
        try:
            p.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            send(signal.SIGKILL)
            p.wait()
    return p.returncode


class Response:
    """Status, header lines (name, value) in order, and the body bytes."""

    def __init__(self, status, headers, body):
        self.status, self.headers, self.body = status, headers, body
        self.text = body.decode("utf-8", "replace")

    def header(self, name):
        return [v for k, v in self.headers if k.lower() == name.lower()]


class Site:
    DIRS = ("public", "cgi-bin", "site", "home", "tmp")

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

    def layout(self):
        self.dir = os.path.realpath(tempfile.mkdtemp(prefix="tolm-site-"))
        for d in self.DIRS:
            os.makedirs(self.path(d))
        self.port = self.port_wanted or free_port()
        for name, text in self.pages.items():
            self.write(self.path("site", name), text)
        self.write(self.path("home", "x.config"), self.config.replace(
            "{PORT}", str(self.port)).replace("{ROOT}", self.site_root))
        if self.settings is not None:
            self.write(self.path("home", "x.site"), self.settings)
        for name, text in self.files.items():
            self.write(self.path(name), text.replace("{DIR}", self.dir))

    def launch(self):
        """Starts the servers of a laid-out site and waits until it answers."""
        server = server_path("lighttpd", "lighttpd")
        os.symlink(self.tolm, self.path("cgi-bin", "Tolm"))
        self.write(self.path("lighttpd.conf"), LIGHTTPD_CONF % {"port": self.port,
                                                                "dir": self.dir})
        self.proc = subprocess.Popen([server, "-D", "-f", self.path("lighttpd.conf")],
                                     stdin=subprocess.DEVNULL)
        wait_for(lambda: answers(self.port), "lighttpd on port %d (log: %s)" % (
            self.port, self.path("tmp", "lighttpd.error.log")), [self.proc])

    def start(self):
        try:
            self.layout()
            self.launch()
        except BaseException:
            self.stop()
            raise
        return self

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
        return self.request("GET", target, None, headers)

    def post(self, target, body, content_type):
        return self.request("POST", target, body, {"Content-Type": content_type})

    def upload(self, target, parts):
        """A multipart/form-data post of PARTS (as multipart() takes them)."""
        return self.post(target, multipart(BOUNDARY, parts), MULTIPART)

    def request(self, method, target, body=None, headers=None):
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        try:
            conn.request(method, target, body=body, headers=headers or {})
            r = conn.getresponse()
            return Response(r.status, r.getheaders(), r.read())
        finally:
            conn.close()


class ConfSite(Site):
    """Runs KIND (a key of KINDS) with its set-up file from docs/servers, the
    scratch directory and a free port in place of /srv/tolm and 8080."""
    SERVERS = os.path.join(HERE, "..", "..", "docs", "servers")
    DIRS = ("site", "home", "tmp", "cgi-bin", "public", "run")
    # kind: (set-up file, programs needed, Debian packages)
    KINDS = {"lighttpd": ("lighttpd.conf", ["lighttpd"], "lighttpd"),
             "apache": ("apache.conf", ["apache2"], "apache2"),
             "nginx": ("nginx.conf", ["nginx", "fcgiwrap"], "nginx fcgiwrap")}

    def __init__(self, kind, tolm, pages):
        super().__init__(tolm, pages)
        self.kind, self.procs = kind, []

    @classmethod
    def missing(cls, kind):
        """The Debian packages KIND needs and the machine lacks, or None."""
        conf, progs, package = cls.KINDS[kind]
        return None if all(program(p) for p in progs) else package

    def fill(self, name, target):
        with open(os.path.join(self.SERVERS, name)) as f:
            text = f.read()
        self.write(target, text.replace("/srv/tolm", self.dir).replace("8080", str(self.port)))

    def spawn(self, *argv):
        self.procs.append(subprocess.Popen(list(argv), stdin=subprocess.DEVNULL,
                                           stdout=subprocess.DEVNULL, start_new_session=True))

    def launch(self):
        # A copy, so that a server that runs CGI programs as another user
        # (Apache started by root) can reach it.
        shutil.copy(self.tolm, self.path("cgi-bin", "Tolm"))
        self.fill("x.config", self.path("home", "x.config"))
        conf = self.path("server.conf")
        self.fill(self.KINDS[self.kind][0], conf)
        if os.geteuid() == 0:
            for root, dirs, files in os.walk(self.dir):
                os.chmod(root, 0o777 if os.path.basename(root) in ("tmp", "run") else 0o755)
                for f in files:
                    os.chmod(os.path.join(root, f), 0o755)
            os.chmod(self.dir, 0o755)
        if self.kind == "lighttpd":
            self.spawn(program("lighttpd"), "-D", "-f", conf)
        elif self.kind == "apache":
            self.spawn(program("apache2"), "-f", conf, "-DFOREGROUND")
        else:
            sock = self.path("run", "fcgiwrap.sock")
            self.spawn(program("fcgiwrap"), "-s", "unix:" + sock)
            wait_for(lambda: os.path.exists(sock), "fcgiwrap", self.procs)
            os.chmod(sock, 0o777)
            self.spawn(program("nginx"), "-c", conf, "-p", self.path("run"))
        wait_for(lambda: answers(self.port), self.kind, self.procs)

    def stop(self):
        for p in reversed(self.procs):
            end_process(p, group=True)
        self.procs = []
        super().stop()


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
