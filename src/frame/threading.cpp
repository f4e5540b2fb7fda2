// DivideWork, the thread-start seam and the progress gate.
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "frame/band_threads.h"

namespace {
LvThreadCreateFn g_thread_create = nullptr;

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};
} // namespace

extern "C" {

void lv_set_thread_create(LvThreadCreateFn fn) {
    g_thread_create = fn;
}

int lv_thread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                     void *arg) {
    if (g_thread_create) return g_thread_create(thread, attr, body, arg);
    return pthread_create(thread, attr, body, arg);
}

void DivideWork(int start, int end, int numThreads, LvWorkBody body, void *context,
                size_t contextSize) {
    const int total = end - start;
    int chunk;
    int count;
    if (numThreads <= 1) {
        // One thread (or none asked for, as a low-memory run passes 0): all rows here.
        chunk = total;
        count = 1;
    } else {
        chunk = total / numThreads;
        if (chunk == 0) {
            chunk = 1;
            count = total;
        } else {
            count = numThreads;
        }
    }
    if (count < 1 || contextSize < sizeof(LvWorkContext)) return;

    std::unique_ptr<unsigned char, FreeDeleter> copies(
        static_cast<unsigned char *>(std::malloc(static_cast<size_t>(count) * contextSize)));
    std::unique_ptr<pthread_t[]> threads(new (std::nothrow) pthread_t[count]);
    std::unique_ptr<bool[]> started(new (std::nothrow) bool[count]());
    if (!copies || !threads || !started) {
        // Without room for private copies, run the whole range on this thread.
        auto *own = static_cast<LvWorkContext *>(context);
        own->threadIndex = 0;
        own->isThread = 0;
        own->bandStart = start;
        own->bandEnd = end;
        body(context);
        return;
    }

    for (int i = 0; i < count; ++i) {
        unsigned char *copy = copies.get() + static_cast<size_t>(i) * contextSize;
        std::memcpy(copy, context, contextSize);
        auto *w = reinterpret_cast<LvWorkContext *>(copy);
        w->threadIndex = i;
        w->bandStart = start + i * chunk;
        w->bandEnd = (i == count - 1) ? end : w->bandStart + chunk;
    }

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
    for (int i = 0; i < count; ++i) {
        unsigned char *copy = copies.get() + static_cast<size_t>(i) * contextSize;
        auto *w = reinterpret_cast<LvWorkContext *>(copy);
        w->isThread = 1;
        if (count == 1) {
            w->isThread = 0;
            body(copy);
        } else if (lv_thread_create(&threads[i], &attr, body, copy) == 0) {
            started[i] = true;
        } else {
            // A thread that can't start is not an error: its band runs here.
            w->isThread = 0;
            body(copy);
        }
    }
    for (int i = 0; i < count; ++i)
        if (started[i]) pthread_join(threads[i], nullptr);
    pthread_attr_destroy(&attr);
}

int progress(int mode, LvProgressCallback callback, void *context, float value) {
    if (!callback || (mode != 1 && mode != 2)) return 1;
    int cancel = 0;
    if (mode == 1) {
        callback(&cancel, value);
    } else {
        // The host registered a three-argument callback under the one pointer type.
        auto generic = reinterpret_cast<void (*)(void)>(callback);
        reinterpret_cast<LvProgressCallback2>(generic)(&cancel, context, value);
    }
    return cancel == 0 ? 1 : 0;
}

} // extern "C"
