// SPDX-License-Identifier: MIT
// The end of the strips' way: their rows become the panorama, in memory or, where nobody needs it there, in its file.
#pragma once

#include "cli/canvas_strips.h"
#include "cli/image.h"
#include "cli/image_write.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace panoval::cli
{

class StripCollector
{
public:
    // header: the panorama without samples. writer: writes the panorama, or null to keep it. output: for messages.
    StripCollector(const std::vector<CanvasStrip>& strips, Image header, std::unique_ptr<RowWriter> writer,
                   const std::string& output);

    // A blended strip; each once, in any order and from any thread.
    void put(std::size_t index, Image blended);

    // When all strips are here: the panorama, without samples if it has been written.
    Image finish();

private:
    bool take_next(Image& blended);
    void keep(const CanvasStrip& strip, const Image& blended);

    const std::vector<CanvasStrip>& strips_;
    Image panorama_;
    std::unique_ptr<RowWriter> writer_;
    std::mutex mutex_;
    std::vector<Image> waiting_; // strips that others have to be written before
    std::size_t next_ = 0;       // strip to write
    bool is_writing_ = false;    // a thread is at it, and takes what others put
};

} // namespace panoval::cli
