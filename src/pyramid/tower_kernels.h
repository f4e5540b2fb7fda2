// Column bookkeeping and the interior loops shared by the tower reduce and expand.
#pragma once

#include <cstdint>

namespace lv::tower {

// Neighbour columns of a fine level: clamped to the edge, or closing the cycle when wrapped.
struct RowCols {
    int fine_w;
    bool wrap;
    int interior_end; // coarse columns [1, interior_end) have both neighbours inside the row

    RowCols(int fineW, int coarseW, bool wrapped) : fine_w(fineW), wrap(wrapped) {
        interior_end = fineW / 2;
        // A wrapped row's last coarse column is limited like its first one.
        if (wrap && interior_end > coarseW - 1) interior_end = coarseW - 1;
    }
    int west(int cx) const { return cx > 0 ? cx - 1 : (wrap ? fine_w - 1 : 0); }
    int east(int cx) const { return cx + 1 < fine_w ? cx + 1 : (wrap ? 0 : cx); }
};

// Coarse columns 1 .. end-1 of a full-kernel row, where no neighbour leaves the row.
template <class K>
void reduce_interior(const typename K::T *n, const typename K::T *c, const typename K::T *s,
                     int end, int nc, typename K::T *out) {
    for (int x = 1; x < end; ++x) {
        const int cx = 2 * x * nc;
        for (int k = 0; k < nc; ++k) {
            const int i = cx + k;
            const int a = n[i] + s[i] + c[i - nc] + c[i + nc];
            const int b = n[i - nc] + n[i + nc] + s[i - nc] + s[i + nc];
            out[x * nc + k] = static_cast<typename K::T>(K::full(c[i], a, b));
        }
    }
}

} // namespace lv::tower
