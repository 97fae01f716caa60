// SPDX-License-Identifier: MIT
#include "mosaic/seam_find.h"

#include "mosaic/seam_nearest.h"

namespace panoval::mosaic
{

SeamMap find_seams(const Layout& layout, const std::vector<Overlap>& overlaps, const Corrections& corrections,
                   PictureReader& reader, const SeamOptions& options, Progress& progress)
{
    static_cast<void>(overlaps);
    static_cast<void>(corrections);
    return find_nearest_seams(layout, reader, options, progress);
}

} // namespace panoval::mosaic
