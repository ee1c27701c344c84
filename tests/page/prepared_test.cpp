// Prepared lines against the long way: which lines get a plan, and random
// pages whose output must not change when lines are prepared.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "page/dispatch.h"
#include "page/page.h"
#include "page/prepared.h"
#include "runtime/runtime.h"
#include "storage/store.h"

namespace {

// Runs PAGE in a child process with the given presets and switch; returns
// what it wrote (standard output, and standard error where error reports
// name the page line) followed by its exit status.
std::string run(const std::string &page, const std::vector<std::pair<std::string, std::string>> &vars,
                int prepared) {
    char dir[] = "/tmp/tolm-prep-XXXXXX";
    if (!mkdtemp(dir)) return "mkdtemp failed";
    std::string path = std::string(dir) + "/page.html", out = std::string(dir) + "/out";
    std::ofstream(path) << page;
    pid_t pid = fork();
    if (pid == 0) {
        alarm(20);  // a page that never ends fails the comparison
        int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd, 1);
        dup2(fd, 2);
        setenv("REQUEST_METHOD", "GET", 1);
        X_start();
        X_put_value("X_ROOT", "/");
        for (auto &[name, value] : vars) X_put_value(name.c_str(), value.c_str());
        X_prepared = prepared;
        X_printfile(path.c_str(), 1);
        X_exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    std::stringstream text;
    text << std::ifstream(out).rdbuf();
    unlink(out.c_str());
    unlink(path.c_str());
    rmdir(dir);
    std::string shown = text.str();
    for (size_t at; (at = shown.find(dir)) != std::string::npos;) shown.replace(at, strlen(dir), "DIR");
    return shown + "\n[status " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + "]";
}

// ---- Random pages ----------------------------------------------------------

const char *const kNames[] = {"a", "b", "n", "s"};
// Values chosen to move words and operators if a shortcut trusted them.
const char *const kValues[] = {"5",    "-3",   "12abc", "x>y",  "a b",  "'q'", "$(a)", "",
                               ">=",   "7 8",  "[x]",   "&&",   "1>=2", "0",   "99",   "z",
                               "\"q", "a\tb", ">$=b",  "&gt;", "0012", "-",   "é",
                               // Numbers near the ends of the range and texts that only
                               // look like numbers: a kept number must read as the text.
                               "9223372036854775807", "-9223372036854775808", "9223372036854775806",
                               "2147483647", "-2147483649", " 12", "+5", "-0", "007", "1e3",
                               "99999999999999999999", "12 "};
const char *const kOps[] = {"=", "+=", "-=", "*=", "/=", "%=", ";=", "$="};
const char *const kCmp[] = {"==", "!=", ">=", "<", "&gt;", "=", "like", "??"};

// Two functions the pages call: one works on its parameter "n", which hides
// the page's own, the other on the page's variables.
const char *const kFunctions = "<@function> f0(n)\n<@n>+= 1\n<@r>= $(n)\n<@a>++\n<@return> $(n)\n<@end>\n"
                               "<@function> f1(x)\n<@b>-= $(x)\n<@r>= $(b)\n<@end>\n";

struct Gen {
    std::mt19937 rng;
    std::string page;
    int loops = 0;

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }
    template <size_t N> const char *any(const char *const (&a)[N]) { return a[pick(N)]; }

    std::string operand() {
        switch (pick(6)) {
        case 0: return std::to_string(pick(21) - 10);
        case 1: return std::string("$(") + any(kNames) + ")";
        case 5: return std::to_string(pick(3) - 1) + std::string(pick(2) ? "" : "000000000000000000");
        case 2: return "$(" + std::string(any(kNames)) + ") tail";
        case 3: return "'" + std::string(any(kValues)) + "'";
        default: return any(kValues);
        }
    }

