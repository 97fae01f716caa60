// SPDX-License-Identifier: MIT
// C++ hosts wrap the records once; every path out of a function, exceptions too, then frees what it held.
#include "panoval.h"
#include "panoval_mosaic.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

class Picture
{
public:
    Picture(int32_t width, int32_t height, int32_t channels)
    {
        MatInit(&mat_);
        MatReset(&mat_, width, height, channels, 1);
        if (mat_.data == nullptr)
            throw std::bad_alloc();
        std::memset(mat_.data, 0, static_cast<std::size_t>(mat_.size));
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    ~Picture() { MatDestroy(&mat_); }
    Mat* operator->() { return &mat_; }
    Mat* get() { return &mat_; }

private:
    Mat mat_;
};

// The containers of one type of sample belong to free.
template <class Container>
struct Freed : Container {
    Freed() : Container{} {}
    Freed(const Freed&) = delete;
    Freed& operator=(const Freed&) = delete;
    ~Freed() { std::free(this->data); }
};

struct DestroyMosaic {
    void operator()(PanovalMosaic* mosaic) const { panoval_mosaic_destroy(mosaic); }
};
using Mosaic = std::unique_ptr<PanovalMosaic, DestroyMosaic>;

Mosaic make_mosaic()
{
    PanovalMosaic* mosaic = nullptr;
    if (panoval_mosaic_create(&mosaic) != PANOVAL_MOSAIC_OK)
        throw std::bad_alloc();
    return Mosaic(mosaic);
}

// Turns a code into an exception with the library's own sentence.
void check(const Mosaic& mosaic, int32_t code)
{
    char text[512];
    panoval_mosaic_error(mosaic.get(), text, sizeof text);
    if (code != PANOVAL_MOSAIC_OK)
        throw std::runtime_error(text);
}

int main()
{
    Picture picture(64, 48, 1);
    Freed<Matb> mask;
    MatbReset(&mask, 64, 48, 1);
    std::memset(mask.data, 255, 64 * 48);
    Picture smooth(64, 48, 1);
    smooth_image(picture->data, 64, 48, smooth->data);
    try {
        const Mosaic mosaic = make_mosaic();
        PanovalMosaicPicture wrong{};
        wrong.width = -1;
        check(mosaic, panoval_mosaic_add_picture(mosaic.get(), &wrong));
    } catch (const std::exception& error) {
        std::printf("caught: %s\n", *error.what() != '\0' ? "a sentence of the library" : "nothing");
    }
    return 0;
}
