// Band splitting, thread-start failures and the progress gate.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <tuple>
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

std::vector<Seen> divide(int start, int end, int threads) {
    std::mutex lock;
    std::vector<Seen> seen;
    Ctx ctx{{-1, -1, -1, -1}, &lock, &seen, pthread_self(), 42};
    DivideWork(start, end, threads, record_band, &ctx, sizeof ctx);
    std::sort(seen.begin(), seen.end(),
              [](const Seen &a, const Seen &b) { return a.index < b.index; });
    EXPECT_EQ(ctx.w.threadIndex, -1) << "the caller's record is never written";
    return seen;
}

std::vector<std::pair<int, int>> bands(const std::vector<Seen> &seen) {
    std::vector<std::pair<int, int>> out;
    for (const Seen &s : seen) out.emplace_back(s.start, s.end);
    return out;
}

using Bands = std::vector<std::pair<int, int>>;

TEST(DivideWork, BandsOfEqualChunksWithTheRemainderLast) {
    EXPECT_EQ(bands(divide(0, 10, 3)), (Bands{{0, 3}, {3, 6}, {6, 10}}));
    EXPECT_EQ(bands(divide(5, 12, 2)), (Bands{{5, 8}, {8, 12}}));
    EXPECT_EQ(bands(divide(0, 7, 7)), (Bands{{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {6, 7}}));
}

TEST(DivideWork, MoreThreadsThanRowsGivesOneRowEach) {
    const auto seen = divide(0, 3, 8);
    EXPECT_EQ(bands(seen), (Bands{{0, 1}, {1, 2}, {2, 3}}));
    for (const Seen &s : seen) EXPECT_EQ(s.is_thread, 1);
}

TEST(DivideWork, OneThreadRunsOnTheCaller) {
    const auto seen = divide(2, 9, 1);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].is_thread, 0);
    EXPECT_TRUE(seen[0].on_caller);
    EXPECT_EQ(bands(seen), (Bands{{2, 9}}));
    // No thread count at all (a low-memory run passes 0) also means the caller's thread.
    EXPECT_EQ(bands(divide(0, 4, 0)), (Bands{{0, 4}}));
}

TEST(DivideWork, NoRowsRunsNoBody) {
    EXPECT_TRUE(divide(4, 4, 3).empty());
    EXPECT_TRUE(divide(0, 0, 8).empty());
}

int refuse_every_other(pthread_t *t, const pthread_attr_t *a, void *(*body)(void *), void *arg) {
    static std::atomic<int> calls{0};
    if (calls++ % 2 == 0) return EAGAIN;
    return pthread_create(t, a, body, arg);
}

int refuse_all(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; }

struct ThreadHookReset {
    ~ThreadHookReset() { lv_set_thread_create(nullptr); }
};

TEST(DivideWork, AThreadThatCannotStartRunsItsBandOnTheCaller) {
    ThreadHookReset reset;
    lv_set_thread_create(refuse_all);
    auto seen = divide(0, 10, 3);
    EXPECT_EQ(bands(seen), (Bands{{0, 3}, {3, 6}, {6, 10}}));
    for (const Seen &s : seen) {
        EXPECT_EQ(s.is_thread, 0);
        EXPECT_TRUE(s.on_caller);
    }
    lv_set_thread_create(refuse_every_other);
    seen = divide(0, 40, 4);
    EXPECT_EQ(bands(seen), (Bands{{0, 10}, {10, 20}, {20, 30}, {30, 40}}));
    for (const Seen &s : seen) EXPECT_EQ(s.is_thread == 0, s.on_caller);
}

// ---- The "*_threaded" driver pattern ----

struct BandRecord {
    int height, index, count;
    int first, rows;
    int result;
};

void *band_body(void *arg) {
    auto *r = static_cast<BandRecord *>(arg);
    const lv::Band b = lv::band_of(r->height, r->index, r->count);
    r->first = b.first;
    r->rows = b.rows;
    r->result = 1000 + r->index;
    pthread_exit(nullptr);
}

TEST(ThreadedDriver, BandsMatchDivideWorkAndTheLastResultWins) {
    std::vector<BandRecord> copies;
    const int r = lv::run_threaded<BandRecord>(3, band_body, [&](BandRecord &rec, int i, int n) {
        rec = {10, i, n, -1, -1, -1};
    });
    EXPECT_EQ(r, 1002) << "only the last thread's result is returned";

    EXPECT_EQ(lv::band_of(10, 0, 3).rows, 3);
    EXPECT_EQ(lv::band_of(10, 2, 3).first, 6);
    EXPECT_EQ(lv::band_of(10, 2, 3).rows, 4);
    // Fewer rows than threads: every band but the last is empty.
    EXPECT_EQ(lv::band_of(2, 0, 5).rows, 0);
    EXPECT_EQ(lv::band_of(2, 4, 5).first, 0);
    EXPECT_EQ(lv::band_of(2, 4, 5).rows, 2);
}

TEST(ThreadedDriver, AFailedThreadStartReportsMinusTwo) {
    ThreadHookReset reset;
    lv_set_thread_create(refuse_every_other);
    int filled = 0;
    const int r = lv::run_threaded<BandRecord>(4, band_body, [&](BandRecord &rec, int i, int n) {
        rec = {8, i, n, -1, -1, -1};
        ++filled;
    });
    EXPECT_EQ(r, LV_ERR_IO);
    EXPECT_LE(filled, 2) << "no thread is started after the first failure";
}

// ---- Progress ----

int g_calls = 0;
float g_value = -1.0f;
void *g_context = nullptr;

void mode1(int *cancel, float value) {
    ++g_calls;
    g_value = value;
    *cancel = value > 0.5f ? 1 : 0;
}

void mode2(int *cancel, void *context, float value) {
    ++g_calls;
    g_value = value;
    g_context = context;
    *cancel = 7;
}

TEST(Progress, CallsTheHostInEitherModeAndReportsCancel) {
    g_calls = 0;
    EXPECT_EQ(progress(1, nullptr, nullptr, 0.3f), 1);
    EXPECT_EQ(progress(0, mode1, nullptr, 0.3f), 1);
    EXPECT_EQ(progress(3, mode1, nullptr, 0.3f), 1);
    EXPECT_EQ(g_calls, 0) << "no callback, or an unknown mode, calls nothing";

    EXPECT_EQ(progress(1, mode1, nullptr, 0.25f), 1);
    EXPECT_EQ(g_value, 0.25f);
    EXPECT_EQ(progress(1, mode1, nullptr, 0.75f), 0);

    int host_state = 0;
    EXPECT_EQ(progress(2, reinterpret_cast<LvProgressCallback>(reinterpret_cast<void (*)(void)>(mode2)),
                       &host_state, 0.5f),
              0);
    EXPECT_EQ(g_context, &host_state);
    EXPECT_EQ(g_calls, 3);
}

} // namespace
