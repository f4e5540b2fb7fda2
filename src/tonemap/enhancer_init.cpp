// Initial guess of the two-resolution enhancer run: the plane solved at a reduced size is
// brought up one octave at a time with near-bilinear 3 x 3 weights, rounded to four
// places, so that a flat plane stays flat only to float precision.
#include "tonemap/enhancer.h"
#include "tonemap/tone_pixel.h"

namespace {

// Column or row index of a coarse neighbour: edges repeat the last one, or with wrap
// close the row.
inline int clamp_index(int i, int n, bool wrap) {
    if (i < 0) return wrap ? n - 1 : 0;
    if (i >= n) return wrap ? 0 : n - 1;
    return i;
}

} // namespace

extern "C" {

int tm1_init(int w, int h, int cw, int ch, int wrap, float *coarse, float *fine) {
    const bool wr = wrap != 0;
    for (int y = 0; y < h; ++y) {
        const int cy = y / 2;
        // The other coarse row that shares this fine row: below for odd rows, above and
        // below for even ones. Rows never wrap.
        const int up = clamp_index(cy - 1, ch, false), down = clamp_index(cy + 1, ch, false);
        const float *r0 = coarse + static_cast<long>(cy) * cw;
        const float *ru = coarse + static_cast<long>(up) * cw;
        const float *rd = coarse + static_cast<long>(down) * cw;
        float *out = fine + static_cast<long>(y) * w;
        for (int x = 0; x < w; ++x) {
            const int cx = x / 2;
            const int l = clamp_index(cx - 1, cw, wr), r = clamp_index(cx + 1, cw, wr);
            const bool odd_x = x & 1, odd_y = y & 1;
            float v;
            if (odd_x && odd_y) {
                v = (r0[cx] + r0[r] + rd[cx] + rd[r]) * 0.25f;
            } else if (!odd_x && !odd_y) {
                v = r0[cx] * 0.5626f + (r0[l] + r0[r] + ru[cx] + rd[cx]) * 0.09375f +
                    (ru[l] + ru[r] + rd[l] + rd[r]) * 0.0156f;
            } else if (odd_x) {
                // Between columns cx and cx + 1: rows above and below weigh in.
                v = (r0[cx] + r0[r]) * 0.375f + (ru[cx] + ru[r] + rd[cx] + rd[r]) * 0.0625f;
            } else {
                v = (r0[cx] + rd[cx]) * 0.375f + (r0[l] + r0[r] + rd[l] + rd[r]) * 0.0625f;
            }
            out[x] = v;
        }
    }
    return h;
}

float coeffPoly3(float *a, float *b, float *c, float *d, float x0, float y0, float x1, float y1) {
    const lv::Cubic q = lv::cubic_through(x0, y0, x1, y1);
    *a = q.a;
    *b = q.b;
    *c = q.c;
    *d = q.d;
    return q.a;
}

} // extern "C"
