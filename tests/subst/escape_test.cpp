// Escaping for other languages: the value functions on hostile input, and
// cut results that stay well-formed.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "runtime/runtime.h"
#include "storage/store.h"
#include "subst/escape.h"
#include "subst/values.h"

namespace {

void set(const char *name, const std::string &value) {
    if (!x_BUFFERS.vtree.cmp) x_BUFFERS.vtree = {nullptr, X_avlcmp};
    ASSERT_EQ(X_put_value(name, value.c_str()), 0);
}

std::string tv(const std::string &ref) {
    static char buf[X_MAXLINE];
    strcpy(buf, "garbage");
    X_transvalue(ref.c_str(), buf);
    return buf;
}

TEST(Escape, ValueFunctions) {
    const std::string utf = "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80";  // é € 😀
    set("e_x", "<script>a='1' & \"b\"</script>\n$(id)`x` " + utf);
    set("e_bin", "\x01\x1f\x7f\xff\t\r");
    set("e_q", "it's");
    set("e_sep", "\xe2\x80\xa8\xe2\x80\xa9");
    struct {
        const char *ref;
        std::string want;
    } cases[] = {
        {"html:e_x", "&lt;script&gt;a=&#39;1&#39; &amp; &quot;b&quot;&lt;/script&gt;\n$(id)`x` " + utf},
        {"attr:e_x", "&#x3C;script&#x3E;a&#x3D;&#x27;1&#x27;&#x20;&#x26;&#x20;&#x22;b&#x22;&#x3C;"
                     "&#x2F;script&#x3E;&#x0A;&#x24;&#x28;id&#x29;&#x60;x&#x60;&#x20;" + utf},
        {"shq:e_x", "'<script>a='\\''1'\\'' & \"b\"</script>\n$(id)`x` " + utf + "'"},
        {"json:e_x", "\"\\u003cscript\\u003ea='1' \\u0026 \\\"b\\\"\\u003c/script\\u003e\\n$(id)`x` " +
                     utf + "\""},
        {"json:e_bin", "\"\\u0001\\u001f\\u007f\xff\\t\\r\""},
        {"json:e_sep", "\"\\u2028\\u2029\""},
        {"shq:e_q", "'it'\\''s'"},
        {"shq:nosuch", "''"},
        {"json:nosuch", "\"\""},
        {"html:nosuch", ""},
        {"html:upper:e_q", "IT&#39;S"},  // nests like the other functions
        {"upper:html:e_q", "IT&#39;S"},
    };
    for (const auto &c : cases) EXPECT_EQ(tv(c.ref), c.want) << c.ref;
}

// A result too long for its buffer is cut before a whole character or
// escape, and a quoted one is still closed.
TEST(Escape, CutResultsStayWellFormed) {
    char out[16];
    struct {
        int kind;
        const char *in;
        const char *want;
    } cases[] = {
        {X_ESC_SHELL, "abcdefghijklmnopq", "'abcdefghijklm'"},
        {X_ESC_SHELL, "abcdefghijk'x", "'abcdefghijk'"},
        {X_ESC_JSON, "abcdefghijkl\"x", "\"abcdefghijkl\""},
        {X_ESC_HTML, "abcdefghijk&x", "abcdefghijk"},
        {X_ESC_HTML, "abcdefghijklm\xe2\x82\xac", "abcdefghijklm"},
        {X_ESC_ATTR, "ab<c", "ab&#x3C;c"},
    };
    for (const auto &c : cases) {
        int n = X_escape(c.kind, c.in, out, sizeof out);
        EXPECT_STREQ(out, c.want) << c.in;
        EXPECT_EQ(n, static_cast<int>(strlen(c.want)));
    }
    std::string big(X_MAXLINE - 1, '\'');
    set("e_big", big);
    std::string got = tv("shq:e_big");
    EXPECT_LT(got.size(), size_t(X_MAXLINE));
    EXPECT_EQ(got.back(), '\'');
    EXPECT_EQ((got.size() - 2) % 4, 0u);  // whole '\'' groups only
}

}  // namespace
