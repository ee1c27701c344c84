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

TEST_F(Config, FormFieldsBecomeVariablesButCannotForgeRunValues) {
    config("h:80 " + root + "\n");
    Outcome r = child([&] {
        setenv("HTTP_HOST", "h:80", 1);
        form({{"a", "1"}, {"X_ROOT", "/etc"}, {"e", ""}, {"n", nullptr}, {"a", "2"},
              {"X_PID", "1"}});
        X_values("Tolm", 0);
        printf("%s %s %s %s %s %s\n", value("X_ROOT").c_str(), value("a").c_str(),
               X_get_Mvalue("a", 2), value("e").c_str(), value("n").c_str(),
               value("X_PID") == "1" ? "forged" : "kept");
    });
    EXPECT_EQ(r.out, root + " 1 2 <none> <none> kept\n");
}

TEST_F(Config, PathChecksReportEachProblem) {
    config("h:80 " + root + "\n");
    mkdir((home + "/www2").c_str(), 0755);
    put(home + "/www2/secret.html", "s\n");
    struct Bad {
        std::string value, message;
    } cases[] = {
        {"../x.page", "Invalid (not matching root level: " + root + ") X_PAGE value: ../x.page \n"},
        {"sub/../../x.page", "Invalid (not matching root level: " + root + ")"},
        {"sub", "Invalid (not existing/regular file: " + root + "/sub) X_PAGE value: sub \n"},
        {"nope.html", "Invalid (not existing/regular file: " + root + "/nope.html)"},
        {home + "/www2/secret.html", "Invalid (not existing/regular file: " + root + home +
                                         "/www2/secret.html)"},
        {std::string(501, 'a'), "Invalid (too long) X_PAGE value: aaaa"},
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

TEST_F(Config, DefaultsNeedAnExistingPage) {
    Outcome r = child([&] {
        X_PAGE = nullptr;
        X_ERROR = nullptr;
        auto show = [](int rc) {
            printf("%d %s %s\n", rc, X_PAGE ? X_PAGE : "null", X_ERROR ? X_ERROR : "null");
        };
        show(X_default_names((home + "/none").c_str()));
        show(X_default_names(root.c_str()));
        put(root + "/x.error", "");
        X_ERROR = nullptr;
        show(X_default_names(root.c_str()));
    });
    EXPECT_EQ(r.out, "-1 null null\n0 " + root + "/x.page null\n0 " + root + "/x.page " + root +
                         "/x.error\n");
}

TEST_F(Config, CookieNamesWithLineBreaksAreNotWritten) {
    Outcome r = child([&] {
        X_put_value("X_ServerCOOKIES", "a\r\nLocation:http://x b");
        X_put_value("b", "1");
        X_set_cookies();
        printf("end\n");
    });
    EXPECT_EQ(r.out, "Set-Cookie: b=1; path=/; expires=31-Dec-2037 23:55:00 GMT \nend\n");
}

}  // namespace
