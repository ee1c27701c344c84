"""Sessions through lighttpd with a cookie jar: login, logout, fixation,
expiry, 50 concurrent writers of one session, hostile cookies and the form
token; on the SQLite file store, then again on PostgreSQL when its server
binaries are installed."""
import os
import re
import sys
import threading
import time
import urllib.parse

import server
from server import CGI, expect, expect_eq

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "db"))
from pgserver import PgServer  # noqa: E402

PAGES = {
    "login.html": "<@session> renew\n<@set> S_user $(user)\nin\n",
    "who.html": "user=[$(S_user)]\n",
    "logout.html": "<@session> end\nout\n",
    "add.html": "<@set> S_v$(n) $(n)\nok\n",
    "vals.html": "$(S_v0) $(S_v17) $(S_v49)\n",
    "form.html": "<@if> \"$(env:REQUEST_METHOD)\" == \"POST\"\n<@session> check\n<@set> S_note $(note)\n"
                 "<@end>\ntoken=[$(session:token)] note=[$(S_note)]\n",
}
SID = re.compile(r"^tolm_sid=([A-Za-z0-9_-]{32}); Path=/; HttpOnly; SameSite=Lax$")
URLENCODED = "application/x-www-form-urlencoded"


class Visitor:
    """A browser's cookie jar for one site: the session id it holds."""

    def __init__(self, site, sid=None):
        self.site, self.sid = site, sid

    def request(self, method, page, body=None, cookie=None):
        headers = {}
        cookie = cookie if cookie is not None else (
            "tolm_sid=" + self.sid if self.sid else None)
        if cookie is not None:
            headers["Cookie"] = cookie
        if body is not None:
            headers["Content-Type"] = URLENCODED
        r = self.site.request(method, CGI + "/" + page, body, headers)
        expect_eq(r.status, 200, page)
        for c in r.header("Set-Cookie"):
            if c.startswith("tolm_sid=;"):
                expect("Max-Age=0" in c, c)
                self.sid = None
            else:
                m = SID.match(c)
                expect(m, "cookie " + c)
                self.sid = m.group(1)
        r.page = r.text.split("-->\n\n", 1)[-1]  # the page's own text, after the banner
        return r

    def get(self, page, **kw):
        return self.request("GET", page, **kw)

    def post(self, page, fields):
        return self.request("POST", page, urllib.parse.urlencode(dict(fields, X_PAGE=page)))


