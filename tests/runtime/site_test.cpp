// The per-site settings file: sections, comments, defaults and reports.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "runtime/site.h"

namespace {

struct Case {
    const char *text;    // the file
    const char *key;     // this run's server key
    long profile;        // the result
    const char *report;  // what standard error gets ("F" is the file name)
};

const Case cases[] = {
    {"", "a:80", X_COMPAT, ""},
    {"profile safe\n", "a:80", X_SAFE, ""},
    {"  # note\n\n\tprofile   safe \r\n", "a:80", X_SAFE, ""},
    // A section applies to its own server only; later lines win.
    {"profile safe\n[b:80]\nprofile compat\n", "a:80", X_SAFE, ""},
    {"profile safe\n[a:80]\nprofile compat\n", "a:80", X_COMPAT, ""},
    {"[a:80]\nprofile safe\n[b:80]\nprofile compat\n", "a:80", X_SAFE, ""},
    {"[shell:00]\nprofile safe\n", "shell:00", X_SAFE, ""},
    {"[*:*]\nprofile safe\n", "a:80", X_COMPAT, ""},
    // Problems are reported with their line and leave the setting alone,
    // also inside another server's section.
    {"profile Safe\nprofile\n", "a:80", X_COMPAT,
     "F:1: bad value for profile: \"Safe\"\nF:2: bad value for profile: \"\"\n"},
    {"profiles safe\n[b:80]\nspeed 9\n", "a:80", X_COMPAT,
     "F:1: unknown setting profiles\nF:3: unknown setting speed\n"},
    {"[a:80\nprofile safe\n[a:80] x\nprofile safe\n[]\n", "a:80", X_COMPAT,
     "F:1: bad section line\nF:3: bad section line\nF:5: bad section line\n"},
    {"profile safe\nprofile safe safe\n", "a:80", X_SAFE, "F:2: bad value for profile: \"safe safe\"\n"},
};

TEST(Site, Table) {
    std::string path = testing::TempDir() + "x.site";
    for (const Case &c : cases) {
        FILE *f = fopen(path.c_str(), "w");
        ASSERT_TRUE(f);
        fputs(c.text, f);
        fclose(f);
        char *buf = nullptr;
        size_t len = 0;
        FILE *err = open_memstream(&buf, &len);
        X_SITE site = X_site_defaults();
        EXPECT_EQ(X_site_load(path.c_str(), c.key, &site, err), 0);
        fclose(err);
        std::string want = c.report;
        for (size_t p; (p = want.find("F:")) != std::string::npos;)
            want.replace(p, 1, path);
        EXPECT_EQ(site.profile, c.profile) << c.text;
        EXPECT_EQ(std::string(buf, len), want) << c.text;
        free(buf);
    }
    remove(path.c_str());
}

TEST(Site, MissingFileKeepsDefaults) {
    X_SITE site = X_site_defaults();
    site.profile = X_SAFE;
    EXPECT_EQ(X_site_load("/nonexistent/x.site", "a:80", &site, stderr), -1);
    EXPECT_EQ(site.profile, X_SAFE);
    EXPECT_EQ(X_site_defaults().profile, X_COMPAT);
    EXPECT_EQ(x_SITE.profile, X_COMPAT);
}

// The limits: sizes with k, m or g; numbers within their ranges; all off
// by default.
TEST(Site, Limits) {
    std::string path = testing::TempDir() + "x.site";
    FILE *f = fopen(path.c_str(), "w");
    ASSERT_TRUE(f);
    fputs("max_body 8m\nmax_upload 1k\nmemory 1G\nfile_size 1000\nmax_pairs 9999\n"
          "max_uploads 10000\ncpu_seconds -1\ntime_limit 30\nmax_body 8x\n", f);
    fclose(f);
    X_SITE site = X_site_defaults();
    for (long X_SITE::*field : {&X_SITE::max_body, &X_SITE::max_pairs, &X_SITE::max_uploads,
                                &X_SITE::max_upload, &X_SITE::cpu_seconds, &X_SITE::memory,
                                &X_SITE::file_size, &X_SITE::time_limit})
        EXPECT_EQ(site.*field, 0);
    char *buf = nullptr;
    size_t len = 0;
    FILE *err = open_memstream(&buf, &len);
    EXPECT_EQ(X_site_load(path.c_str(), "a:80", &site, err), 0);
    fclose(err);
    EXPECT_EQ(site.max_body, 8L << 20);
    EXPECT_EQ(site.max_upload, 1024);
    EXPECT_EQ(site.memory, 1L << 30);
    EXPECT_EQ(site.file_size, 1000);
    EXPECT_EQ(site.max_pairs, 9999);
    EXPECT_EQ(site.max_uploads, 0);
    EXPECT_EQ(site.cpu_seconds, 0);
    EXPECT_EQ(site.time_limit, 30);
    EXPECT_EQ(std::string(buf, len), path + ":6: bad value for max_uploads: \"10000\"\n" + path +
                                         ":7: bad value for cpu_seconds: \"-1\"\n" + path +
                                         ":9: bad value for max_body: \"8x\"\n");
    free(buf);
    remove(path.c_str());
}

}  // namespace
