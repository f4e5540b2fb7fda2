/*
 * lumivantor ghosts: the selection file that saves a user's ghost selections.
 *
 * A selection is a closed path of integer points plus one integer the host chooses (the
 * exposure to take inside it). A host holds n selections as three parallel arrays:
 * exposures[n], points[n] (the path lengths) and coords[2 * T] (x, y of every point, path
 * after path). Saving and reloading:
 *
 *     write_ghost_mask("shot.mask", w, h, n, exposures, points, coords);
 *     ...
 *     int32_t w, h, n;
 *     int total = get_mask_info("shot.mask", &w, &h, &n);      // T, or < 0
 *     if (total >= 0) {
 *         // n entries for exposures and points, 2 * total for coords (at least 1 each)
 *         get_mask_data("shot.mask", exposures, points, coords);
 *     }
 *
 * get_mask_data only reads a file that get_mask_info has inspected in this process, and
 * refuses one whose counts have grown since, so the arrays sized from get_mask_info are
 * never written past.
 */
#ifndef LUMIVANTOR_GHOST_H
#define LUMIVANTOR_GHOST_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"

LV_EXTERN_C_BEGIN

/* ---- Selection file ---- */

/* Writes n selections as one line of text; returns the number of points written, 0 for
 * n < 1, or -1 when the file can't be opened or written (or a negative path length would
 * move the reading of coords before its start). */
LV_API int write_ghost_mask(const char *path, int width, int height, int n,
                            const int32_t *selectionExposures, const int32_t *selectionPoints,
                            const int32_t *coords);
/* Reads a selection file's image size and selection count; returns the total point count
 * T, -1 (can't open or read), -2 (size out of range) or -4 (out of memory). A file without
 * the magic gives 0 and zero sizes. */
LV_API int get_mask_info(const char *path, int32_t *width, int32_t *height, int32_t *n);
/* Fills the arrays sized from get_mask_info; returns the number of points read, -1 (can't
 * open, a point is missing), -2 (not a selection file, a selection head is missing, or the
 * file is not the one get_mask_info measured) or -3 (more points than the file's total). */
LV_API int get_mask_data(const char *path, int32_t *selectionExposures, int32_t *selectionPoints,
                         int32_t *coords);

LV_EXTERN_C_END

#endif
