// SPDX-License-Identifier: MIT
// The room for the temporary file of decoded pictures. Where it has none, pictures are decoded again and again, which
// takes many times as long: nobody is to wait for it without a word.
#pragma once

#include "cli/stitch/panorama_job.h"

namespace panoval::cli
{

class TemporaryRoom
{
public:
    // Warns where the folder's free space does not hold the file of the job.
    explicit TemporaryRoom(const PanoramaJob& job);

    // Warns where the file turned out to have no room, unless that was said before. decodes: of all pictures together
    void look_back(double decodes) const;

private:
    void warn(const std::string& what) const;

    const PanoramaJob& job_;
    std::uint64_t wanted_ = 0; // bytes; 0 where no file is wanted
    bool has_warned_ = false;
};

} // namespace panoval::cli
