"""The web-server set-up files of docs/servers, each run as written (paths and
port moved to a scratch directory): a page by PATH_INFO with a query, a
URL-encoded post with a cookie, and the site's error page."""
import sys

from server import ConfSite, expect, expect_eq, run_checks

PAGES = {
    "hello.html": "<@cookie> theme\nHello, $(name)! theme=[$(theme)] via=[$(env:GATEWAY_INTERFACE)]\n",
    "form.html": "<@if> $(qty) > 2\nmany $(item): $(qty)\n<@else>\nfew\n<@end>\n",
    "bad.html": "<@error> page failed\n",
    "x.error": "sorry: $(X_ERRMSG)\n",
}


def smoke(kind, tolm):
    with ConfSite(kind, tolm, PAGES) as site:
        r = site.get("/cgi-bin/Tolm/hello.html?name=web", {"Cookie": "theme=dark%20blue"})
        expect_eq(r.status, 200, "status")
        expect_eq(r.header("Content-Type"), ["text/html"])
        expect(r.text.endswith("Hello, web! theme=[dark blue] via=[CGI/1.1]\n"), r.text)
        r = site.request("POST", "/cgi-bin/Tolm", b"X_PAGE=form.html&item=tea&qty=3",
                         {"Content-Type": "application/x-www-form-urlencoded"})
        expect(r.text.endswith("many tea: 3\n"), r.text)
        r = site.get("/cgi-bin/Tolm/bad.html")
        expect(r.text.endswith("sorry:  page failed\n"), r.text)


def main(tolm):
    checks = []
    for kind in ConfSite.KINDS:
        def check(kind=kind):
            need = ConfSite.missing(kind)
            if need:
                raise RuntimeError("not installed: %s (make deps installs it)" % need)
            smoke(kind, tolm)
        check.__name__ = kind
        checks.append(check)
    return run_checks(checks)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
