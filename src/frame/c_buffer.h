// Zero-filled arrays from calloc, freed by their owner: a failed allocation is a null
// pointer that the caller turns into -4, never an exception.
#pragma once

#include <cstdlib>
#include <memory>

namespace lv {

struct FreeDeleter {
    void operator()(void *ptr) const { std::free(ptr); }
};

template <class T> using CBuf = std::unique_ptr<T[], FreeDeleter>;

// n zeroed elements (at least one, so that an empty request still succeeds).
template <class T> CBuf<T> calloc_array(size_t n) {
    return CBuf<T>(static_cast<T *>(std::calloc(n ? n : 1, sizeof(T))));
}

} // namespace lv
