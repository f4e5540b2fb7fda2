// Owners for the C allocations and files of the enhancer's driver and last stage, so that
// every return path frees what it took.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace lv {

struct FreeDeleter {
    void operator()(void *ptr) const { std::free(ptr); }
};
template <class T> using CBuf = std::unique_ptr<T[], FreeDeleter>;

// Zeroed array of n elements (at least one), null when out of memory.
template <class T> CBuf<T> calloc_array(size_t n) {
    return CBuf<T>(static_cast<T *>(std::calloc(n ? n : 1, sizeof(T))));
}

struct FileCloser {
    void operator()(FILE *f) const { std::fclose(f); }
};
using OwnedFile = std::unique_ptr<FILE, FileCloser>;

} // namespace lv
