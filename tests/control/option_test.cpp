// The option command: each switch, the traps and the signal table.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "control/option.h"
#include "runtime/runtime.h"
#include "storage/store.h"
#include "syscmd/process.h"

namespace {

#define EXPECT_FATAL(stmt, re) EXPECT_EXIT({ dup2(2, 1); stmt; }, ::testing::ExitedWithCode(254), re)

sighandler_t handler_of(int sig)
{
    struct sigaction sa;
    sigaction(sig, nullptr, &sa);
    return sa.sa_handler;
}

class Option : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!x_BUFFERS.vtree.cmp) x_BUFFERS.vtree = {nullptr, X_avlcmp};
        Trace = Debug = 0;
    }

    // Puts back the switches a test may have changed.
    void TearDown() override
    {
        MY_fflush = -1;
        HTML = IgnoreEmpty = 1;
        Debug = Trace = 0;
        X_sqlTRAP = X_sqlTRANS = 1;
        X_sqlFUNC = X_sqlcase = err_trap = 0;
        memset(SignalFUNC, 0, sizeof SignalFUNC);
        for (int sig : {SIGUSR1, SIGUSR2, SIGTERM}) signal(sig, SIG_DFL);
        alarm(0);
    }

    int compile = 1;

    int opt(const std::string &args, int ignore = 0)
    {
        std::string line = "<@option>" + args;
        std::vector<char> b(line.begin(), line.end());
        b.push_back(0);
        return X_option(b.data(), &compile, ignore);
    }
};

// Translation, empty lines and Latin bytes are shown by page cases.
TEST_F(Option, Switches)
{
    struct Case {
        const char *args;
        int *flag;
        int want;
    } cases[] = {
        {" fflush on", &MY_fflush, 1}, {" FLUSH Off", &MY_fflush, 0}, {" fflush maybe", &MY_fflush, -1},
        {" flush on", &MY_fflush, 1},  {" fflush onward", &MY_fflush, -1},
        {" sql_names uppercase", &X_sqlcase, 1}, {" sql_names LowerCase", &X_sqlcase, 0},
        {" sql_transactions off", &X_sqlTRANS, 0}, {" sql_trap on_transactions", &X_sqlTRANS, 1},
        {" sql_trap off", &X_sqlTRAP, 0}, {" sql_trap on", &X_sqlTRAP, 1},
        {" debug off", &Debug, 0}, {" trace off", &Trace, 0},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(opt(c.args), 0) << c.args;
        EXPECT_EQ(*c.flag, c.want) << c.args;
    }
    // The logs are switched back off at once, before anything writes to them.
    EXPECT_EQ(opt(" TRACE ON"), 0);
    EXPECT_EQ(Trace, 1);
    Trace = 0;
    EXPECT_EQ(opt(" translate off", 1), 0);  // ignored
    EXPECT_EQ(compile, 1);
    std::string other = "<@options> translate off";
    EXPECT_EQ(X_option(other.data(), &compile, 0), -1);
}

TEST_F(Option, TrapFunctionsKeepTheirCase)
{
    EXPECT_EQ(opt(" err_trap FUNCTION OnError"), 0);
    EXPECT_EQ(err_trap, 1);
    EXPECT_STREQ(err_func, "OnError");
    EXPECT_EQ(opt(" err_trap function"), 0);
    EXPECT_EQ(err_trap, 0);

    EXPECT_EQ(opt(" sql_trap function OnDbError"), 0);
    EXPECT_STREQ(TRAPfunc, "OnDbError");
    EXPECT_EQ(X_sqlTRAP, 0);
    EXPECT_EQ(X_sqlFUNC, 1);
    EXPECT_EQ(opt(" sql_trap function"), 0);
    EXPECT_EQ(X_sqlFUNC, 0);
    EXPECT_EQ(opt(" sql_trap function " + std::string(100, 'f')), 0);
    EXPECT_EQ(strlen(TRAPfunc), 62u);
}

// Signals by name and number and their delivery are shown by a page case.
TEST_F(Option, SignalFunctionsAndAlarm)
{
    EXPECT_EQ(opt(" SIGNAL SIGUSR2 " + std::string(40, 'h')), 0);
    EXPECT_EQ(std::string(SignalFUNC[SIGUSR2]), std::string(30, 'h'));
    EXPECT_EQ(handler_of(SIGUSR2), X_signal);
    EXPECT_EQ(opt(" signal 12"), 0);
    EXPECT_STREQ(SignalFUNC[SIGUSR2], "");
    EXPECT_EQ(handler_of(SIGUSR2), SIG_DFL);

    EXPECT_EQ(opt(" alarm 100"), 0);
    EXPECT_GT(alarm(0), 0u);
    alarm(50);
    EXPECT_EQ(opt(" alarm 0"), 0);
    EXPECT_EQ(alarm(0), 0u);
}

TEST_F(Option, UnknownOptionsAndValuesAreReported)
{
    X_put_value("opt_mode", "off");
    EXPECT_EQ(opt(" latin_html $(opt_mode)"), 0);
    EXPECT_EQ(HTML, 0);
    compile = 0;
    EXPECT_FATAL(opt(" latin_html $(opt_mode)"), "Unknown option:  latin_html \\$\\(opt_mode\\)");
    EXPECT_FATAL(opt(" err_trap OnError"), "Unknown option:  err_trap OnError");
    EXPECT_FATAL(opt(""), "Unknown option: ");
}

}  // namespace