def checks(site, store):
    def login_see_name_logout():
        v = Visitor(site)
        expect_eq(v.get("who.html").page, "user=[]\n")
        anon = v.sid
        expect(anon, "a first visit gets a session")
        v.get("login.html?user=ann")
        expect(v.sid and v.sid != anon, "login renews the id")
        expect_eq(v.get("who.html").page, "user=[ann]\n")
        expect_eq(Visitor(site, anon).get("who.html").page, "user=[]\n", "old id is spent")
        expect_eq(v.get("who.html?S_user=mallory").page, "user=[ann]\n", "request cannot set")
        before = v.sid
        v.get("logout.html")
        expect_eq(v.sid, None, "logout deletes the cookie")
        again = Visitor(site, before)
        expect_eq(again.get("who.html").page, "user=[]\n", "logged out on the server too")
        expect(again.sid != before, "never the ended id again")

    def fixation():
        planted = "A" * 32
        v = Visitor(site, planted)
        v.get("login.html?user=victim")
        expect(v.sid != planted, "a planted id is not adopted")
        expect_eq(Visitor(site, planted).get("who.html").page, "user=[]\n")
        expect_eq(v.get("who.html").page, "user=[victim]\n")

    def fifty_concurrent_writers():
        v = Visitor(site)
        v.get("login.html?user=busy")
        errors = []

        def add(n):
            try:
                r = Visitor(site, v.sid).get("add.html?n=%d" % n)
                if r.page != "ok\n":
                    errors.append(r.page)
            except Exception as e:  # reported below
                errors.append(repr(e))
        threads = [threading.Thread(target=add, args=(n,)) for n in range(50)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
        expect_eq(errors, [])
        expect_eq(v.get("vals.html").page, "0 17 49\n")
        expect_eq(store.rows(v.sid), 51, "every variable kept, and the login")

    def save_racing_the_end():
        # Another request ends the session while this one saves: the save
        # waits for it and then keeps nothing, no variable of a gone session.
        v = Visitor(site)
        v.get("login.html?user=late")
        sid = v.sid
        ended = store.end_slowly(sid, 1.0)
        time.sleep(0.3)
        expect_eq(v.get("add.html?n=7").page, "ok\n")
        ended()
        expect_eq(store.rows(sid), 0, "no variable outlives its session")

    def form_token():
        v = Visitor(site)
        token = re.search(r"token=\[(.*?)\]", v.get("form.html").page).group(1)
        expect(len(token) == 32, token)
        ok = v.post("form.html", {"session_token": token, "note": "hi"})
        expect_eq(ok.page, "token=[%s] note=[hi]\n" % token)
        for fields in ({"note": "x"}, {"session_token": token[:-1] + "!", "note": "x"},
                       {"session_token": "", "note": "x"}):
            bad = v.post("form.html", fields)
            expect("### Session token missing or wrong" in bad.page, bad.text)
        expect_eq(v.get("form.html").page, "token=[%s] note=[hi]\n" % token, "kept once")

    def hostile_cookies():
        for cookie in ["tolm_sid=", "tolm_sid", "tolm_sid=" + "A" * 31, "tolm_sid=" + "A" * 33,
                       "tolm_sid=" + "A" * 3000, "tolm_sid='; DROP TABLE tolm_sessions; --",
                       "tolm_sid=%41%41", "tolm_sid=" + "A" * 31 + "%", "tolm_sid=\u00e9" * 9,
                       "a=1;;;tolm_sid=;tolm_sid=" + "B" * 32, "=" * 500]:
            v = Visitor(site)
            r = v.get("who.html", cookie=cookie)
            expect_eq(r.page, "user=[]\n", cookie[:40])
            expect(v.sid and v.sid not in cookie, "fresh id for " + cookie[:40])
        u = Visitor(site)
        u.get("login.html?user=still")
        expect_eq(u.get("who.html").page, "user=[still]\n", "the store is intact")

    return [login_see_name_logout, fixation, fifty_concurrent_writers, save_racing_the_end,
            form_token, hostile_cookies]


def expiry(site, store):
    def idle_session_expires():
        v = Visitor(site)
        v.get("login.html?user=sleepy")
        expect_eq(v.get("who.html").page, "user=[sleepy]\n")
        old = v.sid
        time.sleep(3.2)
        expect_eq(v.get("who.html").page, "user=[]\n")
        expect(v.sid != old, "an expired id is replaced")
        expect_eq(store.rows(old), 0, "and its rows removed")
    return [idle_session_expires]


def demo(site):
    def demo_login_notes_and_logout():
        v = Visitor(site)
        token = re.search(r'name="session_token" value="([^"]+)"', v.get("login.html").page)
        token = token.group(1)
        form = {"session_token": token, "action": "login", "name": "Ann"}
        # A password that would rewrite a condition built from its text stays data.
        for wrong in ("x", 'a" == "a" || cmp "x', "x' || cmp a == a || '"):
            expect("Wrong name or password." in v.post("login.html",
                                                       dict(form, password=wrong)).page, wrong)
        r = v.post("login.html", dict(form, password="open sesame"))
        expect("Logged in as <b>Ann</b>." in r.page, r.page)
        token = re.search(r'name="session_token" value="([^"]+)"', r.page).group(1)
        note = {"session_token": token, "action": "note", "note": "<i>milk</i>"}
        r = v.post("login.html", note)
        expect("<li>&lt;i&gt;milk&lt;/i&gt;</li>" in r.page, r.page)
        r = v.post("login.html", dict(note, session_token="forged"))
        expect("### Session token missing or wrong" in r.page, r.page)
        r = v.post("login.html", {"session_token": token, "action": "logout"})
        expect(v.sid is None and 'value="login"' in r.page, r.page)
    return [demo_login_notes_and_logout]


class SqliteStore:
    """The SQLite store file of the site, read and written from here."""

    def __init__(self, site):
        self.site = site

    def connect(self):
        import glob
        import sqlite3
        path = glob.glob(self.site.path("home", "sessions-*.db"))[0]
        return sqlite3.connect(path, isolation_level=None, timeout=10)

    def rows(self, sid):
        with self.connect() as db:
            return db.execute("SELECT count(*) FROM tolm_session_vars WHERE sid = ?",
                              (sid,)).fetchone()[0]

    def end_slowly(self, sid, seconds):
        """Ends the session in a transaction held open for SECONDS, as a
        slow request would; returns the function that waits for it."""
        def end():
            db = self.connect()
            db.execute("BEGIN IMMEDIATE")
            for table in ("tolm_session_vars", "tolm_sessions"):
                db.execute("DELETE FROM %s WHERE sid = ?" % table, (sid,))
            time.sleep(seconds)
            db.execute("COMMIT")
            db.close()
        t = threading.Thread(target=end)
        t.start()
        return t.join


class PgStore:
    """The same on the PostgreSQL server, through psql."""

    def __init__(self, pg):
        self.pg = pg

    def psql(self, sql):
        import subprocess
        return subprocess.Popen([os.path.join(self.pg.bin, "psql"), "-At", "-c", sql],
                                env=dict(os.environ, **self.pg.env), text=True,
                                stdout=subprocess.PIPE)

    def rows(self, sid):
        out, _ = self.psql("SELECT count(*) FROM tolm_session_vars WHERE sid = '%s'" % sid) \
            .communicate()
        return int(out.strip())

    def end_slowly(self, sid, seconds):
        p = self.psql("BEGIN; DELETE FROM tolm_session_vars WHERE sid = '%s'; DELETE FROM "
                      "tolm_sessions WHERE sid = '%s'; SELECT pg_sleep(%s); COMMIT;" %
                      (sid, sid, seconds))
        return p.communicate


def main(tolm):
    failed = 0
    with server.Site(tolm, PAGES) as site:
        site.write(site.path("home", "x.site"), "session on\n")
        failed += server.run_checks(checks(site, SqliteStore(site)))
        site.write(site.path("home", "x.site"), "session on\nsession_idle 2\n")
        failed += server.run_checks(expiry(site, SqliteStore(site)))
    examples = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples")
    with open(os.path.join(examples, "x.config.in")) as f:
        config = f.read()
    with server.Site(tolm, root=os.path.join(examples, "site"), config=config) as site:
        failed += server.run_checks(demo(site))
    if not PgServer.binaries():
        print("PostgreSQL: skipped, no server binaries")
        return failed
    with PgServer() as pg:
        with server.Site(tolm, PAGES, config="127.0.0.1:{PORT} {ROOT} pg:\n") as site:
            site.write(site.path("home", "x.env"),
                       "".join("%s=%s\n" % kv for kv in pg.env.items()))
            site.write(site.path("home", "x.site"), "session on\n")
            failed += server.run_checks(checks(site, PgStore(pg)))
    return failed


if __name__ == "__main__":
    sys.exit(1 if main(sys.argv[1]) else 0)
