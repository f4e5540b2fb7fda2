// Owning handles of the enhancer stages: calloc'ed arrays (null on failure, so that a
// stage can return -4) and FILE pointers closed on every path.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "frame/c_buffer.h"

namespace lv {

struct FileCloser {
    void operator()(FILE *f) const { std::fclose(f); }
};
using FloatBuf = std::unique_ptr<float[], FreeDeleter>;
using File = std::unique_ptr<FILE, FileCloser>;

// n zeroed floats (at least one), or null.
inline FloatBuf alloc_floats(long n) {
    return FloatBuf(static_cast<float *>(std::calloc(n > 0 ? n : 1, sizeof(float))));
}

} // namespace lv
