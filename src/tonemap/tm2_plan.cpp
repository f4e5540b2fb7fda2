// The solver's pyramid plan and the prolongation that carries a coarse solution, or a
// coarse plane of attenuation factors, up to the next finer level.
#include <cstring>

#include "tonemap/enhancer_stages.h"

namespace lv {

SolverPlan solver_plan(int width, int height, int levels) {
    SolverPlan plan;
    plan.count = levels < 1 ? 1 : (levels > SolverPlan::kMax ? SolverPlan::kMax : levels);
    int w = width, h = height;
    for (int k = 0; k < plan.count; ++k) {
        plan.w[k] = w;
        plan.h[k] = h;
        plan.offset[k] = plan.total;
        plan.total += static_cast<long>(w) * h;
        if (w > 3 && h > 3) w = (w + 1) / 2, h = (h + 1) / 2;
    }
    return plan;
}

void prolong(const float *coarse, int cw, int ch, float *fine, int fw, int fh, int wrap) {
    if (cw == fw && ch == fh) { // sides that stopped halving
        std::memcpy(fine, coarse, sizeof(float) * static_cast<size_t>(fw) * fh);
        return;
    }
    for (int y = 0; y < fh; ++y) {
        const int cy = y / 2;
        const float *r0 = coarse + static_cast<long>(cy) * cw;
        // The coarse row below: past the last one it is this row, or with wrap its middle
        // sample stands for the row beyond the rim.
        const bool odd_y = y & 1;
        const bool below_missing = odd_y && cy + 1 >= ch;
        const float *r1 = below_missing ? r0 : r0 + cw;
        float *out = fine + static_cast<long>(y) * fw;
        for (int x = 0; x < fw; ++x) {
            const int cx = x / 2;
            const bool odd_x = x & 1;
            int nx = cx + 1;
            if (odd_x && nx >= cw) nx = wrap ? 0 : cx;
            auto at_below = [&](int col) { return below_missing && wrap ? r0[cw / 2] : r1[col]; };
            if (!odd_x && !odd_y)
                out[x] = r0[cx];
            else if (odd_x && !odd_y)
                out[x] = (r0[cx] + r0[nx]) * 0.5f;
            else if (!odd_x)
                out[x] = (r0[cx] + at_below(cx)) * 0.5f;
            else
                out[x] = (r0[cx] + r0[nx] + at_below(cx) + at_below(nx)) * 0.25f;
        }
    }
}

} // namespace lv
