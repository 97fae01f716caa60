// SPDX-License-Identifier: MIT
#include "cli/stitch/temporary_room.h"

#include "cli/base/errors.h"
#include "image/files.h"
#include "image/standard_streams.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace panoval::cli
{

namespace
{

// From here on, pictures that were decoded again have taken most of the time.
constexpr double kManyDecodes = 2;

std::string megabytes(std::uint64_t bytes)
{
    return concat(fixed(1e-6 * static_cast<double>(bytes), 0), " MB");
}

// Where the engine makes it.
std::filesystem::path folder_of_work_file()
{
    std::error_code error;
#ifndef _WIN32
    const char* const wanted = std::getenv(image::kTemporaryVariable);
    if (wanted == nullptr || *wanted == 0)
        return std::filesystem::is_directory("/var/tmp", error) ? "/var/tmp" : "/tmp";
    return wanted;
#else
    return std::filesystem::temp_directory_path(error);
#endif
}

} // namespace

TemporaryRoom::TemporaryRoom(const PanoramaJob& job) : job_(job)
{
    const StitchOptions& options = job.options;
    if (!options.tiles.empty() || options.resumes) // the estimate is that of a run
        return;
    PanovalMosaicEstimate estimate{};
    job.mosaic.check(panoval_mosaic_estimate(job.mosaic.get(), &estimate));
    wanted_ = estimate.scratch_file;
    std::error_code error;
    const auto space = std::filesystem::space(folder_of_work_file(), error);
    if (wanted_ == 0 || (!error && space.available >= wanted_))
        return;
    has_warned_ = true;
    warn(error ? "cannot be made and pictures will be decoded again and again, slowly"
               : concat("has room for ", megabytes(space.available), " alone and pictures will be decoded again and ",
                        "again, slowly"));
}

void TemporaryRoom::look_back(double decodes) const
{
    PanovalMosaicCounts counts{};
    job_.mosaic.check(panoval_mosaic_counts(job_.mosaic.get(), &counts));
    const double each = decodes / static_cast<double>(job_.layout.pictures);
    if (!has_warned_ && counts.scratch_bytes < wanted_ && each >= kManyDecodes)
        warn(concat("was too small and each picture was decoded ", fixed(each, 1), " times"));
}

void TemporaryRoom::warn(const std::string& what) const
{
    print_warning(job_.options.common,
                  concat("the temporary file of decoded pictures ", what, "; expected ", megabytes(wanted_), " in ",
                         printable(utf8_from_path(folder_of_work_file())), ", another folder in ",
                         image::kTemporaryVariable, ", or more --memory"));
}

} // namespace panoval::cli
