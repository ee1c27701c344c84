// Condition, assignment and option lines; blocks on in-memory pages: huge and
// changing loop values, nesting limits, unclosed blocks, the full stream table.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "control/cond.h"
#include "control/let.h"
#include "control/option.h"
#include "diag/diag.h"
#include "page/dispatch.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/store.h"

namespace {

// The child sends the run's message from standard output to stderr for the matcher.
#define EXPECT_FATAL(stmt, re) EXPECT_EXIT({ dup2(2, 1); stmt; }, ::testing::ExitedWithCode(254), re)

class Control : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!x_BUFFERS.hp) {
            x_BUFFERS.hp = X_heap_new();
            x_BUFFERS.vtree = x_BUFFERS.ftree = x_BUFFERS.ctree = {nullptr, X_avlcmp};
        }
        Trace = Debug = HTML = X_eof = Continue = Break = ContinueBreak = 0;
        IgnoreEmpty = 1;
        Return = nullptr;
        X_stdout = X_fp = capture = tmpfile();
        for (auto [name, value] : {std::pair{"c_empty", ""}, {"c_full", "apple"}, {"c_n", "12"}, {"c_bad", "12a"}})
            X_put_value(name, value);
    }
    void TearDown() override { fclose(capture); }

    // Lines run on writable, exactly sized copies: a write past them is caught.
    static std::vector<char> buf(const std::string &s) { return {s.c_str(), s.c_str() + s.size() + 1}; }
    static int cond(const std::string &text, int compile = 0)
    {
        std::vector<char> c = buf(text), scratch(X_MAXLINE);
        return X_if_SCAN(c.data(), scratch.data(), compile);
    }
    static int let(const std::string &line, int compile = 0) { return X_let(buf(line).data(), compile, 0); }
    int opt(const std::string &args) { return X_option(buf("<@option>" + args).data(), &compile, 0); }
    static std::string val(const char *name) { return X_get_value(name) ? X_get_value(name) : "(none)"; }
    // Runs TEXT as a page and returns what it wrote. Images are kept, as
    // function records may point into them.
    std::string run(const std::string &text)
    {
        auto *f = new X_FILE{};
        f->text = strdup(text.c_str());
        f->size = static_cast<long>(text.size());
        X_notfound(f, 1, 0);
        fflush(capture);
        std::string out(ftell(capture), '\0');
        rewind(capture);
        out.resize(fread(out.data(), 1, out.size(), capture));
        rewind(capture);
        EXPECT_EQ(ftruncate(fileno(capture), 0), 0);
        return out;
    }
    int compile = 1;
    FILE *capture = nullptr;
};

TEST_F(Control, FormatCheckers)
{
    for (const char *ok : {"", "-", "123", "-45"}) EXPECT_EQ(X_check_int(ok), 0) << ok;
    for (const char *bad : {"+1", "1-2", "12a", "1.0"}) EXPECT_EQ(X_check_int(bad), -1) << bad;
    for (const char *ok : {".", "-.5", "3."}) EXPECT_EQ(X_check_float(ok), 0) << ok;
    for (const char *bad : {"1.2.3", "1e5"}) EXPECT_EQ(X_check_float(bad), -1) << bad;
    for (const char *ok : {"2024-02-29", "2023-02-29", "2x24-01-01", "-999-12-31", "2024-1x-3x"})
        EXPECT_EQ(X_check_date(ok), 0) << ok;
    for (const char *bad : {"2024-02-30", "2024-04-31", "2024-13-01", "2024-00-10", "2024-01-00",
                            "x024-01-01", "2024-01-x1", "2024-1-01", "2024/01/01", "2024-01-011"})
        EXPECT_EQ(X_check_date(bad), -1) << bad;
}

