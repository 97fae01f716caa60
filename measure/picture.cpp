// SPDX-License-Identifier: MIT
// Pictures as hosts hand them over. Samples may lie at any address, so they are copied byte by byte.
#include "measure/picture.h"

#include <cstring>

namespace panoval::measure
{

namespace
{

template <class Sample, class Value>
void convert(const unsigned char* bytes, std::int32_t count, Value* samples) noexcept
{
    for (std::int32_t i = 0; i < count; ++i) {
        Sample sample;
        std::memcpy(&sample, bytes + static_cast<std::size_t>(i) * sizeof(Sample), sizeof(Sample));
        samples[i] = static_cast<Value>(sample);
    }
}

template <class Value>
void read_row(const PanovalMeasureImage& image, std::int32_t x, std::int32_t y, std::int32_t count,
              Value* samples) noexcept
{
    const std::size_t offset = static_cast<std::size_t>(y) * static_cast<std::size_t>(image.stride) +
                               static_cast<std::size_t>(x) * sample_size(image.sample_type);
    const auto* bytes = static_cast<const unsigned char*>(image.data) + offset;
    if (image.sample_type == PANOVAL_MEASURE_U8)
        convert<std::uint8_t>(bytes, count, samples);
    else if (image.sample_type == PANOVAL_MEASURE_U16)
        convert<std::uint16_t>(bytes, count, samples);
    else
        convert<float>(bytes, count, samples);
}

} // namespace

std::int32_t check_image(const PanovalMeasureImage* image) noexcept
{
    if (image == nullptr)
        return PANOVAL_MEASURE_NULL_ARGUMENT;
    if (image->width < 1 || image->height < 1)
        return PANOVAL_MEASURE_BAD_IMAGE;
    const std::size_t size = sample_size(image->sample_type);
    if (size == 0)
        return PANOVAL_MEASURE_BAD_SAMPLE_TYPE;
    if (image->data == nullptr)
        return PANOVAL_MEASURE_NULL_ARGUMENT;
    if (image->stride < static_cast<std::int64_t>(size) * image->width)
        return PANOVAL_MEASURE_BAD_IMAGE;
    return PANOVAL_MEASURE_OK;
}

std::size_t sample_size(std::int32_t sample_type) noexcept
{
    switch (sample_type) {
    case PANOVAL_MEASURE_U8:
        return 1;
    case PANOVAL_MEASURE_U16:
        return 2;
    case PANOVAL_MEASURE_F32:
        return 4;
    default:
        return 0;
    }
}

double highest_sample(std::int32_t sample_type) noexcept
{
    switch (sample_type) {
    case PANOVAL_MEASURE_U8:
        return 255;
    case PANOVAL_MEASURE_U16:
        return 65535;
    default:
        return 0;
    }
}

void read_samples(const PanovalMeasureImage& image, std::int32_t x, std::int32_t y, std::int32_t count,
                  double* samples) noexcept
{
    read_row(image, x, y, count, samples);
}

void read_samples(const PanovalMeasureImage& image, std::int32_t x, std::int32_t y, std::int32_t count,
                  float* samples) noexcept
{
    read_row(image, x, y, count, samples);
}

} // namespace panoval::measure
