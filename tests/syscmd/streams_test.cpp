// Stream commands: what the page cases cannot show easily, i.e. the read
// size cap, arguments longer than the scratch areas and the flush policy.
#include <string>

#include "syscmd/streams.h"
#include "syscmd_fixture.h"

namespace {

using Streams = SysCmd;

TEST_F(Streams, FgetsSizeIsCappedBelow64K)
{
    spit("big.txt", std::string(70000, 'z') + "\n");
    run(X_io_fopen, "<@fopen> b big.txt r");
    run(X_io_fgets, "<@fgets> b big 99999999");
    EXPECT_EQ(get("big").size(), 65534u);
    run(X_io_fgets, "<@fgets> b big -5");
    EXPECT_EQ(get("status"), "-1");
}

TEST_F(Streams, ArgumentsLongerThanTheScratchAreCut)
{
    // The path is cut to 999 characters and cannot be opened, but the
    // arguments after it are still found.
    run(X_io_fopen, "<@fopen> n " + std::string(5000, 'p') + " w st");
    EXPECT_EQ(get("st"), "-1");
    std::string var(3000, 'v');
    spit("in.txt", "data\n");
    run(X_io_fopen, "<@fopen> in in.txt r");
    run(X_io_fgets, "<@fgets> in " + var + " 100 st2");
    EXPECT_EQ(get("st2"), "0");
    EXPECT_EQ(get(var.substr(0, 999).c_str()), "data");
    // fputs texts may be as long as the line.
    run(X_io_fopen, "<@fopen> out out.txt w");
    run(X_io_fputs, "<@fputs> out " + std::string(60000, 't'));
    run(X_io_fclose, "<@fclose> out");
    EXPECT_EQ(slurp("out.txt").size(), 60000u);
}

TEST_F(Streams, StdoutAndTheFlushPolicy)
{
    MY_fflush = 1;
    testing::internal::CaptureStdout();
    run(X_io_fputs, "<@fputs> stdout \"to the page\"");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "to the page");

    run(X_io_fopen, "<@fopen> o live.txt w");
    run(X_io_fputs, "<@fputs> o now");
    EXPECT_EQ(slurp("live.txt"), "now");
    MY_fflush = 0;
    run(X_io_fputs, "<@fputs> o later");
    EXPECT_EQ(slurp("live.txt"), "now");  // still buffered
    MY_fflush = -1;
}

TEST_F(Streams, TagsAndIgnore)
{
    EXPECT_EQ(run(X_io_fopen, "<@popen> a b r"), -1);
    EXPECT_EQ(run(X_io_fputs, "<@fput> a b"), -1);
    EXPECT_EQ(run(X_io_fopen, "<@fopen> ig ignored.txt w", 1), 0);
    EXPECT_NE(access("ignored.txt", F_OK), 0);
    EXPECT_EQ(X_find_stream("ig"), nullptr);
}

}  // namespace
