// Stream commands: what the page cases cannot show easily, i.e. the read
// size cap, arguments longer than the scratch areas, the flush policy and
// the output streams dropped when their stream is closed.
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

TEST_F(Streams, LongArgumentsAreCutButLaterOnesStillFound)
{
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

TEST_F(Streams, ClosingTheOutputStreamDropsIt)
{
    run(X_io_fopen, "<@fopen> a a.txt w");
    run(X_io_popen, "<@popen> b \"cat >/dev/null\" w");
    run(X_io_fopen, "<@fopen> c c.txt w");
    X_stdout = X_find_stream("a")->fp;
    X_fp = X_find_stream("b")->fp;
    run(X_io_fclose, "<@fclose> c");
    EXPECT_EQ(X_stdout, X_find_stream("a")->fp);  // another stream: kept
    run(X_io_fclose, "<@fclose> a");
    EXPECT_EQ(X_stdout, nullptr);
    run(X_io_pclose, "<@pclose> b");
    EXPECT_EQ(X_fp, nullptr);
}

}  // namespace
