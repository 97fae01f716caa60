// SPDX-License-Identifier: MIT
// Containers, PGM files, regions and masks.
#include "tests/bits/bits_records.h"
#include "tests/support/temporary_folder.h"

#include <fstream>
#include <iterator>

namespace panoval::bits
{

namespace
{

void mat_records(Digest& digest)
{
    Image image;
    image.add_to(digest);
    for (const Shape& shape : kShapes)
        for (const int channels : {1, 3, 4})
            for (const int bytes : {1, 2, 4}) {
                MatReset(image.get(), shape.width, shape.height, channels, bytes);
                image.add_to(digest);
                digest.add(image.get()->capacity);
            }
    MatReset(image.get(), 0, 7, 1, 1);
    image.add_to(digest);
}

void mat_to_image(Digest& digest)
{
    for (const Kind kind : kKinds)
        for (const int channels : {1, 2, 3, 4})
            for (const int bytes : {1, 2}) {
                const Image image(kind, 33, 7, channels, bytes, 5);
                std::vector<std::uint8_t> out(33 * 7 * 3, 0x5A);
                digest.add(MatToImage(image.get(), out.data()));
                digest.add(out);
            }
}

template <class Container, void (*Reset)(Container*, std::int32_t, std::int32_t, std::int32_t)>
void typed_record(Digest& digest)
{
    Owned<Container> record;
    for (const Shape& shape : kShapes)
        for (const int channels : {1, 3}) {
            Reset(record.get(), shape.width, shape.height, channels);
            record.add_to(digest);
        }
}

void add_file(Digest& digest, const std::string& name)
{
    std::ifstream file(name, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    digest.add(static_cast<std::uint64_t>(bytes.size()));
    digest.add(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

void pgm_bytes(Digest& digest)
{
    const test::TemporaryFolder folder;
    const std::string name = folder.name("bytes.pgm");
    for (const Kind kind : kKinds)
        for (const Shape& shape : kShapes) {
            write_pgm(picture(kind, shape.width, shape.height, 3).data(), shape.width, shape.height, name.c_str());
            add_file(digest, name);
            std::uint8_t* data = nullptr;
            std::int32_t width = 0;
            std::int32_t height = 0;
            read_pgm(&data, &width, &height, name.c_str());
            digest.add(width);
            digest.add(height);
            digest.add(data, count_of(width, height, 1));
            std::free(data);
        }
}

void pgm_stretched(Digest& digest)
{
    const test::TemporaryFolder folder;
    const std::string name = folder.name("stretched.pgm");
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        Owned<Matf> image;
        MatfReset(image.get(), 29, 13, 1);
        Random random(seed);
        std::vector<std::int16_t> shorts(29 * 13);
        for (std::size_t i = 0; i < shorts.size(); ++i) {
            shorts[i] = static_cast<std::int16_t>(random.integer(-3000, 3000));
            image.get()->data[i] = static_cast<float>(random.real(-1, 900));
        }
        write_pgm_float(image.get()->data, 29, 13, name.c_str());
        add_file(digest, name);
        write_pgm_short(shorts.data(), 29, 13, name.c_str());
        add_file(digest, name);
        write_fpgm(image.get(), name.c_str());
        add_file(digest, name);
    }
}

Point point(Random& random, int reach)
{
    const auto x = static_cast<std::int32_t>(random.integer(-reach, reach));
    return {x, static_cast<std::int32_t>(random.integer(-reach, reach))};
}

void overlaps(Digest& digest)
{
    Random random(1);
    for (int i = 0; i < 5000; ++i) {
        Roi roi = {-1, -2, -3, -4};
        const Point a = point(random, 30);
        const Point b = point(random, 30);
        const Point sizes = point(random, 40);
        digest.add(overlapRoi(a, b, {sizes.x, 20}, {25, sizes.y}, &roi));
        for (const std::int32_t field : {roi.x, roi.y, roi.width, roi.height})
            digest.add(field);
    }
}

void parts(Digest& digest)
{
    Random random(2);
    for (int i = 0; i < 200; ++i) {
        const Point at = point(random, 40);
        const Roi roi = {at.x, at.y, 30, 17};
        const Image whole(Kind::Noise, 40, 31, 1 + i % 4, 1 + i % 2, 9);
        Image part;
        get_sub_image(whole.get(), &roi, part.get());
        part.add_to(digest);
        const auto covered = mask(40, 31, static_cast<std::uint64_t>(i));
        Owned<Matb> part_of_mask;
        get_sub_mask(covered.get(), &roi, part_of_mask.get());
        part_of_mask.add_to(digest);
        Owned<Matb> both;
        digest.add(get_mask_intersect(covered.get(), mask(40, 31, 77).get(), both.get()));
        both.add_to(digest);
    }
}

} // namespace

std::vector<Section> container_sections()
{
    return {{"MatInit MatReset MatDestroy", mat_records},
            {"MatToImage", mat_to_image},
            {"MatbReset", typed_record<Matb, MatbReset>},
            {"MatsReset", typed_record<Mats, MatsReset>},
            {"MatfReset", typed_record<Matf, MatfReset>},
            {"MatiReset", typed_record<Mati, MatiReset>},
            {"MatdReset", typed_record<Matd, MatdReset>},
            {"read_pgm write_pgm", pgm_bytes},
            {"write_pgm_float write_pgm_short write_fpgm", pgm_stretched},
            {"overlapRoi", overlaps},
            {"get_sub_image get_sub_mask get_mask_intersect", parts}};
}

} // namespace panoval::bits