TEST_F(Control, Conditions)
{
    struct { const char *text; int want, compile = 0; } cases[] = {
        {"cmp 10 < 9", 1}, {"cmp \xc3\xa9 &gt; z", 1}, {"cmp b &lt;= a", 0}, {"cmp bac !like a*", 1},
        {"cmp c_full vlike a*", 1}, {"cmp c_none vlike *", 0}, {"cmp c_none !vlike a*", 1},
        {"icmp 3 &ge; 2", 1}, {"fcmp 0.3 == 0.30000000000000004", 0}, {"b > a", 0}, {"10 == 10.0", 0},
        {"icmp 12abc == 12", 1}, {"icmp 4294967297 == 1", 1}, {"fcmp abc == 0", 1},
        {"cmp \"a b\" == 'a b'", 1}, {"$(c_n) == 12", 1, 1}, {"$(c_n) == 12", 0},
        {"set c_empty", 0}, {"!set c_empty", 1}, {"filled c_full", 1}, {"!filled c_none", 1},
        {"c_full", 1}, {"!c_full", 0}, {"!c_none", 1}, {"!EOF", 1}, {"!fmt c_n float", 0}, {"fmt -42 int", 1},
        {"exist /", 1}, {"!access /no/such/file", 1}, {"isDir /", 1}, {"isFile /", 0},
        {"isFile /proc/self/status", 1}, {"!isDir /no/such/dir", 1},
        // connectors apply to the rest of the condition and short-circuit
        {"cmp 1 == 1 && cmp 1 == 2 || cmp 1 == 1", 1}, {"cmp 1 == 2 || cmp 1 == 1 && cmp 1 == 2", 0},
        {"cmp 1 == 2 && cmp a ?? b", 0}, {"cmp 1 == 1 || cmp a ?? b", 1},
        {"cmp \"a && b\" == 'a && b'", 1}, {"cmp [x||y] == {x||y}", 1}, {" \t\n cmp a == a&&cmp b == b", 1},
        {"(cmp 1 == 1 && cmp 1 == 2) || cmp a == a", 1}, {"((cmp \"a)\" == \"a)\"))  ", 1}, {"(cmp 1 == 1", 1},
    };
    for (const auto &c : cases) EXPECT_EQ(cond(c.text, c.compile), c.want) << c.text;
    X_eof = 1;
    EXPECT_EQ(cond("EOF"), 1);
    EXPECT_FATAL(cond("icmp 1 like 1"), "Unknown ICMP operator: like ");
    EXPECT_FATAL(cond("fcmp 1 vlike 1"), "Unknown FCMP operator: vlike ");
    EXPECT_FATAL(cond("!cmp a ?? b"), "Unknown CMP operator: \\?\\? ");
    EXPECT_FATAL(cond("cmp 1 == 1 &&"), "Unknown CMP operator:  ");
    EXPECT_FATAL(cond("!fmt c_bad int"), "Unknown option in FMT: int ");
    EXPECT_FATAL(cond("fmt c_n number"), "Unknown option in FMT: number ");
    EXPECT_FATAL(cond("(cmp 1 == 1) junk"), "Incorrect IF condition: cmp 1 == 1 ");
    // Long and deep conditions stay in bounds.
    std::string a(32760, 'a'), b(32763, 'b');
    EXPECT_EQ(cond("cmp " + a + " == " + a), 1);
    EXPECT_EQ(cond("cmp " + b + " == " + b), 0);  // the last word is cut
    EXPECT_EQ(cond(std::string(100, '(') + "cmp 1 == 1" + std::string(100, ')')), 1);
    EXPECT_FATAL(cond(std::string(30000, '(') + "cmp 1 == 1" + std::string(30000, ')')), "Incorrect IF condition: ");
    EXPECT_FATAL(cond(std::string(60000, '(')), "Incorrect IF condition: ");
}

