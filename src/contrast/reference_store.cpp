// The reference store: for one reference luminance, the whole log image remapped around
// it, reduced into a tower, and its band-pass coefficients kept in 16 bits at the same
// offsets as the main tower. The level pass then interpolates between two references
// instead of building a small tower per pixel.
#include <cmath>

#include "contrast/contrast.h"
#include "contrast/simd.h"
#include "frame/band_threads.h"

namespace {

// Remaps the log image into work around the reference.
void remap_plane(const float *log_image, int64_t n, float g, float alpha, float sigma,
                 float *work) {
    lv::co_remap_row(lv::co_remap_for(g, alpha, sigma), log_image, work, n);
}

// The first reduce of the log image remapped around a reference, remapping each source
// row once into one of three rolling rows.
void remap_reduce(const float *log_image, int w, int h, int w2, int h2, int wrap,
                  const lv::CoRemap &map, float *rows, float *target) {
    float *row[3] = {rows, rows + w, rows + 2 * w};
    int have = -1; // last source row remapped; rows live at index (y % 3)
    auto get = [&](int y) {
        while (have < y) {
            ++have;
            lv::co_remap_row(map, log_image + static_cast<size_t>(have) * w, row[have % 3], w);
        }
        return row[y % 3];
    };
    for (int y = 0; y < h2; ++y) {
        const int sy = 2 * y;
        const float *down = sy + 1 < h ? get(sy + 1) : nullptr;
        const float *mid = get(sy);
        const float *up = sy > 0 ? row[(sy - 1) % 3] : nullptr;
        co_reduce_row(w, w2, wrap, up, mid, down, target + static_cast<size_t>(y) * w2);
    }
}

} // namespace

namespace lv {

#ifdef CO_HAVE_AVX2_PATH
// Eight samples at a time on processors with AVX2: the same operations four doubles wide
// (separate multiply and add, never fused). Returns how many samples it did.
__attribute__((target("avx2"))) int64_t remap_avx2(const CoRemap &r, const float *in, float *out,
                                                   int64_t n, bool &changed) {
    const __m256d alpha = _mm256_set1_pd(r.alpha), k_hi = _mm256_set1_pd(r.k_hi),
                  k_lo = _mm256_set1_pd(r.k_lo);
    const __m256 f_hi = _mm256_set1_ps(r.f_hi), f_lo = _mm256_set1_ps(r.f_lo);
    __m256 any = _mm256_setzero_ps();
    int64_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256 v = _mm256_loadu_ps(in + i);
        const __m256 is_above = _mm256_cmp_ps(v, f_hi, _CMP_GT_OQ);
        const __m256 is_below = _mm256_cmp_ps(v, f_lo, _CMP_LT_OQ);
        // Each lane adds the offset of its own side (above wins, as in the scalar), so one
        // sum and one rounding serve both sides.
        const __m256d k0 =
            _mm256_blendv_pd(k_lo, k_hi,
                             _mm256_castsi256_pd(_mm256_cvtepi32_epi64(
                                 _mm256_castsi256_si128(_mm256_castps_si256(is_above)))));
        const __m256d k1 =
            _mm256_blendv_pd(k_lo, k_hi,
                             _mm256_castsi256_pd(_mm256_cvtepi32_epi64(
                                 _mm256_extractf128_si256(_mm256_castps_si256(is_above), 1))));
        const __m256d t0 = _mm256_mul_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(v)), alpha);
        const __m256d t1 = _mm256_mul_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)), alpha);
        const __m256 squeezed = _mm256_set_m128(_mm256_cvtpd_ps(_mm256_add_pd(t1, k1)),
                                                _mm256_cvtpd_ps(_mm256_add_pd(t0, k0)));
        const __m256 m = _mm256_blendv_ps(v, squeezed, _mm256_or_ps(is_above, is_below));
        any = _mm256_or_ps(any, _mm256_cmp_ps(m, v, _CMP_NEQ_UQ));
        _mm256_storeu_ps(out + i, m);
    }
    changed = _mm256_movemask_ps(any) != 0;
    return i;
}
#endif

