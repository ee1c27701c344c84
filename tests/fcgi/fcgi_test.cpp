// FastCGI record layer and relay, against a fake web server on a socket
// pair and real page processes whose behaviour each request's MODE picks.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "fcgi/record.h"

namespace {

using Bytes = std::string;

Bytes record(int type, int id, const Bytes &data, int pad = 0) {
    Bytes h = {1, static_cast<char>(type), static_cast<char>(id >> 8), static_cast<char>(id),
               static_cast<char>(data.size() >> 8), static_cast<char>(data.size()),
               static_cast<char>(pad), 0};
    return h + data + Bytes(pad, '\0');
}

Bytes pair(const Bytes &n, const Bytes &v) {
    std::vector<unsigned char> buf(n.size() + v.size() + 8);
    int len = fcgi_pair_put(buf.data(), static_cast<int>(buf.size()), n.data(),
                            static_cast<int>(n.size()), v.data(), static_cast<int>(v.size()));
    return Bytes(reinterpret_cast<char *>(buf.data()), len);
}

Bytes begin(int id, int role = FCGI_RESPONDER) {
    return record(FCGI_BEGIN_REQUEST, id, Bytes{0, static_cast<char>(role), 0, 0, 0, 0, 0, 0});
}

TEST(FcgiRecord, PairsRoundTripAcrossTheLengthForms) {
    for (int n : {0, 1, 127, 128, 70000})
        for (int v : {0, 127, 128, 300000}) {
            Bytes name(n, 'n'), val(v, 'v');
            Bytes enc = pair(name, val);
            ASSERT_EQ(enc.size(), (n < 128 ? 1u : 4u) + (v < 128 ? 1u : 4u) + n + v);
            auto *p = reinterpret_cast<const unsigned char *>(enc.data());
            const unsigned char *pn, *pv;
            int pos = 0, nl, vl;
            ASSERT_EQ(fcgi_pair_next(p, static_cast<int>(enc.size()), &pos, &pn, &nl, &pv, &vl), 1);
            EXPECT_EQ(Bytes(reinterpret_cast<const char *>(pn), nl), name);
            EXPECT_EQ(Bytes(reinterpret_cast<const char *>(pv), vl), val);
            EXPECT_EQ(fcgi_pair_next(p, static_cast<int>(enc.size()), &pos, &pn, &nl, &pv, &vl), 0);
            // Every cut-short encoding is refused, never read past.
            for (size_t cut : {enc.size() - 1, size_t{1}, size_t{3}})
                if (cut < enc.size() && cut > 0) {
                    pos = 0;
                    EXPECT_EQ(fcgi_pair_next(p, static_cast<int>(cut), &pos, &pn, &nl, &pv, &vl), -1)
                        << n << "/" << v << " cut " << cut;
                }
        }
    unsigned char small[4];
    EXPECT_EQ(fcgi_pair_put(small, sizeof small, "abc", 3, "d", 1), -1);
}

TEST(FcgiRecord, ReaderTakesWholeRecordsAndStreamsSplit) {
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    Bytes in = record(FCGI_PARAMS, 258, "abc", 5) + record(FCGI_STDIN, 1, "");
    static FCGI_READER rd;
    FCGI_RECORD rec;
    // Byte by byte: nothing is handed out before its last padding byte.
    for (size_t i = 0; i < in.size(); i++) {
        ASSERT_EQ(write(sv[0], &in[i], 1), 1);
        ASSERT_EQ(fcgi_fill(&rd, sv[1]), 1);
        int got = fcgi_next(&rd, &rec);
        if (i == 15) {
            ASSERT_EQ(got, 1);
            EXPECT_EQ(rec.type, FCGI_PARAMS);
            EXPECT_EQ(rec.id, 258);
            EXPECT_EQ(Bytes(reinterpret_cast<const char *>(rec.data), rec.len), "abc");
        } else if (i == in.size() - 1) {
            ASSERT_EQ(got, 1);
            EXPECT_EQ(rec.len, 0);
        } else {
            ASSERT_EQ(got, 0) << i;
        }
    }
    Bytes bad = record(FCGI_STDIN, 1, "x");
    bad[0] = 2;
    ASSERT_EQ(write(sv[0], bad.data(), bad.size()), static_cast<ssize_t>(bad.size()));
    fcgi_fill(&rd, sv[1]);
    EXPECT_EQ(fcgi_next(&rd, &rec), -1);

    // A long stream becomes full records in order; the reader keeps up.
    Bytes big(150000, 0);
    for (size_t i = 0; i < big.size(); i++) big[i] = static_cast<char>(i * 7);
    std::thread w([&] { EXPECT_EQ(fcgi_stream(sv[0], FCGI_STDOUT, 9, big.data(), big.size()), 0); });
    static FCGI_READER rd2;
    Bytes got;
    std::vector<int> sizes;
    while (got.size() < big.size()) {
        if (fcgi_next(&rd2, &rec) == 1) {
            got.append(reinterpret_cast<const char *>(rec.data), rec.len);
            sizes.push_back(rec.len);
        } else {
            ASSERT_GT(fcgi_fill(&rd2, sv[1]), 0);
        }
    }
    w.join();
    EXPECT_EQ(got, big);
    EXPECT_EQ(sizes, (std::vector<int>{65535, 65535, 150000 - 2 * 65535}));
    close(sv[0]);
    close(sv[1]);
}

// The page side of the relay tests: what MODE asks for, with plain write()
// so that nothing buffered in this test process is written twice.
[[noreturn]] void page(const Bytes &) {
    const char *mode = getenv("MODE");
    auto say = [](const Bytes &s) { (void)!write(1, s.data(), s.size()); };
    if (!strcmp(mode, "echo")) {
        say(Bytes("A=") + getenv("A") + " LONG=" + std::to_string(strlen(getenv("LONG"))) +
            " EQ=" + (getenv("B=C") ? "set" : "unset") + "\n");
        char buf[8192];
        for (ssize_t n; (n = read(0, buf, sizeof buf)) > 0;) say(Bytes(buf, n));
        (void)!write(2, "to the log\n", 11);
        _exit(3);
    }
    if (!strcmp(mode, "crash")) raise(SIGABRT);  // one a sanitizer lets through
    if (!strcmp(mode, "hang")) {
        say("started\n");
        sleep(30);
    }
    say("ignored the body\n");  // "ignore": never reads standard input
    _exit(0);
}

struct Reply {
    Bytes out, err, values;
    int status = -99, protocol = -1, ends = 0, mpx = 0;
    int served;
    double seconds;
};

// Runs one connection: SEND goes to the relay while its answer is read.
Reply relay(const Bytes &send, int timeout = 5, bool hangup = false) {
    FCGI_PAGE pg;
    int rc = fcgi_page_start(&pg, -1);
    if (rc == 0) page(send);
    EXPECT_EQ(rc, 1);
    int sv[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    std::thread w([&] {
        for (size_t off = 0; off < send.size();) {
            ssize_t n = write(sv[0], send.data() + off, send.size() - off);
            if (n <= 0) break;  // the relay is done with the connection
            off += n;
        }
        if (hangup) shutdown(sv[0], SHUT_WR);
    });
    Reply r;
    std::thread rdr([&] {
        static FCGI_READER rd;
        rd.have = rd.used = 0;
        FCGI_RECORD rec;
        for (;;) {
            int got = fcgi_next(&rd, &rec);
            if (got == 0 && fcgi_fill(&rd, sv[0]) > 0) continue;
            if (got != 1) break;
            Bytes d(reinterpret_cast<const char *>(rec.data), rec.len);
            if (rec.type == FCGI_STDOUT) r.out += d;
            if (rec.type == FCGI_STDERR) r.err += d;
            if (rec.type == FCGI_GET_VALUES_RESULT) r.values = d;
            if (rec.type == FCGI_END_REQUEST && rec.id == 1) {
                auto *u = rec.data;
                r.status = static_cast<int>(u[0] << 24 | u[1] << 16 | u[2] << 8 | u[3]);
                r.protocol = u[4];
                r.ends++;
            } else if (rec.type == FCGI_END_REQUEST) {
                r.mpx = rec.data[4];
            }
        }
    });
    timespec t0, t1;
    clock_gettime(CLOCK_MONOTONIC, &t0);
    r.served = fcgi_serve(sv[1], &pg, timeout, 4);
    clock_gettime(CLOCK_MONOTONIC, &t1);
    r.seconds = static_cast<double>(t1.tv_sec - t0.tv_sec) + (t1.tv_nsec - t0.tv_nsec) / 1e9;
    shutdown(sv[1], SHUT_RDWR);
    w.join();
    rdr.join();
    close(sv[0]);
    close(sv[1]);
    return r;
}

Bytes request(const Bytes &mode, const Bytes &body, bool close_body = true) {
    Bytes params = pair("MODE", mode) + pair("A", "1") + pair("LONG", Bytes(5000, 'l')) +
                   pair("B=C", "dropped") + pair("", "dropped");
    Bytes s = begin(1) + record(FCGI_PARAMS, 1, params.substr(0, 40)) +
              record(FCGI_PARAMS, 1, params.substr(40)) + record(FCGI_PARAMS, 1, "");
    for (size_t off = 0; off < body.size(); off += 65535)
        s += record(FCGI_STDIN, 1, body.substr(off, 65535));
    return close_body ? s + record(FCGI_STDIN, 1, "") : s;
}

TEST(FcgiRelay, PageOutputAndExitStatusReachTheServer) {
    Bytes body(300000, 0);
    for (size_t i = 0; i < body.size(); i++) body[i] = static_cast<char>(i % 251);
    Bytes values = pair("FCGI_MPXS_CONNS", "") + pair("FCGI_MAX_CONNS", "") + pair("X", "");
    Reply r = relay(record(FCGI_GET_VALUES, 0, values) + begin(1) + begin(2) +
                    request("echo", body).substr(16));
    EXPECT_TRUE(r.out == "A=1 LONG=5000 EQ=unset\n" + body) << r.out.substr(0, 200);
    EXPECT_EQ(r.err, "to the log\n");
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.served, 3);
    EXPECT_EQ(r.protocol, FCGI_REQUEST_COMPLETE);
    EXPECT_EQ(r.ends, 1);
    EXPECT_EQ(r.mpx, FCGI_CANT_MPX_CONN);
    EXPECT_EQ(r.values, pair("FCGI_MPXS_CONNS", "0") + pair("FCGI_MAX_CONNS", "4"));
}

TEST(FcgiRelay, EveryWayAPageEndsGivesACompleteResponse) {
    struct Case {
        const char *name;
        Bytes send;
        int timeout, status;
        const char *out_prefix, *err;
        double max_seconds;
    } cases[] = {
        {"crash", request("crash", ""), 5, 128 + SIGABRT, "Status: 500", "signal 6", 4},
        {"hang", request("hang", ""), 1, 128 + SIGKILL, "started\n", "time limit", 3},
        // A body the page never reads, and one that never ends: no deadlock.
        {"ignore", request("ignore", Bytes(1 << 20, 'b')), 5, 0, "ignored the body", "", 4},
        {"no-end", request("ignore", "xyz", false), 5, 0, "ignored the body", "", 4},
        {"abort", request("hang", "", false) + record(FCGI_ABORT_REQUEST, 1, ""), 5,
         128 + SIGKILL, "", "signal 9", 4},
    };
    for (const Case &c : cases) {
        Reply r = relay(c.send, c.timeout);
        EXPECT_EQ(r.status, c.status) << c.name;
        EXPECT_EQ(r.ends, 1) << c.name;
        EXPECT_EQ(r.out.rfind(c.out_prefix, 0), 0u) << c.name << ": " << r.out;
        EXPECT_NE(r.err.find(c.err), Bytes::npos) << c.name << ": " << r.err;
        EXPECT_LT(r.seconds, c.max_seconds) << c.name;
    }
}

TEST(FcgiRelay, RefusedOrBrokenConnectionsRunNoPage) {
    Reply r = relay(begin(1, 2));  // the authorizer role
    EXPECT_EQ(r.protocol, FCGI_UNKNOWN_ROLE);
    EXPECT_EQ(r.served, -1);
    r = relay(begin(1) + record(FCGI_PARAMS, 1, pair("MODE", "echo")), 5, true);
    EXPECT_EQ(r.ends, 0);
    EXPECT_EQ(r.served, -1);
    r = relay("GET / HTTP/1.0\r\n\r\n");
    EXPECT_EQ(r.served, -1);
}

}  // namespace
