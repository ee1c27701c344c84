// Line reading and preparation of page images: comments, controls, joins.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "page/page.h"

namespace {

// An image over a string, as the page cache holds it.
struct Image {
    std::string text;
    X_FILE file{};
    explicit Image(std::string t) : text(std::move(t)) {
        file.text = text.data();
        file.size = static_cast<long>(text.size());
    }
    // Reads and prepares the next line as the page loop does.
    std::string next() {
        static char line[X_MAXLINE];
        if (!X_fgets(line, X_MAXLINE, &file)) return "<eof>";
        cut_cmd(&file, line);
        return line;
    }
};

TEST(Reader, LinesKeepTheirNewlineAndTheLastMayLackIt) {
    Image img("one\ntwo");
    EXPECT_EQ(img.next(), "one\n");
    EXPECT_EQ(img.next(), "two");
    EXPECT_EQ(img.next(), "<eof>");
}

TEST(Reader, LongLinesAreReadInPieces) {
    Image img(std::string(10, 'x') + "\n");
    char buf[5];
    EXPECT_EQ(X_fgets(buf, sizeof buf, &img.file), 4);
    EXPECT_STREQ(buf, "xxxx");
    EXPECT_EQ(X_fgets(buf, sizeof buf, &img.file), 4);
}

TEST(Reader, CommandsAreCutAndIndentedCommandsRecognised) {
    Image img("   <@set> a\tb\n  text\tline\n x<@set> c d\n");
    EXPECT_EQ(img.next(), "<@set> a b");
    EXPECT_EQ(img.next(), "  text line\n");
    EXPECT_EQ(img.next(), " x<@set> c d\n");
}

TEST(Reader, ContinuationDropsTheFirstBackslashAndBlanksLaterOnes) {
    Image img("<@set> a\\\n bc\\\ndef\nnext\n");
    EXPECT_EQ(img.next(), "<@set> a bc def");
    EXPECT_EQ(img.next(), "next\n");
}

TEST(Reader, CommentsOnOneLineAndAcrossLines) {
    Image img("a<@-- x --@>b\n<@-- only --@>\nkeep <@-- open\nstill\nend --@> tail\nafter\n");
    EXPECT_EQ(img.next(), "ab\n");
    EXPECT_EQ(img.next(), "");
    EXPECT_EQ(img.next(), "keep  tail\n");
    EXPECT_EQ(img.next(), "after\n");
}

TEST(Reader, ACommentOpenedLateInAContinuationLineStillCloses) {
    // The comment starts near the end of the continuation buffer; the line
    // that closes it is read whole, so its "--@>" is found.
    std::string x(290, 'x');
    Image img("<@set> a \\\n" + x + "<@-- c\nabcdefg--@> tail\nnext\n");
    EXPECT_EQ(img.next(), "<@set> a " + x + " tail");
    EXPECT_EQ(img.next(), "next\n");
}

TEST(Reader, AnUnclosedCommentSwallowsTheRest) {
    Image img("text <@-- never closed\nmore\nlines\n");
    EXPECT_EQ(img.next(), "text ");
    EXPECT_EQ(img.next(), "<eof>");
}

TEST(Reader, TrimSqueezesBlanks) {
    char s[] = "   a   b  c ";
    trim_buff(s);
    EXPECT_STREQ(s, "a b c");
    char t[] = "    ";
    trim_buff(t);
    EXPECT_STREQ(t, "");
}

}  // namespace
