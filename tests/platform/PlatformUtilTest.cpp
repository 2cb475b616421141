#include <velmora/platform/PlatformUtil.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

using velmora::PlatformMutex;
using velmora::PlatformThread;
using velmora::PlatformUtil;

namespace {

struct TryFromOtherThread {
    PlatformMutex* mutex;
    int result = 99;
};

uint32_t tryLockAndRelease(void* arg) {
    auto* t = static_cast<TryFromOtherThread*>(arg);
    t->result = PlatformUtil::trylockMutex(t->mutex);
    if (t->result == 0) PlatformUtil::unlockMutex(t->mutex);
    return 0;
}

int trylockFromAnotherThread(PlatformMutex* mutex) {
    TryFromOtherThread t{mutex};
    PlatformUtil::joinThread(PlatformUtil::createThread(tryLockAndRelease, &t, "probe"));
    return t.result;
}

uint32_t lockAndEndHoldingIt(void* arg) {
    PlatformUtil::lockMutex(static_cast<PlatformMutex*>(arg));
    return 0;
}

}  // namespace

// Recursive for its holder; other threads get it only after the last of its unlocks.
TEST(PlatformUtil, MutexIsRecursiveAndExclusive) {
    PlatformMutex m;
    PlatformUtil::createMutex(&m);
    ASSERT_NE(m, nullptr);
    PlatformUtil::lockMutex(&m);
    EXPECT_EQ(PlatformUtil::trylockMutex(&m), 0) << "the holder may take it again";
    PlatformUtil::lockMutex(&m);
    EXPECT_EQ(trylockFromAnotherThread(&m), -1);
    PlatformUtil::unlockMutex(&m);
    PlatformUtil::unlockMutex(&m);
    EXPECT_EQ(trylockFromAnotherThread(&m), -1) << "still held once";
    PlatformUtil::unlockMutex(&m);
    EXPECT_EQ(trylockFromAnotherThread(&m), 0);
    PlatformUtil::destroyMutex(&m);
}

// A mutex left held by a thread that ended is reported as not acquired once, then works.
TEST(PlatformUtil, AbandonedMutexTrylockFailsOnceThenRecovers) {
    PlatformMutex m;
    PlatformUtil::createMutex(&m);
    PlatformUtil::joinThread(PlatformUtil::createThread(lockAndEndHoldingIt, &m, nullptr));
    EXPECT_EQ(PlatformUtil::trylockMutex(&m), -1);
    EXPECT_EQ(PlatformUtil::trylockMutex(&m), 0);
    PlatformUtil::unlockMutex(&m);
    EXPECT_EQ(trylockFromAnotherThread(&m), 0);
    PlatformUtil::destroyMutex(&m);
}

// The stores destroy their mutex while holding it; that must neither hang nor leak.
TEST(PlatformUtil, DestroyWhileHeldByCaller) {
    PlatformMutex m;
    PlatformUtil::createMutex(&m);
    PlatformUtil::lockMutex(&m);
    PlatformUtil::lockMutex(&m);
    PlatformUtil::destroyMutex(&m);
    PlatformMutex again;
    PlatformUtil::createMutex(&again);
    EXPECT_EQ(PlatformUtil::trylockMutex(&again), 0);
    PlatformUtil::unlockMutex(&again);
    PlatformUtil::destroyMutex(&again);
}

namespace {

// Enough rounds for the threads to overlap and lose updates without the mutex. A Windows
// mutex taken under Wine is a round trip to its server, so there fewer rounds overlap
// just as well and keep the test to seconds.
#ifdef _WIN32
const int kAdds = 4000;
#else
const int kAdds = 20000;
#endif

struct Counter {
    PlatformMutex mutex;
    long value = 0;  // deliberately not atomic: the mutex must protect it
};

uint32_t addManyTimes(void* arg) {
    auto* c = static_cast<Counter*>(arg);
    for (int i = 0; i < kAdds; ++i) {
        PlatformUtil::lockMutex(&c->mutex);
        PlatformUtil::lockMutex(&c->mutex);
        c->value = c->value + 1;
        PlatformUtil::unlockMutex(&c->mutex);
        PlatformUtil::unlockMutex(&c->mutex);
    }
    return 7;
}

uint32_t returnArgument(void* arg) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arg));
}

}  // namespace

TEST(PlatformUtil, ConcurrentThreadsLockingOneMutexLoseNoUpdate) {
    Counter c;
    PlatformUtil::createMutex(&c.mutex);
    PlatformThread threads[4];
    for (auto& t : threads)
        t = PlatformUtil::createThread(addManyTimes, &c, "adder");
    for (auto& t : threads)
        EXPECT_EQ(PlatformUtil::joinThread(t), 7u);
    EXPECT_EQ(c.value, 4 * kAdds);
    PlatformUtil::destroyMutex(&c.mutex);
}

// The thread runs at once with its argument whatever name it is given; sleep waits.
TEST(PlatformUtil, ThreadsRunWithTheirArgumentAndSleepWaits) {
    std::string longName(10000, 'n');
    PlatformThread a =
        PlatformUtil::createThread(returnArgument, reinterpret_cast<void*>(41), nullptr);
    PlatformThread b =
        PlatformUtil::createThread(returnArgument, reinterpret_cast<void*>(42), longName.c_str());
    EXPECT_EQ(PlatformUtil::joinThread(a), 41u);
    EXPECT_EQ(PlatformUtil::joinThread(b), 42u);
    EXPECT_EQ(PlatformUtil::createThread(nullptr, nullptr, "none"), nullptr);

    std::atomic<bool> ran{false};
    PlatformThread detached = PlatformUtil::createThread(
        [](void* flag) -> uint32_t {
            static_cast<std::atomic<bool>*>(flag)->store(true);
            return 0;
        },
        &ran, "detached");
    PlatformUtil::releaseThread(detached);
    auto start = std::chrono::steady_clock::now();
    while (!ran.load() && std::chrono::steady_clock::now() - start < std::chrono::seconds(10)) {
        PlatformUtil::sleep(1);
    }
    EXPECT_TRUE(ran.load());

    start = std::chrono::steady_clock::now();
    PlatformUtil::sleep(50);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45));
}
