"""Runs Tolm under lighttpd, Apache or nginx with fcgiwrap, each with its
set-up file from docs/servers, for the tests of those files.

A ConfSite lays out the directories the files name under /srv/tolm (site,
home, tmp, cgi-bin, public, run) in a scratch directory, writes the set-up
file and x.config with that directory and a free port in place of
/srv/tolm and 8080, starts the server (and fcgiwrap) as its own child
processes, and stops them at the end:

    with ConfSite("nginx", tolm, {"hello.html": "hi $(name)"}) as site:
        r = site.get("/cgi-bin/Tolm/hello.html?name=you")
"""
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time

from server import Response, free_port
import http.client

HERE = os.path.dirname(os.path.abspath(__file__))
SERVERS = os.path.join(HERE, "..", "..", "docs", "servers")
DIRS = ("site", "home", "tmp", "cgi-bin", "public", "run")

# kind: (set-up file, programs needed, Debian package)
KINDS = {
    "lighttpd": ("lighttpd.conf", ["lighttpd"], "lighttpd"),
    "apache": ("apache.conf", ["apache2"], "apache2"),
    "nginx": ("nginx.conf", ["nginx", "fcgiwrap"], "nginx fcgiwrap"),
}


def program(name):
    for d in (None, "/usr/sbin", "/usr/bin"):
        path = shutil.which(name, path=d) if d else shutil.which(name)
        if path:
            return path
    return None


def missing(kind):
    """The Debian packages a kind needs and the machine lacks, or None."""
    conf, progs, package = KINDS[kind]
    return package if not all(program(p) for p in progs) else None


class ConfSite:
    def __init__(self, kind, tolm, pages):
        self.kind, self.tolm, self.pages = kind, os.path.abspath(tolm), pages
        self.procs = []
        self.dir = self.port = None

    def path(self, *parts):
        return os.path.join(self.dir, *parts)

    def fill(self, name, target):
        with open(os.path.join(SERVERS, name)) as f:
            text = f.read()
        text = text.replace("/srv/tolm", self.dir).replace("8080", str(self.port))
        with open(target, "w") as f:
            f.write(text)

    def layout(self):
        self.dir = os.path.realpath(tempfile.mkdtemp(prefix="tolm-%s-" % self.kind))
        self.port = free_port()
        for d in DIRS:
            os.makedirs(self.path(d))
        for name, text in self.pages.items():
            with open(self.path("site", name), "w") as f:
                f.write(text)
        # A copy, so that a server that runs CGI programs as another user
        # (Apache started by root) can reach it.
        shutil.copy(self.tolm, self.path("cgi-bin", "Tolm"))
        self.fill("x.config", self.path("home", "x.config"))
        self.fill(KINDS[self.kind][0], self.path("server.conf"))
        if os.geteuid() == 0:
            for root, dirs, files in os.walk(self.dir):
                os.chmod(root, 0o777 if os.path.basename(root) in ("tmp", "run") else 0o755)
                for f in files:
                    os.chmod(os.path.join(root, f), 0o755)
            os.chmod(self.dir, 0o755)

    def spawn(self, *argv):
        self.procs.append(subprocess.Popen(list(argv), stdin=subprocess.DEVNULL,
                                           stdout=subprocess.DEVNULL, start_new_session=True))

    def wait_for(self, ready, what):
        deadline = time.time() + 15
        while time.time() < deadline:
            for p in self.procs:
                if p.poll() is not None:
                    raise RuntimeError("%s stopped at start-up; logs in %s"
                                       % (what, self.path("run")))
            if ready():
                return
            time.sleep(0.05)
        raise RuntimeError("%s did not start" % what)

    def listening(self):
        try:
            socket.create_connection(("127.0.0.1", self.port), timeout=0.2).close()
            return True
        except OSError:
            return False

    def start(self):
        self.layout()
        conf = self.path("server.conf")
        if self.kind == "lighttpd":
            self.spawn(program("lighttpd"), "-D", "-f", conf)
        elif self.kind == "apache":
            self.spawn(program("apache2"), "-f", conf, "-DFOREGROUND")
        else:
            sock = self.path("run", "fcgiwrap.sock")
            self.spawn(program("fcgiwrap"), "-s", "unix:" + sock)
            self.wait_for(lambda: os.path.exists(sock), "fcgiwrap")
            os.chmod(sock, 0o777)
            self.spawn(program("nginx"), "-c", conf, "-p", self.path("run"))
        self.wait_for(self.listening, self.kind)
        return self

    def stop(self):
        for p in reversed(self.procs):
            if p.poll() is None:
                os.killpg(p.pid, signal.SIGTERM)
                try:
                    p.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    os.killpg(p.pid, signal.SIGKILL)
                    p.wait()
        self.procs = []
        if self.dir and not os.environ.get("TOLM_KEEP_SITE"):
            shutil.rmtree(self.dir, ignore_errors=True)

    def __enter__(self):
        try:
            return self.start()
        except BaseException:
            self.stop()
            raise

    def __exit__(self, *exc):
        self.stop()

    def request(self, method, target, body=None, headers=None):
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        try:
            conn.request(method, target, body=body, headers=headers or {})
            r = conn.getresponse()
            return Response(r.status, r.getheaders(), r.read())
        finally:
            conn.close()

    def get(self, target, headers=None):
        return self.request("GET", target, None, headers)