    void statement(int depth) {
        std::string v = any(kNames);
        switch (pick(depth < 2 ? 12 : 9)) {
        case 0: page += "<@" + v + ">" + any(kOps) + " " + operand() + "\n"; break;
        case 1: page += "<@" + v + (pick(2) ? ">++\n" : ">--\n"); break;
        case 2: page += "<@" + v + ">=" + operand() + "\n"; break;
        case 3: page += "<@set> " + v + " " + operand() + "\n"; break;
        case 4:
            page += "[" + v + "=$(" + v + ")] $(" + any(kNames) + ") & <b>\n";
            if (pick(4) == 0) page += "$(len:" + v + ") $(" + v + "\n";
            if (pick(8) == 0) page += std::string("<@option> fflush ") + (pick(2) ? "on\n" : "off\n");
            break;
        case 5:
            if (pick(4) == 0) {  // an error once the value stops being a number
                page += "<@if> fmt $(" + v + ") int <@continue>\n";
                break;
            }
            page += std::string("<@if> ") + (pick(2) ? "icmp" : pick(2) ? "!cmp" : "cmp") + " " + operand() +
                    " " + any(kCmp) + " " + operand() + (pick(2) ? " <@break>\n" : " <@continue>\n");
            break;
        case 6:  // a block if: heads with prepared tests, bodies with any statement
            page += std::string("<@if> ") + (pick(2) ? "cmp $(" : "!icmp $(") + v + ") " + any(kCmp) + " " +
                    any(kValues) + "\nyes $(" + v + ")\n<@" + any(kNames) + ">+= " + operand() + "\n";
            if (depth < 3 && pick(2)) block(depth + 1);
            if (pick(2)) {
                page += "<@elif> icmp " + operand() + " < " + operand() + "\nelif\n";
                if (depth < 3) block(depth + 1);
            }
            if (pick(2)) page += "<@else>\nno\n";
            if (depth < 3 && pick(2)) block(depth + 1);
            page += "<@end>\n";
            break;
        case 7: {  // text edited in place: the value keeps its address
            const char *const edits[] = {"<@exec> chchar ", "<@exec> strcut "};
            const char *const args[] = {" 1/7", " 9/-", " 0/ ", " 5", " -", " 2"};
            page += std::string(any(edits)) + v + any(args) + "\n";
            if (pick(2)) page += "[$(word:" + v + ":1)]\n";
            break;
        }
        case 8:  // a call: the parameter hides the variable of its name
            page += "<@call> f" + std::to_string(pick(2)) + "(" + operand() + ")\n[ret $(r)]\n";
            break;
        case 9: {  // a counted loop: the counter is nobody else's
            std::string c = "c" + std::to_string(loops++);
            page += "<@set> " + c + " 0\n<@while>\n<@" + c + ">++\n<@if> icmp $(" + c + ") > " +
                    std::to_string(1 + pick(5)) + " <@break>\n";
            if (pick(3)) {  // a block if on the counter: its branches change as the loop runs
                page += "<@if> icmp $(" + c + ") " + any(kCmp) + " 2\n<@" + v + ">+= " + operand() + "\n";
                block(depth + 1);
                if (pick(2)) page += "<@elif> cmp $(" + c + ") != 3\n<@" + v + ">++\n[elif $(" + v + ")]\n";
                if (pick(2)) page += "<@else>\n<@" + v + ">= $(" + c + ")\n";
                page += "<@end>\n";
            }
            block(depth + 1);
            page += "<@end>\n";
            break;
        }
        case 10:
            page += "<@while> values " + v + "\nv[$(" + v + ")]\n";
            block(depth + 1);
            page += "<@end>\n";
            break;
        default:
            page += "<@while> words " + v + "\nw[$(" + v + ")]\n";
            block(depth + 1);
            page += "<@end>\n";
        }
    }

    void block(int depth) {
        for (int k = 1 + pick(4); k > 0; k--) statement(depth);
    }
};

}  // namespace

struct PlanCase {
    const char *line;
    bool planned;
};

// Each line gets a plan from PREPARE exactly when it is marked planned.
template <typename Plan, size_t N>
void expect_plans(const PlanCase (&cases)[N], int (*prepare)(const char *, Plan *)) {
    for (const PlanCase &c : cases) {
        Plan plan;
        EXPECT_EQ(prepare(c.line, &plan) == 0, c.planned) << c.line;
    }
}

TEST(Prepared, LinesThatGetAPlan) {
    const PlanCase lets[] = {
        {"<@n>+= $(i)", true},    {"<@n>++", true},          {"<@n>= word", true},
        {"<@n>=$(i)", true},      {"<@n>-= 5 junk", true},   {"<@n>+= $(i) $(j)", false},
        {"<@$(v)>= 1", false},    {"<@n>= 'a b'", false},    {"<@n>;= x", false},
        {"<@n>$= x", false},      {"<@n>++ $(i)", false},    {"<@n>+= $(len:i)", false},
        {"<@n>+= $(i)x", false},  {"<@n>+= x$(i)", false},   {"<@n> nothing", false},
    };
    expect_plans(lets, X_let_prepare);
    const PlanCase ifs[] = {
        {"<@if> icmp $(i) >= 100000 <@break>", true}, {"<@if> !cmp $(a) == x <@continue>", true},
        {"<@if> cmp $(a) &gt; $(b) <@break>", true},  {"<@if> icmp $(i) >= 1 <@set> x 1", false},
        {"<@if> cmp $(a) like x* <@break>", false},   {"<@if> cmp 'a b' == x <@break>", false},
        {"<@if> icmp 1 == 1 && 2 == 2 <@break>", false}, {"<@if> $(a) == x <@break>", false},
        {"<@if> icmp $(i) >= <@break>", false},       {"<@if> icmp x$(i) == 1 <@break>", false},
    };
    expect_plans(ifs, X_if_prepare);
    const PlanCase heads[] = {
        {"<@if> icmp $(i) > 50000", true},       {"<@elif> !cmp $(a) == x", true},
        {"<@if> icmp $(i) > 5 <@break>", false},  {"<@elif> cmp $(a) like x*", false},
        {"<@if> cmp $(a) == x && 1", false},      {"<@else>", false},
    };
    expect_plans(heads, X_if_head_prepare);
    const PlanCase texts[] = {
        {"plain text\n", true},   {"a $(x) b $(y)\n", true},  {"$(x$(y))\n", false},
        {"$(len:x)\n", false},    {"$(x\n", false},           {"$()\n", false},
        {"cost $5 (net)\n", true},
    };
    expect_plans(texts, X_text_prepare);
}

