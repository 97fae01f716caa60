// SPDX-License-Identifier: MIT
#include "image/tiff_file.h"

#include "image/files.h"

#include <cstdarg>

namespace panoval::image
{

namespace
{

constexpr tmsize_t kLargestAllocation = 0x7FFFFFFF;

std::FILE* stream_of(thandle_t handle)
{
    return static_cast<std::FILE*>(handle);
}

tmsize_t read_stream(thandle_t handle, void* data, tmsize_t size)
{
    return static_cast<tmsize_t>(std::fread(data, 1, static_cast<std::size_t>(size), stream_of(handle)));
}

tmsize_t write_stream(thandle_t handle, void* data, tmsize_t size)
{
    return static_cast<tmsize_t>(std::fwrite(data, 1, static_cast<std::size_t>(size), stream_of(handle)));
}

toff_t seek_stream(thandle_t handle, toff_t offset, int origin)
{
    if (!seek_in_file(stream_of(handle), static_cast<std::int64_t>(offset), origin))
        return static_cast<toff_t>(-1);
    return static_cast<toff_t>(tell_in_file(stream_of(handle)));
}

int leave_stream_open(thandle_t)
{
    return 0;
}

toff_t size_of_stream(thandle_t handle)
{
    const std::int64_t here = tell_in_file(stream_of(handle));
    seek_in_file(stream_of(handle), 0, SEEK_END);
    const std::int64_t size = tell_in_file(stream_of(handle));
    seek_in_file(stream_of(handle), here, SEEK_SET);
    return static_cast<toff_t>(size);
}

} // namespace

TiffFile::TiffFile(std::FILE* stream, const std::string& name, const char* mode)
{
    TIFFOpenOptions* const options = TIFFOpenOptionsAlloc();
    if (options == nullptr) // COUNT_EXCL_BRANCH: as below
        return;             // COUNT_EXCL: libtiff's heap
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, kLargestAllocation);
    TIFFOpenOptionsSetErrorHandlerExtR(options, keep_message, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options, drop_message, this);
    tiff_ = TIFFClientOpenExt(name.c_str(), mode, stream, read_stream, write_stream, seek_stream, leave_stream_open,
                              size_of_stream, nullptr, nullptr, options);
    TIFFOpenOptionsFree(options);
}

TiffFile::~TiffFile()
{
    if (tiff_ != nullptr)
        TIFFClose(tiff_);
}

bool TiffFile::close()
{
    message_.clear();
    const bool is_flushed = TIFFFlush(tiff_) == 1;
    TIFFClose(tiff_);
    tiff_ = nullptr;
    return is_flushed && message_.empty(); // COUNT_EXCL_BRANCH: closing has nothing left to write
}

int TiffFile::keep_message(TIFF*, void* self, const char* module, const char* format, va_list arguments)
{
    char text[200];
    std::vsnprintf(text, sizeof text, format, arguments);
    const char* const from = module != nullptr ? module : "TIFF"; // COUNT_EXCL_BRANCH: libtiff's choice
    static_cast<TiffFile*>(self)->message_ = std::string(from) + ": " + text;
    return 1;
}

int TiffFile::drop_message(TIFF*, void*, const char*, const char*, va_list)
{
    return 1;
}

} // namespace panoval::image
