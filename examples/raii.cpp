// SPDX-License-Identifier: MIT
// C++ hosts wrap the records once; every path out of a function, exceptions too, then frees what it held.
#include "panoval.h"
#include "panoval_mosaic.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

struct Picture : Mat {
    Picture(int32_t width, int32_t height) : Mat{}
    {
        MatReset(this, width, height, 1, 1);
        if (data == nullptr)
            throw std::bad_alloc();
    }
    Picture(Picture&&) = delete; // and so are the copies
    ~Picture() { MatDestroy(this); }
};

// The containers of one type of sample (Matb to Matd) belong to free.
template <class Container>
struct Freed : Container {
    Freed() : Container{} {}
    Freed(Freed&&) = delete;
    ~Freed() { std::free(this->data); }
};

struct Mosaic : std::unique_ptr<PanovalMosaic, void (*)(PanovalMosaic*)> {
    Mosaic() : unique_ptr(nullptr, panoval_mosaic_destroy)
    {
        PanovalMosaic* mosaic = nullptr;
        if (panoval_mosaic_create(&mosaic) != PANOVAL_MOSAIC_OK)
            throw std::bad_alloc();
        reset(mosaic);
    }
};

int main()
{
    try {
        Picture picture(64, 48), smooth(64, 48);
        std::memset(picture.data, 100, static_cast<std::size_t>(picture.size));
        smooth_image(picture.data, picture.width, picture.height, smooth.data);
        Freed<Matb> mask;
        MatbReset(&mask, 64, 48, 1);
        const Mosaic mosaic;
        PanovalMosaicPicture wrong{};
        wrong.width = -1;
        char text[512];
        if (panoval_mosaic_add_picture(mosaic.get(), &wrong) != PANOVAL_MOSAIC_OK) {
            panoval_mosaic_error(mosaic.get(), text, sizeof text);
            throw std::runtime_error(text);
        }
    } catch (const std::exception& error) {
        std::printf("caught: %s\n", *error.what() != '\0' ? "a sentence of the library" : "nothing");
    }
}
