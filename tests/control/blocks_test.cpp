// Block commands driven through the block runner on in-memory page images:
// loop variables and their restoration, call frames, the stack guard, the
// elif chain and the file-block stream table.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "control/blocks.h"
#include "diag/diag.h"
#include "page/dispatch.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "storage/store.h"

namespace {

// A failing run shows its message on standard output; the child sends that
// to stderr so the death test can match it.
#define EXPECT_FATAL(stmt, re) \
    EXPECT_EXIT({ dup2(2, 1); stmt; }, ::testing::ExitedWithCode(254), re)

class Blocks : public ::testing::Test {
protected:
    void SetUp() override {
        if (!x_BUFFERS.hp) {
            x_BUFFERS.hp = X_heap_new();
            x_BUFFERS.vtree = {nullptr, X_avlcmp};
            x_BUFFERS.ftree = {nullptr, X_avlcmp};
            x_BUFFERS.ctree = {nullptr, X_avlcmp};
        }
        Trace = Debug = 0;
        IgnoreEmpty = 1;
        HTML = 0;
        Continue = Break = ContinueBreak = 0;
        Return = nullptr;
        capture = tmpfile();
        ASSERT_NE(capture, nullptr);
        X_stdout = X_fp = capture;
    }

    void TearDown() override {
        X_stdout = X_fp = nullptr;
        fclose(capture);
        for (X_OPEN &row : x_OPEN) {
            if (row.fp) fclose(row.fp);
            row = X_OPEN{};
        }
    }

    // A page image holding TEXT; images live until the process ends, as
    // function records may point to them.
    static X_FILE *image(const std::string &text) {
        auto *f = new X_FILE{};
        f->text = strdup(text.c_str());
        f->size = static_cast<long>(text.size());
        snprintf(f->path, sizeof f->path, "test.html");
        return f;
    }

    // Runs TEXT as a page and returns what it wrote.
    std::string run(const std::string &text) {
        X_notfound(image(text), 1, 0);
        return output();
    }

    // What was written since the last call.
    std::string output() {
        fflush(capture);
        std::string out;
        rewind(capture);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, capture)) > 0) out.append(buf, n);
        fclose(capture);
        capture = tmpfile();
        X_stdout = X_fp = capture;
        return out;
    }

    static std::string get(const char *name) {
        const char *v = X_get_value(name);
        return v ? v : "<unset>";
    }

    // Runs "<@call> TEXT" with a return buffer.
    static std::string call(const std::string &text) {
        std::vector<char> line(X_MAXLINE);
        snprintf(line.data(), line.size(), "<@call> %s", text.c_str());
        std::vector<char> ret(X_MAXLINE);
        EXPECT_EQ(X_call(line.data(), 1, 0, ret.data()), 0);
        return ret.data();
    }

    FILE *capture = nullptr;
};

TEST_F(Blocks, WordLoopOverAMillionWordsIsLinearAndRestoresTheValue) {
    std::string big;
    for (int i = 0; i < 1000000; i++) big += "w" + std::to_string(i) + " ";
    ASSERT_EQ(X_put_value("big", big.c_str()), 0);
    const char *before = X_get_value("big");
    auto t0 = std::chrono::steady_clock::now();
    std::string out = run("<@while> words big\n<@end>\nlast $(big)\n");
    double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_LT(secs, 30.0);
    EXPECT_EQ(out, "last " + big + "\n");
    EXPECT_EQ(X_find_user("big")->var.value, before);  // the same text, not a copy
}

TEST_F(Blocks, WordLoopBodyMayAssignTheLoopVariable) {
    // Long enough that the value lives in a block of its own, which an
    // assignment returns to the system.
    std::string words;
    for (int i = 0; i < 60; i++) words += "word" + std::to_string(i) + ",";
    ASSERT_EQ(X_put_value("list", words.c_str()), 0);
    std::string out = run(
        "<@while> words list ,\n"
        "[$(list)]\n"
        "<@set> list replaced\n"
        "<@end>\n");
    EXPECT_EQ(out.substr(0, 16), "[word0]\n[word1]\n");
    EXPECT_NE(out.find("[word59]\n"), std::string::npos);
    EXPECT_EQ(out.find("replaced"), std::string::npos);
    EXPECT_EQ(get("list"), words);
}

TEST_F(Blocks, WordLoopEndsWhenTheBodyClearsTheVariable) {
    ASSERT_EQ(X_put_value("gone", "a b c"), 0);
    EXPECT_EQ(run("<@while> words gone\n$(gone)\n<@clear> gone\n<@end>\nafter\n"), "a\nafter\n");
    EXPECT_EQ(X_find_user("gone"), nullptr);
}

TEST_F(Blocks, ValueLoopShowsEachValueAndRestoresTheList) {
    X_add_value("v", "one");
    X_add_value("v", std::string(400, 'x').c_str());
    X_add_value("v", "three");
    std::string out = run(
        "<@while> values v\n"
        "$(cut:5:v)|$(cut:5:mval:v:2)\n"
        "<@set> v assigned\n"
        "<@end>\n");
    EXPECT_EQ(out, "one|xxxxx\nxxxxx|three\nthree|\n");
    EXPECT_EQ(get("v"), "one");
    EXPECT_EQ(std::string(X_get_Mvalue("v", 2)), std::string(400, 'x'));
    EXPECT_STREQ(X_get_Mvalue("v", 3), "three");
    EXPECT_EQ(X_get_Mvalue("v", 4), nullptr);
}

