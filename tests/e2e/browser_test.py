"""The example site in headless Chromium, used as a visitor would: every form
filled and sent, hostile values shown as text, a screenshot of each page in
BUILD/screenshots. Exits 77 (skipped) when Chromium or chromedriver is
missing; `make test` installs them."""
import os
import sys
import tempfile

import server
import webdriver
from server import CGI, expect, expect_eq

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..",
                                "examples"))
import serve  # noqa: E402

SCRIPT = "<script>document.title='owned';alert(1)</script>"
QUOTES = "\"><img src=x onerror=alert(2)> it's"
SHELL = "; id; $(id) `id`"


def main(tolm):
    paths = webdriver.find_browser()
    if not paths:
        print("chromium or chromedriver not found: skipped (make test installs them)")
        return 77
    shots = os.path.join(os.path.dirname(os.path.abspath(tolm)), "screenshots")
    os.makedirs(shots, exist_ok=True)
    files = tempfile.mkdtemp(prefix="tolm-uploads-")
    with serve.demo_site(tolm) as site, webdriver.Browser(paths) as b:
        base = "http://127.0.0.1:%d%s" % (site.port, CGI)

        def page_is_clean(title, shot):
            """No dialog opened, the title is the page's own; saves a screenshot."""
            expect_eq(b.alert(), None, "a dialog opened")
            expect_eq(b.title(), "Tolm demo: " + title, "title")
            expect_eq(b.js("return document.querySelectorAll('script, img').length"), 0,
                      "elements from the request")
            b.screenshot(os.path.join(shots, shot + ".png"))

        def home_page_in_utf8():
            b.open(base)
            text = b.text()
            expect("Grüße" in text and "добро пожаловать" in text, text)
            links = b.js("return [...document.querySelectorAll('nav a')]"
                         ".map(a => a.textContent)")
            expect_eq(links, ["Home", "Form", "Upload", "Guestbook", "Preferences"])
            page_is_clean("Welcome", "home")

        def form_shows_hostile_values_as_text():
            b.open(base)
            b.submit("nav a[href$='form.html']")
            b.type("input[name=name]", SCRIPT)
            b.type("input[name=message]", QUOTES + SHELL)
            b.submit("input[type=submit]")
            expect_eq(b.text("#greeting"), "Hello, %s! You wrote: %s" % (SCRIPT, QUOTES + SHELL))
            expect_eq(b.js("return [...document.querySelectorAll('input[name]')]"
                           ".map(i => i.value)"), [SCRIPT, QUOTES + SHELL], "form refilled")
            expect(b.url().endswith("/form.html"), b.url())
            page_is_clean("A form", "form")

        def upload_kept_listed_or_refused():
            good = os.path.join(files, "notes-1.txt")
            bad = os.path.join(files, "x;id.txt")
            for path, data in ((good, b"twelve bytes"), (bad, b"x")):
                with open(path, "wb") as f:
                    f.write(data)
            b.open(base + "/upload.html")
            b.type("input[name=note]", SCRIPT)
            b.type("input[type=file]", good)
            b.submit("input[type=submit]")
            expect("Kept notes-1.txt (12 bytes) as upload 1." in b.text(), b.text())
            expect_eq(b.js("return [...document.querySelectorAll('td')].map(t => t.textContent)"),
                      ["1", "notes-1.txt", "12", SCRIPT])
            with open(site.path("data", "upload-1"), "rb") as f:
                expect_eq(f.read(), b"twelve bytes", "the kept file")
            b.type("input[type=file]", bad)
            b.submit("input[type=submit]")
            expect("Refused: that is not an upload, or its name holds" in b.text(), b.text())
            expect_eq(len(b.js("return document.querySelectorAll('td')")), 4, "listed rows")
            expect_eq(sorted(os.listdir(site.path("data"))), ["README", "demo.db", "upload-1"])
            expect(not [n for n in os.listdir(site.path("tmp")) if ".." in n], "left in TMP_DIR")
            page_is_clean("Upload", "upload")

        def guestbook_add_and_delete():
            b.open(base + "/guestbook.html")
            expect("No entries yet." in b.text(), b.text())
            for name, note in ((SCRIPT, QUOTES), ("Zoë", SHELL)):
                b.type("input[name=name]", name)
                b.type("input[name=note]", note)
                b.submit("input[value=Sign]")
            entries = "return [...document.querySelectorAll('li')].map(l => l.textContent.trim())"
            expect_eq(b.js(entries), ["%s: %s" % (SCRIPT, QUOTES), "Zoë: " + SHELL])
            b.submit("li:first-child input[value=Delete]")
            expect("Entries removed: 1." in b.text(), b.text())
            expect_eq(b.js(entries), ["Zoë: " + SHELL])
            page_is_clean("Guestbook", "guestbook")

        def theme_kept_after_reload():
            b.open(base + "/prefs.html")
            expect_eq(b.text("#theme"), "light")
            b.click("input[value=dark]")
            b.submit("input[type=submit]")
            expect(b.url().endswith("/prefs.html"), b.url())  # redirected after the post
            b.cmd("POST", "/refresh", {})
            expect_eq(b.text("#theme"), "dark")
            cookie = b.cmd("GET", "/cookie/theme")
            expect_eq((cookie["value"], cookie["httpOnly"]), ("dark", True), "cookie")
            page_is_clean("Preferences", "prefs")
            b.open(base)
            expect_eq(b.js("return document.body.className"), "dark")
            b.screenshot(os.path.join(shots, "home-dark.png"))

        def error_page_hides_paths():
            b.open(base + "/oops.html")
            text = b.text()
            expect("raised an error." in text and site.dir not in text, text)
            page_is_clean("Something went wrong", "error")

        return server.run_checks([home_page_in_utf8, form_shows_hostile_values_as_text,
                                  upload_kept_listed_or_refused, guestbook_add_and_delete,
                                  theme_kept_after_reload, error_page_hides_paths])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
