// Per-site settings: the optional file x.site beside x.config in X_HOME.
//
//   # comment line
//   profile safe          a setting for every server
//   [www.example.com:80]  the lines up to the next section apply only to
//   profile compat        the server with this key (the key x.config uses)
//
// A setting is a name and a value separated by blanks. Unknown names, bad
// values and malformed lines are reported on standard error as
// "FILE:LINE: ..." and ignored. No file: every setting keeps its default.
//
// A new setting is a row of the table in site.cpp and a field here; the
// reader needs no change.
#pragma once

#include <cstdio>

// Values of X_SITE::profile.
constexpr long X_COMPAT = 0;  // the long-standing behaviour, byte for byte
constexpr long X_SAFE = 1;    // request cannot set X_ names, UTF-8 output, ...

// The settings of the site that serves this run.
struct X_SITE {
    long profile;  // X_COMPAT or X_SAFE
    // Limits of one request (0: none); see runtime/limits.h.
    long max_body;     // largest CONTENT_LENGTH accepted, bytes
    long max_pairs;    // most name/value pairs decoded
    long max_uploads;  // most upload files
    long max_upload;   // largest single upload, bytes
    long cpu_seconds;  // processor time of the run
    long memory;       // address space of the process, bytes
    long file_size;    // largest file the run may write, bytes
    long time_limit;   // wall-clock seconds of the run
    long session;       // 1: every page begins the visitor's session
    long session_idle;  // seconds a session lives without a request
    long session_life;  // seconds a session lives at most
};

// How the value of a setting is written.
enum class X_SITEKIND {
    WORD,    // one of the words of `words` ("a|b|c"); stores its index
    NUMBER,  // a decimal integer within min..max
    SIZE,    // like NUMBER, with an optional k, m or g (times 1024 each)
};

// One row of the settings table.
struct X_SITEOPT {
    const char *name;       // as written in x.site
    X_SITEKIND kind;        // how the value is read
    long X_SITE::*field;    // where it is stored
    long def;               // the default
    long min, max;          // NUMBER and SIZE: the accepted range
    const char *words;      // WORD: the accepted words, "|"-separated
};

// The settings in force; defaults until X_site has read x.site.
extern X_SITE x_SITE;

// Every setting at its default.
X_SITE X_site_defaults();
// Applies the lines of the file PATH meant for the server KEY to *SITE,
// reporting problems on ERR. -1 when the file cannot be opened (nothing
// changed), else 0.
int X_site_load(const char *path, const char *key, X_SITE *site, FILE *err);
// Reads X_HOME/x.site into x_SITE for this request's server key and puts
// the profile's start values in force (safe: HTML translation off). Runs
// once, before the request is decoded. Returns 0.
int X_site();
// 1 when the site runs the safe profile.
inline int X_safe() { return x_SITE.profile == X_SAFE; }
