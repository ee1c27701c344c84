"""Status, header lines and cookies set by the page, as a client receives
them through lighttpd; a child process or an error before the first body
byte still gets a complete header. Errors and the page author's warnings
reach the web server's error log as one line each, with the page file and
line; the visitor's output is as it was."""
import sys

import server
from server import CGI, expect, expect_eq

PAGES = {
    "x.page": "plain\n",
    "missing.html": "<@status> 404\n<h1>No such thing</h1>\n",
    "go.html": "<@redirect> $(to)\n",
    "go301.html": "<@redirect> /cgi-bin/Tolm/x.page 301\n",
    "cookies.html": "<@setcookie> sid 'a b' Path=/ HttpOnly SameSite=Strict\n"
                    "<@clearcookie> old\nset\n",
    "json.html": "<@setheader> Content-Type application/json\n<@html> off\n{\"a\": $(json:a)}\n",
    "child.html": "<@setheader> X-Before-Child yes\n<@shell> echo from-child\nafter\n",
    "late.html": "body first\n<@status> 500\n",
    "err.html": "one\n<@set> x 1\n<@error> bad $(q)\nnot reached\n",
    "warn.html": "<@frobnicate> 1\n<@end>\n<@if> 1 == 1\nyes\n<@else>\nno\n<@end>\n"
                 "<@if> 1 == 1\nopen\n",
    "trap.html": "<@function> t\n<@end>\n<@option> err_trap function t\n\n<@error> trapped\nok\n",
}


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        def status_and_redirects():
            r = site.get(CGI + "/missing.html")
            expect_eq(r.status, 404)
            expect(r.text.endswith("<h1>No such thing</h1>\n"), r.text)
            r = site.get(CGI + "/go.html?to=/cgi-bin/Tolm/x.page")
            expect_eq((r.status, r.header("Location")), (302, ["/cgi-bin/Tolm/x.page"]))
            r = site.get(CGI + "/go301.html")
            expect_eq(r.status, 301)
            # A line break in the request cannot add a header line (lighttpd
            # refuses it in the URL: the body carries it).
            r = site.post(CGI, b"X_PAGE=go.html&to=/x%0D%0ASet-Cookie:+evil=1",
                          "application/x-www-form-urlencoded")
            expect_eq((r.status, r.header("Set-Cookie")), (200, []))
            expect("invalid URL" in r.text, r.text)

        def cookies_and_content_type():
            r = site.get(CGI + "/cookies.html")
            expect_eq(r.header("Set-Cookie"), [
                "sid=a%20b; Path=/; HttpOnly; SameSite=Strict",
                "old=; Max-Age=0; Expires=Thu, 01 Jan 1970 00:00:00 GMT"])
            r = site.get(CGI + "/json.html?a=%3C%22x%22%3E")
            expect_eq(r.header("Content-Type"), ["application/json"])
            expect_eq(r.body, b'{"a": "\\u003c\\"x\\"\\u003e"}\n')

        def child_and_late_commands():
            r = site.get(CGI + "/child.html")
            expect_eq(r.header("X-Before-Child"), ["yes"])
            expect(r.text.endswith("from-child\nafter\n"), r.text)
            r = site.get(CGI + "/late.html")
            expect_eq(r.status, 200)
            expect("body first\n" in r.text and
                   "<@status>: the body of the response has already started" in r.text, r.text)

        def pages_without_commands_unchanged():
            r = site.get(CGI)
            expect_eq((r.status, r.header("Content-Type")), (200, ["text/html"]))
            expect_eq(r.body, b"\r\n<!-- Tolm v.8.7-8 (c) Tolm developers -->\n\nplain\n")

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
            expect(r.text.endswith("yes\nopen\n"), r.text)
            root = site.site_root
            expect_eq(log_lines()[-3:], [
                "Tolm: %s/warn.html:1: warning: unknown command <@frobnicate>" % root,
                "Tolm: %s/warn.html:2: warning: <@end> without a block to end" % root,
                "Tolm: %s/warn.html:9: warning: a block is still open at the end of the page"
                % root])

        def trapped_errors_are_logged_too():
            r = site.get(CGI + "/trap.html")
            expect(r.text.endswith("ok\n"), r.text)
            expect_eq(log_lines()[-1], "Tolm: %s/trap.html:5: error: trapped" % site.site_root)

        return server.run_checks([status_and_redirects, cookies_and_content_type,
                                  child_and_late_commands, pages_without_commands_unchanged,
                                  error_line_with_page_and_line, warnings_for_the_author,
                                  trapped_errors_are_logged_too])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
