// Stage tm2: solves the divergence pyramid that stage tm1 left, coarse to fine, each level
// starting from the prolonged solution of the level below, and leaves exp of the solved
// log-luminance plane at level 0. A low-memory run keeps the two finest levels' arrays in
// temp files and solves them in strips.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "tonemap/enhancer_stages.h"
#include "tonemap/stage_buffers.h"

namespace {

using lv::alloc_floats;
using lv::File;
using lv::FloatBuf;
using lv::FreeDeleter;

// Relative tolerance of the residual, by trunc(p[18]) + 2.
float base_tolerance(float p18) {
    static const float kTable[5] = {0.0003f, 0.0001f, 1e-5f, 1e-6f, 1e-7f};
    const int i = static_cast<int>(p18) + 2;
    return i >= 0 && i < 5 ? kTable[i] : 1e-6f;
}

// Tolerance factor of a level that starts from a prolonged solution: large levels only
// need to add detail, so their tolerance loosens with their size.
float level_factor(int w, int h) {
    const int s = w + h;
    if (s < 3202) return 1.0f;
    return static_cast<float>(std::log((s >> 1) * 0.001) * 20.0);
}

int write_plane(const char *path, const float *data, long n, const char *what) {
    File f(path ? std::fopen(path, "wb") : nullptr);
    if (!f) return printf("can not open temporary file %s\n", path ? path : "(null)"), LV_ERR_ARG;
    if (std::fwrite(data, 4, n, f.get()) != static_cast<size_t>(n) || std::fclose(f.release()) != 0)
        return printf("could not write to temporary file %s\n", what), LV_ERR_IO;
    return 1;
}

} // namespace

extern "C" {

LV_API int calc_tm2new2_guess(int lastLevel, float *p, LvProgressCallback callback, float *work,
                              DimParam dim, OptimParam opt, const float *guess) {
    const int W = dim.width, H = dim.height;
    const bool streaming = opt.lowMemory && lastLevel > 2;
    const int threads = streaming ? 0 : opt.numThreads;
    const float tolerance0 = base_tolerance(p[18]);
    const int wrap = static_cast<int>(p[15]);
    // Stage tm1 writes a divergence up to level lastLevel - 1 only; the level above still
    // holds attenuation factors, whose right-hand side has no solution under Neumann
    // edges. So the coarsest level solved is the coarsest one holding a divergence.
    const int coarsest = guess ? 0 : lv::coarsest_solved_level(W, H, lastLevel);
    const lv::SolverPlan plan = lv::solver_plan(W, H, coarsest + 1);
    const int top = plan.count - 1;
    const long n0 = static_cast<long>(W) * H;
    const int max_iterations = static_cast<int>(std::pow(2.0, p[17] * 0.15849625007211562) * 50.0);
    auto size_of = [&](int k) { return static_cast<long>(plan.w[k]) * plan.h[k]; };
    auto threads_for = [&](int k) { return threads > 1 && plan.h[k] / threads > 80 ? threads : 0; };
    auto factor_for = [&](int k) {
        if (k == top) return opt.pyramidMode == 1 ? 1.0f : 0.0001f;
        return level_factor(plan.w[k], plan.h[k]);
    };

    if (!streaming) {
        // Two plane-sized stores whose roles alternate: one holds a level's right-hand
        // side (then its search direction), the other its solution.
        FloatBuf a = alloc_floats(n0), b = alloc_floats(n0);
        if (!a || !b) return LV_ERR_NOMEM;
        float *rhs = a.get(), *x = b.get();
        if (guess) std::memcpy(x, guess, sizeof(float) * n0);
        for (int k = top; k >= 0; --k) {
            std::memcpy(rhs, work + plan.offset[k], sizeof(float) * size_of(k));
            const int r = tm20(plan.w[k], plan.h[k], max_iterations, wrap, threads_for(k), 0,
                               k == 0 ? callback : nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, 0, rhs, x, factor_for(k) * tolerance0);
            if (r < 0) return r;
            if (k == 0) break;
            lv::prolong(x, plan.w[k], plan.h[k], rhs, plan.w[k - 1], plan.h[k - 1], wrap);
            std::swap(rhs, x);
        }
        std::memcpy(work, x, sizeof(float) * n0);
    } else {
        // The pyramid goes to tempPath1; work becomes the solution and scratch: a level's
        // solution at its start, the coarse copy for prolongation just after level 0.
        int r = write_plane(opt.tempPath1, work, plan.total, "tempPath1");
        if (r < 0) return r;
        const long coarse_size = top >= 2 ? size_of(2) : 1;
        FloatBuf rhs = alloc_floats(coarse_size);
        if (!rhs) return LV_ERR_NOMEM;
        std::memset(work, 0, sizeof(float) * n0);
        if (guess) std::memcpy(work, guess, sizeof(float) * n0);
        File in(std::fopen(opt.tempPath1, "rb"));
        if (!in) return printf("can not open temporary file %s\n", opt.tempPath1), LV_ERR_ARG;
        for (int k = top; k >= 0; --k) {
            if (k >= 2) {
                if ((r = read_strip(in.get(), plan.offset[k], size_of(k), rhs.get())) < 0) return r;
                r = tm20(plan.w[k], plan.h[k], max_iterations, wrap, 0, 0, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr, 0, rhs.get(), work,
                         factor_for(k) * tolerance0);
            } else {
                r = tm20(plan.w[k], plan.h[k], max_iterations, wrap, 0, k + 1,
                         k == 0 ? callback : nullptr, opt.tempPath2, opt.tempPath3, opt.tempPath4,
                         opt.tempPath5, opt.tempPath1, plan.offset[k], nullptr, work,
                         factor_for(k) * tolerance0);
            }
            if (r < 0) return r;
            if (k == 0) break;
            float *scratch = work + n0;
            std::memcpy(scratch, work, sizeof(float) * size_of(k));
            lv::prolong(scratch, plan.w[k], plan.h[k], work, plan.w[k - 1], plan.h[k - 1], wrap);
        }
    }

    for (long i = 0; i < n0; ++i)
        work[i] = std::exp(work[i]);
    if (streaming) return write_plane(opt.tempPath1, work, n0, "tempPath1");
    return 1;
}

LV_API int calc_tm2new2(int lastLevel, float *p, LvProgressCallback callback, float *work,
                        DimParam dim, OptimParam opt) {
    return calc_tm2new2_guess(lastLevel, p, callback, work, dim, opt, nullptr);
}

} // extern "C"
