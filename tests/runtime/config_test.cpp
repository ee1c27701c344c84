// Site configuration, request values, page paths and cookie header lines.
// Each case runs in a child process: the run values it publishes are
// read-only for the rest of a process, and errors end the process.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "runtime/config.h"
#include "runtime/runtime.h"
#include "storage/store.h"
#include "x.h"

namespace {

struct Outcome {
    int status;       // exit status of the child
    std::string out;  // what it wrote to standard output
};

std::string slurp(const std::string &path) {
    std::string out;
    if (FILE *f = fopen(path.c_str(), "rb")) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
        fclose(f);
    }
    return out;
}

void put(const std::string &path, const std::string &text) {
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr) << path;
    fputs(text.c_str(), f);
    fclose(f);
}

class Config : public ::testing::Test {
protected:
    std::string home;  // X_HOME with x.config
    std::string root;  // the document root

    void SetUp() override {
        char dir[] = "/tmp/tolm-cfg-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        home = dir;
        root = home + "/www";
        mkdir(root.c_str(), 0755);
        mkdir((root + "/sub").c_str(), 0755);
        put(root + "/x.page", "page\n");
        put(root + "/sub/p.html", "p\n");
    }

    void TearDown() override {
        std::string cmd = "rm -rf '" + home + "'";
        ASSERT_EQ(system(cmd.c_str()), 0);
    }

    // Runs body in a child with a fresh store, CGI environment unless
    // shell, and the standard output captured.
    Outcome child(const std::function<void()> &body, bool cgi = true) {
        std::string outfile = home + "/stdout";
        fflush(stdout);
        pid_t pid = fork();
        if (pid == 0) {
            if (!freopen(outfile.c_str(), "w", stdout)) _exit(99);
            for (const char *v : {"HTTP_HOST", "SERVER_NAME", "SERVER_PORT", "REQUEST_METHOD",
                                  "HTTP_COOKIE"})
                unsetenv(v);
            if (cgi) setenv("REQUEST_METHOD", "GET", 1);
            setenv("X_HOME", home.c_str(), 1);
            X_start();
            body();
            fflush(stdout);
            _exit(0);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(outfile)};
    }

    void config(const std::string &text) { put(home + "/x.config", text); }
};

std::string value(const char *name) {
    const char *v = X_get_value(name);
    return v ? v : "<none>";
}

void form(std::initializer_list<std::pair<const char *, const char *>> pairs) {
    int i = 0;
    for (auto &p : pairs) ent[i++] = entry{strdup(p.first), p.second ? strdup(p.second) : nullptr};
    ent[i] = entry{nullptr, nullptr};
}

TEST_F(Config, ServerKeyFromNameAndPortAndDefaults) {
    config("a.test:8080 " + root + " host\nsrv:81 " + root + " named\nshell:00 " + root +
           " shellsite\n");
    auto base = [&](bool cgi, const std::function<void()> &env) {
        return child([&] {
            env();
            X_values("Tolm", cgi ? 0 : 1);
            printf("%s", value("X_BASE").c_str());
        }, cgi).out;
    };
    EXPECT_EQ(base(true, [] { setenv("HTTP_HOST", "a.test:8080", 1); }), "host");
    EXPECT_EQ(base(true, [] {
        setenv("SERVER_NAME", "srv", 1);
        setenv("SERVER_PORT", "81", 1);
    }), "named");
    EXPECT_EQ(base(false, [] {}), "shellsite");
}

TEST_F(Config, LongConfigWordsAreCut) {
    std::string base(60, 'b');
    config("h:80 " + root + " " + base + " hold\n");
    Outcome r = child([&] {
        setenv("HTTP_HOST", "h:80", 1);
        X_values("Tolm", 0);
        printf("%s %d\n", value("X_BASE").c_str(), X_BASE_hold);
    });
    EXPECT_EQ(r.out, std::string(39, 'b') + " 1\n");
}

// Climbing back out of a directory below the root, a directory for a page,
// and a sibling of the root whose name merely begins with the root's.
TEST_F(Config, PathChecksReportEachProblem) {
    config("h:80 " + root + "\n");
    mkdir((home + "/www2").c_str(), 0755);
    put(home + "/www2/secret.html", "s\n");
    struct Bad {
        std::string value, message;
    } cases[] = {
        {"sub/../../x.page", "Invalid (not matching root level: " + root +
                                 ") X_PAGE value: sub/../../x.page \n"},
        {"sub", "Invalid (not existing/regular file: " + root + "/sub) X_PAGE value: sub \n"},
        {home + "/www2/secret.html", "Invalid (not existing/regular file: " + root + home +
                                         "/www2/secret.html)"},
    };
    for (const Bad &c : cases) {
        Outcome r = child([&] {
            setenv("HTTP_HOST", "h:80", 1);
            form({{"X_PAGE", c.value.c_str()}});
            X_values("Tolm", 0);
        });
        EXPECT_EQ(r.status, 254) << c.value;
        EXPECT_NE(r.out.find(c.message), std::string::npos) << c.value << "\n" << r.out;
    }
}

TEST_F(Config, AbsolutePageInsideTheRootIsKept) {
    config("h:80 " + root + "\n");
    Outcome r = child([&] {
        setenv("HTTP_HOST", "h:80", 1);
        form({{"X_PAGE", (root + "/sub/p.html").c_str()}, {"X_ERROR", "x.page"}});
        X_values("Tolm", 0);
        printf("%s %s\n", X_PAGE, X_ERROR);
    });
    EXPECT_EQ(r.out, root + "/sub/p.html " + root + "/x.page\n");
}

// The trace lines of the page and error-page search, time stamps dropped.
std::string path_trace(const std::string &out) {
    std::string kept;
    for (size_t pos = 0; pos < out.size();) {
        size_t eol = out.find('\n', pos);
        if (eol == std::string::npos) eol = out.size();
        std::string line = out.substr(pos, eol - pos);
        size_t text = line.find("] ");
        if (text != std::string::npos) {
            line = line.substr(text + 2);
            if (!line.compare(0, 4, "def:") || !line.compare(0, 12, "regular_file"))
                kept += line + "\n";
        }
        pos = eol + 1;
    }
    return kept;
}

// x.page under the root, then x.error beside it; the error page is looked
// for without a trace of its own, and not at all when there is no page.
TEST_F(Config, DefaultsAndTheirTrace) {
    Outcome r = child([&] {
        Trace = 1;
        X_PAGE = X_ERROR = nullptr;
        printf("%d\n", X_default_names((home + "/none").c_str()));
        put(root + "/x.error", "");
        printf("%d\n", X_default_names(root.c_str()));
        Trace = 0;
        printf("[%s %s]\n", X_PAGE, X_ERROR);
    });
    EXPECT_EQ(path_trace(r.out), "def: X_PAGE\n"
                                 "regular_file: " + home + "/none/x.page ==> ? \n"
                                 "def: X_PAGE\n"
                                 "regular_file: " + root + "/x.page ==> ? \n"
                                 "regular_file: " + root + "/x.page ==> OK.\n"
                                 "def: X_PAGE: " + root + "/x.page\n"
                                 "def: X_ERROR: " + root + "/x.error\n");
    EXPECT_NE(r.out.find("-1\n"), std::string::npos);
    EXPECT_NE(r.out.find("[" + root + "/x.page " + root + "/x.error]\n"), std::string::npos) << r.out;
}

}  // namespace
