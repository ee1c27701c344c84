// Process commands: how sleep reads its number, and the child's X_PID and
// random seed after fork.
#include <chrono>
#include <string>
#include <sys/wait.h>

#include "syscmd/process.h"
#include "syscmd_fixture.h"

namespace {

using Process = SysCmd;

double seconds_of(void (*body)())
{
    auto t0 = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

TEST_F(Process, SleepsOnlyForPositiveNumbers)
{
    EXPECT_LT(seconds_of([] {
                  run(X_sleep, "<@sleep> -3");
                  run(X_sleep, "<@sleep> abc");
              }),
              0.5);
    EXPECT_GE(seconds_of([] { run(X_usleep, "<@usleep> 200000us"); }), 0.19);
}

// The value random() gives first after the start-up seeding of pid.
long first_random_for(pid_t pid)
{
    srandom((unsigned)pid);
    long r1 = random();
    long r2 = random();
    srandom((unsigned)r1 + (unsigned)r2);
    return random();
}

TEST_F(Process, ForkRenewsPidAndSeedInTheChild)
{
    X_put_value("X_PID", std::to_string(getpid()).c_str(), 1, 0);
    run(X_fork, "<@fork> pid");
    if (get("pid") == "0") {
        // The child reports what it sees, then leaves without test teardown.
        spit("child.txt", get("X_PID") + " " + std::to_string(random()) + " " +
                              std::to_string(X_put_value("X_PID", "1")));
        _exit(0);
    }
    pid_t child = (pid_t)std::stol(get("pid"));
    ASSERT_GT(child, 0);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    // X_PID is the child's own, read-only again, and the seed is renewed.
    EXPECT_EQ(slurp("child.txt"), std::to_string(child) + " " +
                                      std::to_string(first_random_for(child)) + " -1");
    EXPECT_EQ(get("X_PID"), std::to_string(getpid()));
}

}  // namespace
