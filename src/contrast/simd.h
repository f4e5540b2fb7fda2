// Vector instructions of the contrast optimizer's hot loops: SSE2 as the baseline and an
// AVX2 path chosen at run time on x86-64; both give the scalar loops' bits.
#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define CO_HAVE_AVX2_PATH 1
#endif
