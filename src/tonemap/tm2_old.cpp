// The old second stage: coarse-to-fine relaxation of the divergence pyramid with the
// red-black kernels. Each level starts from the prolonged solution of the level below and
// is smoothed by a number of sweeps that grows towards the coarse levels, where a sweep is
// cheap and the error is smooth; the coarsest level starts from zero and is swept until
// information has crossed it many times over.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "tonemap/enhancer_stages.h"
#include "tonemap/stage_buffers.h"

namespace {

using lv::alloc_floats;
using lv::File;
using lv::FloatBuf;
using lv::FreeDeleter;

// Sweeps of a level: the finest gets the iteration budget of p[17], each coarser level
// twice the finer one's (up to 16 times the budget); the coarsest level, solved from
// zero, gets 2 (w + h)^2, bounded by 5e7 pixel updates.
int level_sweeps(int k, bool coarsest, int w, int h, int budget) {
    if (!coarsest) return budget << std::min(k, 4);
    const long n = static_cast<long>(w) * h;
    const long wanted = 2L * (w + h) * (w + h);
    return static_cast<int>(std::max<long>(budget, std::min(wanted, 50000000L / n)));
}

} // namespace

extern "C" {

LV_API int calc_tm2old(int lastLevel, float *p, LvProgressCallback callback, float *work,
                       DimParam dim, OptimParam opt, FILE *rhsFile) {
    const int wrap = static_cast<int>(p[15]);
    const int threads = opt.lowMemory ? 0 : opt.numThreads;
    // Stage tm1 leaves a divergence up to level lastLevel - 1 only; the level above still
    // holds attenuation factors, so the coarsest solved level is the last divergence.
    const int coarsest =
        std::min(lv::coarsest_solved_level(dim.width, dim.height, lastLevel), lv::kOldLevels - 1);
    const lv::SolverPlan plan = lv::solver_plan(dim.width, dim.height, coarsest + 1);
    const int top = plan.count - 1;
    const bool streaming = rhsFile != nullptr;
    auto size_of = [&](int k) { return k <= top ? static_cast<long>(plan.w[k]) * plan.h[k] : 1L; };
    // A low-memory run solves level 0 in work itself, its divergence coming from the file;
    // the other levels, and every level of a plain run, in a store of their own.
    const int first_in_store = streaming ? 1 : 0;
    FloatBuf sol = alloc_floats(size_of(first_in_store));
    FloatBuf prev = alloc_floats(size_of(first_in_store + 1));
    if (!sol || !prev) return LV_ERR_NOMEM;

    const int budget = static_cast<int>(std::pow(2.0, p[17] * 0.15849625007211562) * 50.0);
    for (int k = top; k >= 0; --k) {
        const int w = plan.w[k], h = plan.h[k];
        float *x = (k == 0 && streaming) ? work : sol.get();
        if (k == top) std::memset(x, 0, sizeof(float) * size_of(k));
        const int sweeps = level_sweeps(k, k == top, w, h, budget);
        LvProgressCallback cb = nullptr;
        if (k == 0) {
            _progressInit = 0.4f;
            _progressIncrement = 0.4f / static_cast<float>(sweeps);
            cb = callback;
        }
        const bool from_file = k == 0 && streaming;
        const int r = blur0(threads, w, h, sweeps, wrap, 0, x, work + plan.offset[k], 1.0f,
                            from_file, rhsFile, nullptr, cb);
        if (r == LV_ERR_ARG) {
            printf("fseek1 temporary file tempPath1 2 failed for %zu\n",
                   static_cast<size_t>(size_of(0)));
            return LV_ERR_IO;
        }
        if (r < 0) return r;
        if (k == 0) {
            if (!streaming) std::memcpy(work, x, sizeof(float) * size_of(0));
            break;
        }
        std::memcpy(prev.get(), x, sizeof(float) * size_of(k));
        float *finer = (k - 1 == 0 && streaming) ? work : sol.get();
        lv::prolong(prev.get(), w, h, finer, plan.w[k - 1], plan.h[k - 1], wrap);
    }

    const long n0 = size_of(0);
    for (long i = 0; i < n0; ++i)
        work[i] = std::exp(work[i]);
    if (streaming) {
        // The plane goes back into the open temp file, where the last stage reads it.
        if (fseeko(rhsFile, 0, SEEK_SET) != 0) {
            printf("fseek2 temporary file tempPath1 failed for %zu\n", static_cast<size_t>(n0));
            return LV_ERR_IO;
        }
        if (fwrite(work, 4, n0, rhsFile) != static_cast<size_t>(n0) || fflush(rhsFile) != 0) {
            printf("could not write to temporary file tempPath1 %zux%zu\n",
                   static_cast<size_t>(dim.width), static_cast<size_t>(dim.height));
            return LV_ERR_IO;
        }
    }
    return 1;
}

} // extern "C"