// One operator applied to let_n holding OLD (nullptr: missing).
TEST_F(Control, AssignmentLines)
{
    X_put_value("let_t", "abcdef");
    struct { const char *old, *line, *want; } cases[] = {
        {nullptr, "++", "1"}, {nullptr, "-= 7", "-7"}, {nullptr, "*= 5", "5"}, {nullptr, "/= 0", "1"},
        {nullptr, "%= 3", "0"}, {"10", "-= 15", "-5"}, {"-7", "/= 2", "-3"}, {"-7", "%= 3", "-1"},
        {"7", "%= -3", "1"}, {"7", "/= 0", "7"}, {"7", "%= 0", "0"}, {"12abc", "+= 3xyz", "15"},
        // 64 bits, wrapping instead of trapping
        {"4294967296", "*= 2", "8589934592"}, {"9223372036854775807", "++", "-9223372036854775808"},
        {"-9223372036854775808", "/= -1", "-9223372036854775808"}, {"-9223372036854775808", "%= -1", "0"},
        {"99999999999999999999", "+= 0", "9223372036854775807"},
        {"old", "= hello world", "hello"}, {"old", "= \"hello world\"", "hello world"}, {"old", "=", ""},
        {nullptr, ";= cd", "cd"}, {"abcdef", ":4;= x", "abcx"}, {"abcd", ":4;= x", "abcdx"},
        {"", "$= let_t:2:4", "bcd"}, {"", "$= let_t:2", "bcdef"}, {"", "$= let_t:0:2", "abc"},
        {"", "$= let_t:9:2", "abc"}, {"", "$= let_t:5:5", "ef"}, {"", "$= let_t:-3:-1", "abcdef"},
        {"x", "$= let_none:1:2", "x"}, {"xyz", ":2$= let_t:3:3", "xcdef"},
    };
    for (const auto &c : cases) {
        X_clear_value("let_n");
        if (c.old) X_put_value("let_n", c.old);
        std::string l = c.line;  // "let_n:4;= x" carries the length in the name
        std::string full = l[0] == ':' ? "<@let_n" + l.substr(0, 2) + ">" + l.substr(2) : "<@let_n>" + l;
        EXPECT_EQ(let(full), 0) << full;
        EXPECT_EQ(val("let_n"), c.want) << (c.old ? c.old : "(none)") << " " << full;
    }
    EXPECT_EQ(let("<@let_a> 5"), -1);
    EXPECT_EQ(let("<@let_a>+ 5"), -1);
    // ">=" is searched before ">+=": the name ends at the operand's ">=".
    EXPECT_EQ(let("<@let_a>+= b>=c"), 0);
    EXPECT_EQ(val("let_a>+= b"), "c");
    ASSERT_EQ(X_put_value("let_fixed", "3", 1), 0);
    EXPECT_EQ(let("<@let_fixed>++"), -1);
    EXPECT_STREQ(X_ERRMSG, "## Fixed Value: let_fixed");
    // Text values stop at the line size.
    X_put_value("let_big", std::string(X_MAXLINE - 100, 'a').c_str());
    EXPECT_EQ(let("<@let_big>;= " + std::string(1000, 'b')), 0);
    EXPECT_EQ(val("let_big").size(), size_t(X_MAXLINE - 1));
    X_put_value("let_src", std::string(X_MAXLINE - 10, 'c').c_str());
    EXPECT_EQ(let("<@let_big>$= let_src"), 0);
    EXPECT_EQ(val("let_big").size(), size_t(X_MAXLINE - 1));
}