TEST(Prepared, RandomPagesReadTheSameBothWays) {
    for (unsigned seed = 1; seed <= 400; seed++) {
        Gen g{std::mt19937(seed), kFunctions, 0};
        g.block(0);
        g.page += "[end $(a) $(b) $(n) $(s)]\n";
        std::vector<std::pair<std::string, std::string>> vars;
        for (const char *name : kNames)
            if (g.pick(4)) vars.emplace_back(name, g.any(kValues));
        std::string slow = run(g.page, vars, 0);
        std::string fast = run(g.page, vars, 1);
        ASSERT_EQ(fast, slow) << "seed " << seed << "\n" << g.page;
    }
}

TEST(Prepared, CountedLoopKeepsItsResultAndErrorLines) {
    std::string page = "<@set> n 0\n<@set> i 0\n<@while>\n<@n>+= $(i)\n<@i>++\n"
                       "<@if> icmp $(i) >= 2000 <@break>\n<@end>\n$(n) $(i)\n";
    EXPECT_EQ(run(page, {}, 1), "1999000 2000\n\n[status 0]");
    EXPECT_EQ(run(page, {}, 0), run(page, {}, 1));
    // An error on a later round names its line, as when it is read.
    page = "<@set> v 1\n<@set> i 0\n<@while>\n<@i>++\n<@if> icmp $(i) > 3 <@v>= x\n"
           "<@if> fmt $(v) int <@continue>\n<@end>\n";
    std::string slow = run(page, {}, 0);
    EXPECT_NE(slow.find("page.html:6: error"), std::string::npos) << slow;
    EXPECT_EQ(run(page, {}, 1), slow);
    // A body of many lines, each met again on every round and looked up
    // among all the others (the table of positions grows as lines come).
    page = "<@set> i 0\n<@while>\n<@i>++\n";
    for (int k = 0; k < 700; k++)
        page += k % 7 ? "t" + std::to_string(k) + " $(i)\n" : "<@set> v" + std::to_string(k) + " $(i)\n";
    page += "<@if> icmp $(i) >= 3 <@break>\n<@end>\n$(v693) $(v0)\n";
    slow = run(page, {}, 0);
    EXPECT_NE(slow.find("t699 3\n3 3\n"), std::string::npos) << slow.substr(slow.size() - 40);
    EXPECT_EQ(run(page, {}, 1), slow);
}

TEST(Prepared, TextLinesKeepTheirPiecesInOrder) {
    // Latin bytes become entities between gathered pieces, a value longer
    // than the gathering buffer goes out on its own; flushing as collected,
    // on and off.
    const std::string big(3000, 'w');
    std::string line;
    for (int i = 1; i <= 3; i++)
        line += "[a&ordmas;\xa9|" + big + "|" + std::to_string(i) + "] &ordmas;\xa9!\n";
    for (const char *flush : {"", "<@option> fflush on\n", "<@option> fflush off\n"}) {
        std::string page = std::string(flush) + "<@set> v \"a\xc3\xa9\"\n<@set> w " + big +
                           "\n<@set> i 0\n<@while>\n<@i>++\n[$(v)|$(w)|$(i)] \xc3\xa9!\n"
                           "<@if> icmp $(i) >= 3 <@break>\n<@end>\n";
        std::string fast = run(page, {}, 1);
        EXPECT_EQ(fast, line + "\n[status 0]") << flush;
        EXPECT_EQ(run(page, {}, 0), fast) << flush;
    }
}

TEST(Prepared, TraceShowsEveryLookupOfALoopVariable) {
    // Under trace nothing is looked up from a binding: the trace shows each
    // lookup by name, as when no binding exists (13 for this page).
    std::string page = "<@option> trace on\n<@set> w \"1 2 3\"\n<@while> words w\n$(w)\n<@end>\n";
    std::string out = run(page, {}, 1);
    size_t lookups = 0;
    for (size_t at = 0; (at = out.find("AVL_search key: [w]", at)) != std::string::npos; at++) lookups++;
    EXPECT_EQ(lookups, 13u) << out;
}
