// Shared pieces of the finishing tests: random pictures and a thread-count sweep.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace finish_test {

// Random samples of the given depth, as bytes (16-bit samples in host order).
inline std::vector<unsigned char> random_image(size_t samples, int bits, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<unsigned char> img(samples * (bits / 8));
    if (bits == 8)
        for (auto &v : img)
            v = static_cast<unsigned char>(rng());
    else
        for (size_t i = 0; i < samples; ++i) {
            const uint16_t v = static_cast<uint16_t>(rng());
            std::memcpy(&img[2 * i], &v, 2);
        }
    return img;
}

inline unsigned sample16(const std::vector<unsigned char> &img, size_t i) {
    uint16_t v;
    std::memcpy(&v, &img[2 * i], 2);
    return v;
}

// The output of `run(threads, out)` for 1 thread, compared with 2, 3 and 7 threads.
inline bool same_for_all_thread_counts(size_t bytes,
                                       const std::function<void(int, unsigned char *)> &run) {
    std::vector<unsigned char> one(bytes, 0x5a);
    run(1, one.data());
    for (int threads : {2, 3, 7}) {
        std::vector<unsigned char> many(bytes, 0x5a);
        run(threads, many.data());
        if (many != one) return false;
    }
    return true;
}

} // namespace finish_test
