// SPDX-License-Identifier: MIT
// A TIFF file on an open stream, with libtiff's messages kept instead of printed.
#pragma once

#include <tiffio.h>

#include <cstdio>
#include <string>

namespace panoval::image
{

class TiffFile
{
public:
    // mode as TIFFOpen takes it. The stream stays the caller's and must outlive this object.
    TiffFile(std::FILE* stream, const std::string& name, const char* mode);
    TiffFile(const TiffFile&) = delete;
    TiffFile& operator=(const TiffFile&) = delete;
    ~TiffFile();

    TIFF* get() const { return tiff_; } // null when the file does not open as TIFF
    const std::string& message() const { return message_; }

    // Writes what is left to write. False when that failed.
    bool close();

    // A tag's value, or `absent` where the file has none and the format gives no default.
    template <class Value>
    Value field(ttag_t tag, Value absent) const
    {
        Value value = absent;
        return TIFFGetFieldDefaulted(tiff_, tag, &value) == 1 ? value : absent; // COUNT_EXCL_BRANCH: none is absent yet
    }

private:
    static int keep_message(TIFF*, void* self, const char* module, const char* format, va_list arguments);
    static int drop_message(TIFF*, void* self, const char* module, const char* format, va_list arguments);

    TIFF* tiff_ = nullptr;
    std::string message_;
};

} // namespace panoval::image
