// Band splitting, thread-start failures and the progress gate.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <vector>

#include "frame/band_threads.h"

namespace {

struct Seen {
    int index, is_thread, start, end;
    bool on_caller;
};

struct Ctx {
    LvWorkContext w;
    std::mutex *lock;
    std::vector<Seen> *seen;
    pthread_t caller;
    int payload;
};

void *record_band(void *arg) {
    auto *c = static_cast<Ctx *>(arg);
    std::lock_guard<std::mutex> g(*c->lock);
    c->seen->push_back({c->w.threadIndex, c->w.isThread, c->w.bandStart, c->w.bandEnd,
                        pthread_equal(pthread_self(), c->caller) != 0});
    EXPECT_EQ(c->payload, 42) << "the caller's own fields reach every copy";
    return nullptr;
}

using Bands = std::vector<std::pair<int, int>>;

Bands divide(int start, int end, int threads, std::vector<Seen> *out = nullptr) {
    std::mutex lock;
    std::vector<Seen> seen;
    Ctx ctx{{-1, -1, -1, -1}, &lock, &seen, pthread_self(), 42};
    DivideWork(start, end, threads, record_band, &ctx, sizeof ctx);
    EXPECT_EQ(ctx.w.threadIndex, -1) << "the caller's record is never written";
    std::sort(seen.begin(), seen.end(),
              [](const Seen &a, const Seen &b) { return a.index < b.index; });
    Bands bands;
    for (const Seen &s : seen) {
        bands.emplace_back(s.start, s.end);
        EXPECT_EQ(s.is_thread == 0, s.on_caller) << "isThread tells where the band ran";
    }
    if (out) *out = seen;
    return bands;
}

TEST(DivideWork, EqualChunksWithTheRemainderInTheLastBand) {
    EXPECT_EQ(divide(0, 10, 3), (Bands{{0, 3}, {3, 6}, {6, 10}}));
    EXPECT_EQ(divide(5, 12, 2), (Bands{{5, 8}, {8, 12}}));
    EXPECT_EQ(divide(0, 3, 8), (Bands{{0, 1}, {1, 2}, {2, 3}}))
        << "one row each past the row count";
    std::vector<Seen> seen;
    EXPECT_EQ(divide(2, 9, 1, &seen), (Bands{{2, 9}}));
    EXPECT_TRUE(seen[0].on_caller) << "one thread runs on the caller";
    EXPECT_EQ(divide(0, 4, 0), (Bands{{0, 4}})) << "no thread count means the caller too";
    EXPECT_TRUE(divide(4, 4, 3).empty()) << "no rows, no body";
}

int refuse_every_other(pthread_t *t, const pthread_attr_t *a, void *(*body)(void *), void *arg) {
    static std::atomic<int> calls{0};
    if (calls++ % 2 == 0) return EAGAIN;
    return pthread_create(t, a, body, arg);
}

int refuse_all(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
    return EAGAIN;
}

struct ThreadHookReset {
    ~ThreadHookReset() { lv_set_thread_create(nullptr); }
};

TEST(DivideWork, AThreadThatCannotStartRunsItsBandOnTheCaller) {
    ThreadHookReset reset;
    lv_set_thread_create(refuse_all);
    std::vector<Seen> seen;
    EXPECT_EQ(divide(0, 10, 3, &seen), (Bands{{0, 3}, {3, 6}, {6, 10}}));
    for (const Seen &s : seen)
        EXPECT_TRUE(s.on_caller);
    lv_set_thread_create(refuse_every_other);
    EXPECT_EQ(divide(0, 40, 4), (Bands{{0, 10}, {10, 20}, {20, 30}, {30, 40}}));
}

struct BandRecord {
    int height, index, count, result;
};

void *band_body(void *arg) {
    auto *r = static_cast<BandRecord *>(arg);
    r->result = 1000 + r->index;
    pthread_exit(nullptr);
}

TEST(ThreadedDriver, LastResultWinsAndAFailedStartReportsMinusTwo) {
    auto fill = [](BandRecord &rec, int i, int n) { rec = {10, i, n, -1}; };
    EXPECT_EQ(lv::run_threaded<BandRecord>(3, band_body, fill), 1002);

    // Bands as the thread bodies compute them: the last takes the remainder, and all rows
    // when there are fewer rows than threads.
    EXPECT_EQ(lv::band_of(10, 2, 3).first, 6);
    EXPECT_EQ(lv::band_of(10, 2, 3).rows, 4);
    EXPECT_EQ(lv::band_of(2, 0, 5).rows, 0);
    EXPECT_EQ(lv::band_of(2, 4, 5).rows, 2);

    ThreadHookReset reset;
    lv_set_thread_create(refuse_every_other);
    int filled = 0;
    const int r = lv::run_threaded<BandRecord>(4, band_body, [&](BandRecord &rec, int i, int n) {
        fill(rec, i, n);
        ++filled;
    });
    EXPECT_EQ(r, LV_ERR_IO);
    EXPECT_LE(filled, 2) << "no thread is started after the first failure";
}

int g_calls = 0;
void *g_context = nullptr;

void mode1(int *cancel, float value) {
    ++g_calls;
    *cancel = value > 0.5f ? 1 : 0;
}

void mode2(int *cancel, void *context, float) {
    ++g_calls;
    g_context = context;
    *cancel = 7;
}

TEST(Progress, CallsTheHostInEitherModeAndReportsCancel) {
    EXPECT_EQ(progress(1, nullptr, nullptr, 0.3f), 1);
    EXPECT_EQ(progress(0, mode1, nullptr, 0.3f), 1);
    EXPECT_EQ(progress(3, mode1, nullptr, 0.3f), 1);
    EXPECT_EQ(g_calls, 0) << "no callback, or an unknown mode, calls nothing";
    EXPECT_EQ(progress(1, mode1, nullptr, 0.25f), 1);
    EXPECT_EQ(progress(1, mode1, nullptr, 0.75f), 0);
    int host_state = 0;
    auto as_mode1 = reinterpret_cast<LvProgressCallback>(reinterpret_cast<void (*)(void)>(mode2));
    EXPECT_EQ(progress(2, as_mode1, &host_state, 0.5f), 0);
    EXPECT_EQ(g_context, &host_state);
    EXPECT_EQ(g_calls, 3);
}

} // namespace
