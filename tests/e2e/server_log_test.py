"""Errors and the page author's warnings reach the web server's error log as
one line each, with the page file and line; the visitor's output is as it
was."""
import sys

import server
from server import CGI, expect, expect_eq

PAGES = {
    "err.html": "one\n<@set> x 1\n<@error> bad $(q)\nnot reached\n",
    "warn.html": "<@frobnicate> 1\n<@end>\n<@if> 1 == 1\nopen\n",
    "trap.html": "<@function> t\n<@end>\n<@option> err_trap function t\n\n<@error> trapped\nok\n",
}


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        def log_lines():
            with open(site.path("tmp", "cgi.log"), errors="replace") as f:
                return [l for l in f.read().split("\n") if l.startswith("Tolm: ")]

        def error_line_with_page_and_line():
            r = site.post(CGI, b"X_PAGE=err.html&q=x%0Ay", "application/x-www-form-urlencoded")
            expect("bad x\ny" in r.text and "not reached" not in r.text, r.text)
            expect_eq(log_lines()[-1],
                      "Tolm: %s/err.html:3: error: bad x\\x0ay" % site.site_root)

        def warnings_for_the_author():
            r = site.get(CGI + "/warn.html")
            expect(r.text.endswith("open\n"), r.text)
            root = site.site_root
            expect_eq(log_lines()[-3:], [
                "Tolm: %s/warn.html:1: warning: unknown command <@frobnicate>" % root,
                "Tolm: %s/warn.html:2: warning: <@end> without a block to end" % root,
                "Tolm: %s/warn.html:4: warning: a block is still open at the end of the page"
                % root])

        def trapped_errors_are_logged_too():
            r = site.get(CGI + "/trap.html")
            expect(r.text.endswith("ok\n"), r.text)
            expect_eq(log_lines()[-1], "Tolm: %s/trap.html:5: error: trapped" % site.site_root)

        return server.run_checks([error_line_with_page_and_line, warnings_for_the_author,
                                  trapped_errors_are_logged_too])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
