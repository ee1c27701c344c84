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

// Loads TEXT as x.site for the server KEY into SITE; answers the report,
// the file's name written "F".
std::string load(const char *text, const char *key, X_SITE *site) {
    std::string path = testing::TempDir() + "x.site";
    FILE *f = fopen(path.c_str(), "w");
    EXPECT_TRUE(f);
    fputs(text, f);
    fclose(f);
    char *buf = nullptr;
    size_t len = 0;
    FILE *err = open_memstream(&buf, &len);
    EXPECT_EQ(X_site_load(path.c_str(), key, site, err), 0);
    fclose(err);
    std::string report(buf, len);
    free(buf);
    remove(path.c_str());
    for (size_t p; (p = report.find(path)) != std::string::npos;) report.replace(p, path.size(), "F");
    return report;
}

TEST(Site, Table) {
    for (const Case &c : cases) {
        X_SITE site = X_site_defaults();
        EXPECT_EQ(load(c.text, c.key, &site), c.report) << c.text;
        EXPECT_EQ(site.profile, c.profile) << c.text;
    }
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
    X_SITE site = X_site_defaults();
    for (long X_SITE::*field : {&X_SITE::max_body, &X_SITE::max_pairs, &X_SITE::max_uploads,
                                &X_SITE::max_upload, &X_SITE::cpu_seconds, &X_SITE::memory,
                                &X_SITE::file_size, &X_SITE::time_limit})
        EXPECT_EQ(site.*field, 0);
    EXPECT_EQ(load("max_body 8m\nmax_upload 1k\nmemory 1G\nfile_size 1000\nmax_pairs 9999\n"
                   "max_uploads 10000\ncpu_seconds -1\ntime_limit 30\nmax_body 8x\n", "a:80", &site),
              "F:6: bad value for max_uploads: \"10000\"\nF:7: bad value for cpu_seconds: \"-1\"\n"
              "F:9: bad value for max_body: \"8x\"\n");
    EXPECT_EQ(site.max_body, 8L << 20);
    EXPECT_EQ(site.max_upload, 1024);
    EXPECT_EQ(site.memory, 1L << 30);
    EXPECT_EQ(site.file_size, 1000);
    EXPECT_EQ(site.max_pairs, 9999);
    EXPECT_EQ(site.max_uploads, 0);
    EXPECT_EQ(site.cpu_seconds, 0);
    EXPECT_EQ(site.time_limit, 30);
}

}  // namespace
