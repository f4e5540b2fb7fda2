// Band-parallel drivers shared by every threaded pass.
//
// A pass either uses DivideWork (a private context copy per worker) or the
// "*_threaded" pattern: the driver fills one argument record per thread, each body
// works out its own band from its index and the thread count, and the driver keeps
// the result of the last thread only.
#pragma once

#include <pthread.h>

#include <memory>
#include <new>

#include "lumivantor/frame.h"

LV_EXTERN_C_BEGIN

// Signature of pthread_create; tests swap in a failing one to exercise the fallbacks.
typedef int (*LvThreadCreateFn)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);

// Replaces the function used to start band threads; NULL restores pthread_create.
LV_API void lv_set_thread_create(LvThreadCreateFn fn);

// Starts a band thread through the current thread-creation function.
LV_API int lv_thread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                            void *arg);

LV_EXTERN_C_END

namespace lv {

// Rows of one band in the "*_threaded" pattern: every band has height / count rows,
// the last one takes the remainder (and all rows when height < count).
struct Band {
    int first;
    int rows;
};

inline Band band_of(int height, int index, int count) {
    const int band_rows = height / count;
    const int first = index * band_rows;
    const int rows = (index == count - 1) ? height - first : band_rows;
    return {first, rows};
}

// Runs `count` thread bodies on records prepared by `fill(record, index, count)`.
// Records must have an int field `result`. Returns the last record's result, -2 if a
// thread could not be started (the threads already running are joined first), or -4 if
// the records could not be allocated.
template <class Record, class Fill> int run_threaded(int count, void *(*body)(void *), Fill fill) {
    std::unique_ptr<Record[]> records(new (std::nothrow) Record[count]());
    std::unique_ptr<pthread_t[]> threads(new (std::nothrow) pthread_t[count]);
    if (!records || !threads) return LV_ERR_NOMEM;

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
    int started = 0;
    for (; started < count; ++started) {
        fill(records[started], started, count);
        if (lv_thread_create(&threads[started], &attr, body, &records[started]) != 0) break;
    }
    for (int i = 0; i < started; ++i)
        pthread_join(threads[i], nullptr);
    pthread_attr_destroy(&attr);
    if (started < count) return LV_ERR_IO;
    return records[count - 1].result;
}

} // namespace lv
