// Shared set-up of the system-command tests: one started interpreter per
// process, a scratch directory per test, and helpers to run a command.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "runtime/runtime.h"
#include "storage/store.h"
#include "x.h"

class SysCmd : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static bool started;
        if (!started) X_start();
        started = true;
    }

    void SetUp() override
    {
        char tmpl[] = "/tmp/tolm-sys-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
        ASSERT_NE(getcwd(home, sizeof home), nullptr);
        ASSERT_EQ(chdir(dir.c_str()), 0);
    }

    void TearDown() override
    {
        for (X_OPEN &row : x_OPEN) {
            if (row.fp) fclose(row.fp);
            row.fp = nullptr;
            row.name[0] = '\0';
        }
        ASSERT_EQ(chdir(home), 0);
        std::string rm = "rm -rf '" + dir + "'";
        ASSERT_EQ(system(rm.c_str()), 0);
    }

    // Runs a handler on a command line as dispatch does (compile 1).
    template <typename F> static int run(F handler, const std::string &line, int ignore = 0)
    {
        std::string copy = line;
        return handler(copy.data(), 1, ignore);
    }

    static std::string get(const char *name)
    {
        const char *v = X_get_value(name);
        return v ? v : "<unset>";
    }

    static std::string slurp(const std::string &path)
    {
        std::string out;
        if (FILE *f = fopen(path.c_str(), "rb")) {
            char buf[4096];
            size_t n;
            while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
            fclose(f);
        } else {
            out = "<missing>";
        }
        return out;
    }

    static void spit(const std::string &path, const std::string &text)
    {
        FILE *f = fopen(path.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        fwrite(text.data(), 1, text.size(), f);
        fclose(f);
    }

    std::string dir;
    char home[4096];
};
