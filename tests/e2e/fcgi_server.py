"""Runs Tolm as a FastCGI server behind nginx on 127.0.0.1 for tests, demos
and benchmarks.

FcgiSite lays out the same scratch directory as server.Site and serves the
same URLs (http://127.0.0.1:PORT/cgi-bin/Tolm/PAGE, the page name as
PATH_INFO), so a test written for CGI runs unchanged against it:

    with FcgiSite(tolm, {"x.page": "hello $(name)"}) as site:
        r = site.get("/cgi-bin/Tolm?name=you")

Tolm gets its listening socket the way spawn-fcgi hands it over (as standard
input, on a free TCP port), or with via="env" makes it itself from
TOLM_FASTCGI_LISTEN (a Unix socket in the scratch directory).
"""
import os
import socket
import subprocess

import server

NGINX_CONF = """
%(user)sdaemon off;
worker_processes %(nginx_workers)d;
error_log %(dir)s/tmp/nginx.error.log;
pid %(dir)s/nginx/nginx.pid;
events { worker_connections 4096; }
http {
  access_log off;
  client_body_temp_path %(dir)s/nginx/body;
  fastcgi_temp_path %(dir)s/nginx/fastcgi;
  proxy_temp_path %(dir)s/nginx/proxy;
  uwsgi_temp_path %(dir)s/nginx/uwsgi;
  scgi_temp_path %(dir)s/nginx/scgi;
  client_max_body_size 64m;
  server {
    listen 127.0.0.1:%(port)d backlog=4096;
    root %(dir)s/public;
    location /cgi-bin/Tolm {
      fastcgi_pass %(upstream)s;
      fastcgi_split_path_info ^(/cgi-bin/Tolm)(/.*)$;
      fastcgi_param GATEWAY_INTERFACE CGI/1.1;
      fastcgi_param SERVER_SOFTWARE nginx;
      fastcgi_param REQUEST_METHOD $request_method;
      fastcgi_param QUERY_STRING $query_string;
      fastcgi_param CONTENT_TYPE $content_type if_not_empty;
      fastcgi_param CONTENT_LENGTH $content_length if_not_empty;
      fastcgi_param SCRIPT_NAME $fastcgi_script_name;
      fastcgi_param PATH_INFO $fastcgi_path_info if_not_empty;
      fastcgi_param REQUEST_URI $request_uri;
      fastcgi_param SERVER_PROTOCOL $server_protocol;
      fastcgi_param REMOTE_ADDR $remote_addr;
      fastcgi_param SERVER_ADDR $server_addr;
      fastcgi_param SERVER_PORT $server_port;
      fastcgi_param X_HOME %(dir)s/home;
      fastcgi_param TMP_DIR %(dir)s/tmp;
      fastcgi_read_timeout 120s;
    }
  }
}
"""


class FcgiSite(server.Site):
    DIRS = ("public", "site", "home", "tmp", "nginx")

    def __init__(self, tolm, pages=None, root=None, config=None, via="stdin",
                 workers=None, timeout=None, nginx_workers=1, settings=None, files=None):
        super().__init__(tolm, pages, root, config, settings, files)
        self.via = via
        self.fcgi_env = {"TOLM_FASTCGI_WORKERS": workers, "TOLM_FASTCGI_TIMEOUT": timeout}
        self.nginx_workers = nginx_workers
        self.tolm_proc = None

    def launch(self):
        nginx = server.server_path("nginx", "nginx-light")
        upstream = self.start_tolm()
        self.write(self.path("nginx.conf"), NGINX_CONF % {
            "port": self.port, "dir": self.dir, "upstream": upstream,
            "nginx_workers": self.nginx_workers,
            # As root, nginx would drop its workers to "nobody", who may
            # not enter the scratch directory.
            "user": "user root;\n" if os.getuid() == 0 else ""})
        self.proc = subprocess.Popen(
            [nginx, "-p", self.path("nginx"), "-e", self.path("tmp", "nginx.error.log"),
             "-c", self.path("nginx.conf")], stdin=subprocess.DEVNULL)
        server.wait_for(lambda: server.answers(self.port), "nginx on port %d" % self.port,
                        [self.proc])

    def start_tolm(self):
        """Starts the FastCGI server; returns nginx's fastcgi_pass address."""
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin")}
        env.update({k: str(v) for k, v in self.fcgi_env.items() if v is not None})
        log = open(self.path("tmp", "tolm.log"), "ab")
        if self.via == "env":
            sock = self.path("tolm.sock")
            env["TOLM_FASTCGI_LISTEN"] = sock
            self.tolm_proc = subprocess.Popen([self.tolm], env=env, stdin=subprocess.DEVNULL,
                                              stdout=log, stderr=log)
            server.wait_for(lambda: os.path.exists(sock), "Tolm's socket", [self.tolm_proc])
            return "unix:" + sock
        with socket.socket() as s:
            s.bind(("127.0.0.1", 0))
            s.listen(1024)
            self.tolm_proc = subprocess.Popen([self.tolm], env=env, stdin=s.fileno(),
                                              stdout=log, stderr=log)
            return "127.0.0.1:%d" % s.getsockname()[1]

    def stop_tolm(self, timeout=10):
        """SIGTERM to the server; returns its exit status."""
        p, self.tolm_proc = self.tolm_proc, None
        return server.end_process(p, timeout=timeout)

    def stop(self):
        server.end_process(self.proc)
        self.proc = None
        self.stop_tolm()
        super().stop()