TEST_F(Blocks, CallBindsShadowsAndRestores) {
    X_FILE *fp = image(
        "<@function> pair(a, b)\n"
        "<@set> touched yes\n"
        "<@return> $(a)/$(b)\n"
        "<@end>\n");
    X_notfound(fp, 1, 0);
    ASSERT_EQ(X_put_value("a", "outer"), 0);
    X_USER *outer = X_find_user("a");
    char mine[X_MAXLINE] = "untouched";
    Return = mine;
    // The returned text is the expansion of all that follows <@return>.
    EXPECT_EQ(call("pair(x, y)"), " x/y");
    EXPECT_EQ(call("pair"), " /");
    EXPECT_EQ(Return, mine);
    EXPECT_STREQ(mine, "untouched");
    EXPECT_EQ(X_find_user("a"), outer);
    EXPECT_EQ(get("a"), "outer");
    EXPECT_EQ(X_find_user("b"), nullptr);
    EXPECT_EQ(get("touched"), "yes");
    EXPECT_EQ(Continue + Break + ContinueBreak, 0);
    EXPECT_EQ(fp->offset, fp->size);  // the caller's position is back
}

TEST_F(Blocks, UnknownFunctionWithATrapEndsTheCallAtOnce) {
    run("<@function> onerror\ntrapped: $(X_ERRMSG)\n<@end>\n");
    ERRTRAP("onerror");
    char mine[X_MAXLINE] = "";
    Return = mine;
    char line[X_MAXLINE] = "<@call> nosuch(1)";
    char ret[X_MAXLINE] = "prepared";
    EXPECT_EQ(X_call(line, 1, 0, ret), 0);
    ERRTRAP("");
    EXPECT_EQ(Return, mine);
    EXPECT_STREQ(ret, "prepared");
    EXPECT_EQ(output(), "trapped: CALL: Unknown function name: nosuch \n\n");
}

TEST_F(Blocks, DeeplyNestedIfsAreReportedNotOverflowed) {
    std::string page;
    for (int i = 0; i < 5000; i++) page += "<@if> cmp a == a\n";
    int here;
    EXPECT_FATAL({
        X_stack_base(&here);
        run(page);
    }, "IF: nesting too deep: <@if> cmp a == a");
}

TEST_F(Blocks, LongElifChainsRunWithoutNesting) {
    std::string page = "<@set> pick 1999\n<@if> cmp $(pick) == none\nno\n";
    for (int i = 0; i < 2000; i++) page += "<@elif> icmp $(pick) == " + std::to_string(i) + "\nbranch " + std::to_string(i) + "\n";
    page += "<@else>\nelse\n<@end>\nafter\n";
    EXPECT_EQ(run(page), "branch 1999\nafter\n");
}

TEST_F(Blocks, UnclosedBlocksEndWithThePage) {
    EXPECT_EQ(run("<@if> cmp a == a\ninside if\n"), "inside if\n");
    EXPECT_EQ(run("<@set> n 0\n<@while>\n<@n>++\n<@if> icmp $(n) > 2 <@break>\nloop $(n)\n"),
              "loop 1\nloop 2\n");
    EXPECT_EQ(run("<@function> open\nbody\n"), "");
    EXPECT_EQ(call("open"), "");
    EXPECT_EQ(output(), "body\n");
}

TEST_F(Blocks, FileBlocksRestoreTheOutputAndFlushing) {
    char dir[] = "/tmp/tolm-blocks-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string path = std::string(dir) + "/out.txt";
    DO_fflush = 7;
    X_notfound(image(
        "before\n"
        "<@file> " + path + "\n"
        "one\n"
        "<@end>\n"
        "<@xfile> " + path + "\n"
        "two\n"
        "<@end>\n"
        "<@xfile> " + path + "\n"
        "three\n"
        "<@end>\n"
        "after\n"), 1, 0);
    EXPECT_EQ(X_stdout, capture);
    EXPECT_EQ(DO_fflush, 7);
    EXPECT_EQ(output(), "before\nafter\n");
    DO_fflush = 1;
    ASSERT_NE(x_OPEN[0].fp, nullptr);
    EXPECT_STREQ(x_OPEN[0].name, path.c_str());
    EXPECT_EQ(x_OPEN[1].fp, nullptr);
    fflush(x_OPEN[0].fp);
    FILE *f = fopen(path.c_str(), "r");
    ASSERT_NE(f, nullptr);
    char buf[64] = "";
    EXPECT_EQ(fread(buf, 1, sizeof buf - 1, f), 14u);
    fclose(f);
    EXPECT_STREQ(buf, "one\ntwo\nthree\n");
    unlink(path.c_str());
    rmdir(dir);
}

TEST_F(Blocks, AFullStreamTableRefusesAnotherXfile) {
    FILE *devnull = fopen("/dev/null", "a");
    for (X_OPEN &row : x_OPEN) {
        row.fp = devnull;
        snprintf(row.name, sizeof row.name, "busy");
    }
    EXPECT_FATAL(run("<@xfile> /tmp/never-created\nx\n<@end>\n"),
                 "X_xfile: outpass MAX open for file: \\{/tmp/never-created\\}");
    for (X_OPEN &row : x_OPEN) row = X_OPEN{};
    fclose(devnull);
}

}  // namespace