TEST_F(Control, Options)
{
    struct { const char *args; int *flag; int want; } cases[] = {
        {" FLUSH Off", &MY_fflush, 0}, {" fflush on", &MY_fflush, 1}, {" fflush onward", &MY_fflush, -1},
        {" sql_names uppercase", &X_sqlcase, 1}, {" sql_transactions off", &X_sqlTRANS, 0},
        {" sql_trap on_transactions", &X_sqlTRANS, 1}, {" sql_trap off", &X_sqlTRAP, 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(opt(c.args), 0) << c.args;
        EXPECT_EQ(*c.flag, c.want) << c.args;
    }
    // Trap functions keep their case and are cut at their capacity.
    EXPECT_EQ(opt(" err_trap FUNCTION OnError"), 0);
    EXPECT_STREQ(err_func, "OnError");
    EXPECT_EQ(opt(" sql_trap function " + std::string(100, 'f')), 0);
    EXPECT_EQ(strlen(TRAPfunc), 62u);
    EXPECT_EQ(opt(" SIGNAL SIGUSR2 " + std::string(40, 'h')), 0);
    EXPECT_EQ(std::string(SignalFUNC[SIGUSR2]), std::string(30, 'h'));
    compile = err_trap = 0;
    EXPECT_FATAL(opt(" latin_html $(opt_mode)"), "Unknown option:  latin_html \\$\\(opt_mode\\)");
    EXPECT_FATAL(opt(" err_trap OnError"), "Unknown option:  err_trap OnError");
}

TEST_F(Control, WordLoopOverAMillionWordsIsLinearAndRestoresTheValue)
{
    std::string big;
    for (int i = 0; i < 1000000; i++) big += "w" + std::to_string(i) + " ";
    ASSERT_EQ(X_put_value("big", big.c_str()), 0);
    const char *before = X_get_value("big");
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(run("<@while> words big\n<@end>\nlast $(big)\n"), "last " + big + "\n");
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 30.0);
    EXPECT_EQ(X_find_user("big")->var.value, before);  // the same text, not a copy
}

TEST_F(Control, LoopBodiesMayAssignOrClearTheLoopVariable)
{
    // Long enough for a heap block of its own, which the assignment gives back.
    std::string words;
    for (int i = 0; i < 60; i++) words += "word" + std::to_string(i) + ",";
    ASSERT_EQ(X_put_value("list", words.c_str()), 0);
    std::string out = run("<@while> words list ,\n[$(list)]\n<@set> list replaced\n<@end>\n");
    EXPECT_EQ(out.substr(0, 16), "[word0]\n[word1]\n");
    EXPECT_NE(out.find("[word59]\n"), std::string::npos);
    EXPECT_EQ(val("list"), words);
    ASSERT_EQ(X_put_value("gone", "a b c"), 0);
    EXPECT_EQ(run("<@while> words gone\n$(gone)\n<@clear> gone\n<@end>\nafter\n"), "a\nafter\n");
    X_add_value("v", "one");
    X_add_value("v", std::string(400, 'x').c_str());
    EXPECT_EQ(run("<@while> values v\n$(cut:5:v)|$(cut:5:mval:v:2)\n<@set> v new\n<@end>\n"), "one|xxxxx\nxxxxx|\n");
    EXPECT_EQ(std::string(X_get_Mvalue("v", 2)), std::string(400, 'x'));
}

TEST_F(Control, NestingLimitsAndUnclosedBlocks)
{
    std::string page = "<@set> pick 1999\n<@if> cmp $(pick) == none\nno\n", deep;
    for (int i = 0; i < 2000; i++) page += "<@elif> icmp $(pick) == " + std::to_string(i) + "\nbranch " + std::to_string(i) + "\n";
    EXPECT_EQ(run(page + "<@else>\nelse\n<@end>\nafter\n"), "branch 1999\nafter\n");  // a chain does not nest
    EXPECT_EQ(run("<@if> cmp a == a\ninside if\n"), "inside if\n");
    EXPECT_EQ(run("<@set> n 0\n<@while>\n<@n>++\n<@if> icmp $(n) > 2 <@break>\nloop $(n)\n"), "loop 1\nloop 2\n");
    EXPECT_EQ(run("<@function> open\nbody\n"), "");
    EXPECT_EQ(run("<@call> open\n"), "body\n");
    for (int i = 0; i < 5000; i++) deep += "<@if> cmp a == a\n";
    int here;
    EXPECT_FATAL({ X_stack_base(&here); run(deep); }, "IF: nesting too deep: <@if> cmp a == a");
    FILE *devnull = fopen("/dev/null", "a");
    for (X_OPEN &row : x_OPEN) row.fp = devnull;
    EXPECT_FATAL(run("<@xfile> /tmp/never-created\nx\n<@end>\n"),
                 "X_xfile: outpass MAX open for file: \\{/tmp/never-created\\}");
    for (X_OPEN &row : x_OPEN) row = X_OPEN{};
    fclose(devnull);
}

}  // namespace
