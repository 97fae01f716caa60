// SPDX-License-Identifier: MIT
// The panorama's pictures in memory: as many as fit a budget, the others read again when they are needed.
#pragma once

#include "cli/base/image_names.h"
#include "cli/stitch/panorama_plan.h"
#include "image/image.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>

namespace panoval::cli
{

class PictureStore
{
public:
    // Pictures as load_layer gives them with so many bits a sample. The plan must live as long as the store.
    PictureStore(const PanoramaPlan& plan, int bits) : plan_(plan), bits_(bits) {}

    // What all pictures together take.
    std::uint64_t bytes_of_all() const;

    // From the next picture on: the most bytes to hold, and how many of those asked for last to hold in any case.
    void set_budget(std::uint64_t bytes, std::size_t least_pictures);

    // Reads every picture that is missing, several at a time. For a budget that they fit.
    void load_all();

    // What is done to each picture, once, before it is handed out from now on.
    void prepare_with(std::function<void(std::size_t index, Image& image)> prepare);

    // Prepares the pictures that are held, several at a time.
    void prepare_all();

    std::shared_ptr<const Image> get(std::size_t index);

    // Lets go of a picture that is not needed again.
    void drop(std::size_t index);

private:
    struct Entry {
        std::size_t index;
        std::shared_ptr<Image> image;
        bool is_prepared;
    };

    std::uint64_t bytes_of(std::size_t index) const;
    std::list<Entry>::iterator find(std::size_t index);
    void make_room(std::uint64_t bytes);
    void prepare(Entry& entry);

    const PanoramaPlan& plan_;
    int bits_;
    std::uint64_t budget_ = 0;
    std::size_t least_pictures_ = 1;
    std::function<void(std::size_t, Image&)> prepare_;
    std::list<Entry> entries_; // the latest first
};

} // namespace panoval::cli
