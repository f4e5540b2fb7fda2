// How much working memory a fusion takes, so that the host can size it ahead and nothing
// is allocated during the job.
#include <algorithm>

#include "lumivantor/fusion.h"
#include "lumivantor/pyramid.h"

extern "C" int mem4fusion(int mode, int n, int weightBits, int accumBits, uint64_t *bytes,
                          DimParam dim) {
    if (mode != 1 && mode != 2) return -1;
    const uint64_t pyr = static_cast<uint64_t>(pyram_len2(dim.width, dim.height));
    const uint64_t plane = static_cast<uint64_t>(dim.width) * static_cast<uint64_t>(dim.height);
    const uint64_t spp = static_cast<uint64_t>(dim.samplesPerPixel);
    const uint64_t ab = static_cast<uint64_t>(accumBits / 8),
                   wb = static_cast<uint64_t>(weightBits / 8);
    // The blend: all weight planes, the last with room for its tower, and the accumulator.
    const uint64_t blend = wb * (static_cast<uint64_t>(n - 1) * plane + pyr) + ab * spp * pyr;
    // The local stage: accumulator (then the result tower), two weight towers, a work plane
    // and four anchor towers.
    const uint64_t local = ab * spp * pyr + 4 * pyr + 2 * spp * (plane + 4 * pyr);
    *bytes = mode == 1 ? blend : std::max(blend, local);
    return 1;
}
