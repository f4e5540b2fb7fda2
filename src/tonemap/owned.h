// Owners for the C allocations and files of the enhancer's driver and last stage, so that
// every return path frees what it took.
#pragma once

#include <cstdio>
#include <memory>

#include "frame/c_buffer.h"

namespace lv {

struct FileCloser {
    void operator()(FILE *f) const { std::fclose(f); }
};
using OwnedFile = std::unique_ptr<FILE, FileCloser>;

} // namespace lv
