// The library's Mersenne Twister (MT19937 twist, untempered output, one fixed sequence).
#include <cstdint>

#include "lumivantor/frame.h"

extern "C" {

void mt_init(uint32_t *state) {
    for (uint32_t i = 0; i < 624; ++i)
        state[1 + i] = i;
    state[0] = 2496; // byte offset past the end: the first draw refills
}

uint32_t mt_random(uint32_t *state) {
    uint32_t *w = state + 1;
    if (state[0] >= 2496) {
        for (int k = 0; k < 624; ++k) {
            const uint32_t next = w[(k + 1) % 624];
            const uint32_t y = (w[k] & 0x80000000u) | (next & 0x7FFFFFFFu);
            w[k] = w[(k + 397) % 624] ^ (y >> 1) ^ ((next & 1u) ? 0x9908B0DFu : 0u);
        }
        state[0] = 0;
    }
    const uint32_t v = w[state[0] / 4];
    state[0] += 4;
    return v;
}

} // extern "C"