bool co_remap_row(const CoRemap &r, const float *in, float *out, int64_t n) {
    int64_t i = 0;
    bool changed = false;
#ifdef CO_HAVE_AVX2_PATH
    if (n >= 8 && __builtin_cpu_supports("avx2")) i = remap_avx2(r, in, out, n, changed);
#endif
#ifdef __SSE2__
    // Four samples at a time with the scalar's operations: the product and sums in double,
    // one rounding to float, the bounds choosing between the two compressed values.
    const __m128d alpha = _mm_set1_pd(r.alpha), k_hi = _mm_set1_pd(r.k_hi),
                  k_lo = _mm_set1_pd(r.k_lo);
    const __m128 f_hi = _mm_set1_ps(r.f_hi), f_lo = _mm_set1_ps(r.f_lo);
    __m128 any = _mm_setzero_ps();
    for (; i + 4 <= n; i += 4) {
        const __m128 v = _mm_loadu_ps(in + i);
        const __m128 is_above = _mm_cmpgt_ps(v, f_hi);
        const __m128 moved = _mm_or_ps(is_above, _mm_cmplt_ps(v, f_lo));
        // The offset of each lane's side, chosen in double (above wins, as in the scalar).
        const __m128d up0 = _mm_castps_pd(_mm_unpacklo_ps(is_above, is_above));
        const __m128d up1 = _mm_castps_pd(_mm_unpackhi_ps(is_above, is_above));
        const __m128d k0 = _mm_or_pd(_mm_and_pd(up0, k_hi), _mm_andnot_pd(up0, k_lo));
        const __m128d k1 = _mm_or_pd(_mm_and_pd(up1, k_hi), _mm_andnot_pd(up1, k_lo));
        const __m128d t0 = _mm_mul_pd(_mm_cvtps_pd(v), alpha);
        const __m128d t1 = _mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(v, v)), alpha);
        const __m128 squeezed =
            _mm_movelh_ps(_mm_cvtpd_ps(_mm_add_pd(t0, k0)), _mm_cvtpd_ps(_mm_add_pd(t1, k1)));
        const __m128 m = _mm_or_ps(_mm_and_ps(moved, squeezed), _mm_andnot_ps(moved, v));
        any = _mm_or_ps(any, _mm_cmpneq_ps(m, v));
        _mm_storeu_ps(out + i, m);
    }
    changed |= _mm_movemask_ps(any) != 0;
#endif
    for (; i < n; ++i) {
        const float m = co_remap(r, in[i]);
        changed |= m != in[i];
        out[i] = m;
    }
    return changed;
}

} // namespace lv

extern "C" {

float co_alpha0(const float *p) {
    const double c = p[0];
    return static_cast<float>(c >= 50.0 ? 1.1 - 0.011 * c : 0.9 - 0.007 * c);
}

float co_sigma0(const float *p) {
    const double d = p[1];
    return static_cast<float>(d > 0.0 ? 0.92 - d * 0.05 : 0.92 - d * 0.1);
}

int co_precalculate(int width, int height, int levels, float *p, int numThreads, float *work,
                    const float *logImage, int16_t *store, float reference) {
    if (width < 1 || height < 1 || levels < 1) return 0;
    const float scale = p[11] > 0.0f ? 32767.0f / p[11] : 1.0f;
    const int wrap = static_cast<int>(p[15]) != 0 ? 1 : 0;
    const float a0 = co_alpha0(p), s0 = co_sigma0(p);
    const int64_t n = static_cast<int64_t>(width) * height;

    // Offsets and sizes of the tower's planes, finest first.
    int64_t off[64];
    int ws[64], hs[64];
    off[0] = 0;
    ws[0] = width;
    hs[0] = height;
    for (int k = 0; k < levels && k < 62; ++k) {
        off[k + 1] = off[k] + static_cast<int64_t>(ws[k]) * hs[k];
        ws[k + 1] = (ws[k] + 1) / 2;
        hs[k + 1] = (hs[k] + 1) / 2;
    }
    auto reduce = [&](int k) {
        co_down(ws[k], hs[k], ws[k + 1], hs[k + 1], wrap, off[k], off[k + 1], numThreads, work);
    };
    auto diff = [&](int k) {
        co_diff(ws[k], hs[k], ws[k + 1], hs[k + 1], 16, wrap, 0, work + off[k + 1], work + off[k],
                store + off[k], scale);
    };

    if (p[2] != 0.0f) {
        if (levels < 2) return 0;
        lv::CoBuf<float> rows = lv::co_array<float>(static_cast<size_t>(width) * 3);
        const double gain = std::pow(2.0, p[2] * 0.04) - 1.0;
        for (int k = 0; k <= levels - 2; ++k) {
            // The level's own strength and threshold, worked out here rather than read from
            // p, which other references' threads share.
            const float t5 = std::pow(static_cast<float>(k) / static_cast<float>(levels - 1), 5.0f);
            const float p5 = static_cast<float>(p[2] * t5 * 0.015);
            const float alpha = lv::co_clamp_alpha(static_cast<float>(a0 / (1.0 + gain * t5)));
            const float sigma = s0 / (1.0f + p5);
            if (k == 0 || !rows) {
                remap_plane(logImage, n, reference, alpha, sigma, work);
                reduce(0);
            } else {
                // Level 0 of the remapped image serves only the first reduce: remap it row by
                // row into three rolling rows instead of the whole plane.
                remap_reduce(logImage, width, height, ws[1], hs[1], wrap,
                             lv::co_remap_for(reference, alpha, sigma), rows.get(), work + off[1]);
            }
            for (int j = 1; j <= k; ++j)
                reduce(j);
            diff(k);
        }
        return levels;
    }

    const float alpha = lv::co_clamp_alpha(a0 / (1.0f + p[7]));
    const float sigma = s0 / (1.0f + p[5]);
    remap_plane(logImage, n, reference, alpha, sigma, work);
    for (int k = 0; k < levels; ++k) {
        reduce(k);
        diff(k);
    }
    return levels;
}

void *co_precalculate_threaded(void *args) {
    auto *a = static_cast<CoPrecalcArgs *>(args);
    a->result = co_precalculate(a->width, a->height, a->levels, a->p, a->numThreads, a->work,
                                a->logImage, a->store, a->reference);
    pthread_exit(nullptr);
}

} // extern "C"
