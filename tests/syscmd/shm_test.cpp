// Shared-memory variables: the bytes in the segment and the ends of the
// window. Keys come from the process id; every segment is removed again.
#include <set>
#include <string>
#include <sys/shm.h>

#include "syscmd/shm.h"
#include "syscmd_fixture.h"

namespace {

class Shm : public SysCmd {
protected:
    void TearDown() override
    {
        // Rows keep the empty name, so the empty name releases them one by one.
        for (int i = 0; i < X_NSHM; i++) SHM_del("");
        for (long k : keys) {
            int id = shmget((key_t)k, 0, 0);
            if (id >= 0) shmctl(id, IPC_RMID, nullptr);
        }
        SysCmd::TearDown();
    }

    std::string attach(const std::string &name, int n, const std::string &rest)
    {
        long k = 0x3a000000L + (long)(getpid() % 0x10000) * 64 + n;
        keys.insert(k);
        run(X_shmat, "<@shmat> " + name + " " + std::to_string(k) + " " + rest + " st");
        return get("st");
    }

    std::set<long> keys;
};

TEST_F(Shm, VariableLivesInTheSegment)
{
    ASSERT_EQ(attach("v", 1, "100 10 8"), "0");
    X_USER *u = X_find_user("v");
    ASSERT_NE(u, nullptr);
    EXPECT_EQ(u->fixed, 2);
    EXPECT_EQ(u->cookie, 8);
    X_put_value("v", "abcdefghijk");  // at most 8 bytes go in

    char *raw = (char *)shmat(shmget((key_t)*keys.begin(), 0, 0), nullptr, 0);
    ASSERT_NE(raw, (char *)-1);
    EXPECT_EQ(std::string(raw + 10, 8), "abcdefgh");
    EXPECT_EQ(raw[18], '\0');
    memcpy(raw + 10, "XY\0", 3);
    EXPECT_EQ(get("v"), "XY");
    shmdt(raw);
}

TEST_F(Shm, AFullWindowAtTheSegmentEndStaysTerminated)
{
    ASSERT_EQ(attach("tail", 2, "4096 4086 10"), "0");
    X_put_value("tail", "0123456789ABC");
    const char *v = X_get_value("tail");
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(strlen(v), 10u);
    EXPECT_EQ(attach("end", 2, "4096 4096 0"), "0");
    EXPECT_EQ(get("end"), "");
}

TEST_F(Shm, DetachedVariablesNeverPointIntoTheOldSegment)
{
    ASSERT_EQ(attach("a", 3, "64 0 8"), "0");
    ASSERT_EQ(attach("b", 3, "64 8 8"), "0");
    X_put_value("b", "kept");
    SHM_del("");  // releases row 0, where a was bound
    X_USER *u = X_find_user("a");
    ASSERT_NE(u, nullptr);
    EXPECT_EQ(u->fixed, 0);
    EXPECT_EQ(get("a"), "");
    EXPECT_EQ(X_put_value("a", "ordinary now"), 0);
    EXPECT_EQ(get("a"), "ordinary now");
    EXPECT_EQ(get("b"), "kept");
}

TEST_F(Shm, TagsAndIgnore)
{
    EXPECT_EQ(run(X_shmat, "<@shmdt> a"), -1);
    EXPECT_EQ(run(X_shmdt, "<@shmat> a"), -1);
    EXPECT_EQ(run(X_shmat, "<@shmat> ig 1234 10 0 1", 1), 0);
    EXPECT_EQ(X_find_user("ig"), nullptr);
}

}  // namespace
