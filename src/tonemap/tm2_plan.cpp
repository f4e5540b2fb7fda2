// The solver's pyramid plan and the prolongation that carries a coarse solution, or a
// coarse plane of attenuation factors, up to the next finer level.
#include <algorithm>
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

int coarsest_solved_level(int width, int height, int lastLevel) {
    int available = 0;
    for (int w = width, h = height; w >= 6 && h >= 6; w = (w + 1) / 2, h = (h + 1) / 2)
        ++available;
    return std::min(std::max(lastLevel - 1, 0), available);
}

void prolong(const float *coarse, int cw, int ch, float *fine, int fw, int fh, int wrap) {
    if (cw == fw && ch == fh) {
        std::memcpy(fine, coarse, sizeof(float) * static_cast<size_t>(fw) * fh);
        return;
    }
    upsample(coarse, cw, ch, fw, fh, wrap, [fine](long i, float v) { fine[i] = v; });
}

} // namespace lv
