// rescale_adjustment_map: resizes a painted map by exact steps of two and at most one step of
// any ratio. Maps in between may be larger than the target, so they live in work maps of
// their own and only the last step writes the caller's map.
#include <algorithm>
#include <climits>

#include "frame/c_buffer.h"
#include "lumivantor/pyramid.h"
#include "pyramid/adjustment_map.h"

namespace {

enum class Step { any_ratio, halve, double_up };

struct Stage {
    Step step;
    int w, h; // size this stage writes
};

} // namespace

extern "C" LV_API int rescale_adjustment_map(int srcW, int srcH, int dstW, int dstH, int wrap,
                                             const uint8_t *src, uint8_t *dst) {
    if (srcW < 1 || srcH < 1 || dstW < 1 || dstH < 1) return 0;
    const bool grow = srcW < dstW && srcH<dstH, shrink = srcW> dstW && srcH > dstH;
    if (!grow && !shrink) return 0; // one side grows and the other doesn't: left as it is
    // The ratio comes from the widths: n whole steps of two, exact when the wider width is
    // the narrower times 2^n (told apart in integers, not by a quotient of logarithms).
    const int64_t small = grow ? srcW : dstW, big = grow ? dstW : srcW;
    int n = 0;
    while ((small << (n + 1)) <= big)
        ++n;
    const bool exact = (small << n) == big;
    // Exact steps alone can only reach a height that is the same power of two away; another
    // height would take rows past the target, so such a request is refused.
    if (exact && (grow ? int64_t(srcH) << n : int64_t(dstH) << n) != (grow ? dstH : srcH)) return 0;

    // Maps in between whose height doesn't fit an int can't be held either.
    if ((grow ? int64_t(srcH) << n : int64_t(dstH) << n) > INT_MAX) return -4;

    // Grow: n doublings, then the step of any ratio. Shrink: the step of any ratio to the
    // target times 2^n, then n halvings.
    Stage stages[34];
    int count = 0;
    if (grow) {
        for (int k = 1; k <= n; ++k)
            stages[count++] = {Step::double_up, srcW << k, srcH << k};
        if (!exact) stages[count++] = {Step::any_ratio, dstW, dstH};
    } else {
        if (!exact) stages[count++] = {Step::any_ratio, dstW << n, dstH << n};
        for (int k = n - 1; k >= 0; --k)
            stages[count++] = {Step::halve, dstW << k, dstH << k};
    }
    int64_t largest = 0;
    for (int i = 0; i + 1 < count; ++i)
        largest = std::max(largest, int64_t(stages[i].w) * stages[i].h);
    lv::CBuf<uint8_t> work[2];
    if (n >= 1)
        for (int i = 0; i < std::min(count - 1, 2); ++i)
            if (!(work[i] = lv::calloc_array<uint8_t>(size_t(largest) * 2))) return -4;

    const uint8_t *from = src;
    int fw = srcW, fh = srcH;
    for (int i = 0; i < count; ++i) {
        const Stage &s = stages[i];
        uint8_t *to = i + 1 == count ? dst : work[i % 2].get();
        if (s.step == Step::any_ratio)
            lv::maps::any_ratio(shrink, fw, fh, s.w, s.h, from, to);
        else if (s.step == Step::halve)
            lv::maps::halve(fw, fh, s.w, s.h, from, to);
        else
            lv::maps::double_up(fw, fh, s.w, s.h, wrap != 0, from, to);
        from = to, fw = s.w, fh = s.h;
    }
    return dstH;
}
