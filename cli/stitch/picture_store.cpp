// SPDX-License-Identifier: MIT
#include "cli/stitch/picture_store.h"

#include "cli/base/parallel.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace panoval::cli
{

std::uint64_t PictureStore::bytes_of(std::size_t index) const
{
    const std::uint64_t samples =
        static_cast<std::uint64_t>(plan_.channels) * static_cast<std::uint64_t>(bits_ / 8) + 1; // and the mask
    return plan_.layers[index].info.pixels() * samples;
}

std::uint64_t PictureStore::bytes_of_all() const
{
    std::uint64_t bytes = 0;
    for (std::size_t i = 0; i < plan_.layers.size(); ++i)
        bytes += bytes_of(i);
    return bytes;
}

void PictureStore::set_budget(std::uint64_t bytes, std::size_t least_pictures)
{
    budget_ = bytes;
    least_pictures_ = least_pictures;
}

std::list<PictureStore::Entry>::iterator PictureStore::find(std::size_t index)
{
    return std::find_if(entries_.begin(), entries_.end(), [index](const Entry& entry) { return entry.index == index; });
}

void PictureStore::load_all()
{
    std::vector<std::size_t> missing;
    for (std::size_t i = 0; i < plan_.layers.size(); ++i)
        if (find(i) == entries_.end())
            missing.push_back(i);
    std::vector<std::shared_ptr<Image>> images(missing.size());
    run_in_parallel(missing.size(), [&](std::size_t i) {
        images[i] = std::make_shared<Image>(load_layer(plan_.layers[missing[i]], bits_));
    });
    for (std::size_t i = 0; i < missing.size(); ++i)
        entries_.push_front({missing[i], std::move(images[i]), false});
}

void PictureStore::prepare_with(std::function<void(std::size_t, Image&)> prepare)
{
    prepare_ = std::move(prepare);
}

void PictureStore::prepare(Entry& entry)
{
    if (prepare_ && !entry.is_prepared)
        prepare_(entry.index, *entry.image);
    entry.is_prepared = prepare_ != nullptr;
}

void PictureStore::prepare_all()
{
    std::vector<Entry*> entries;
    for (Entry& entry : entries_)
        entries.push_back(&entry);
    run_in_parallel(entries.size(), [&](std::size_t i) { prepare(*entries[i]); });
}

std::shared_ptr<const Image> PictureStore::get(std::size_t index)
{
    const auto found = find(index);
    if (found != entries_.end()) {
        entries_.splice(entries_.begin(), entries_, found);
    } else {
        make_room(bytes_of(index));
        entries_.push_front({index, std::make_shared<Image>(load_layer(plan_.layers[index], bits_)), false});
    }
    prepare(entries_.front());
    return entries_.front().image;
}

void PictureStore::drop(std::size_t index)
{
    const auto found = find(index);
    if (found != entries_.end())
        entries_.erase(found);
}

void PictureStore::make_room(std::uint64_t bytes)
{
    std::uint64_t held = bytes;
    for (const Entry& entry : entries_)
        held += bytes_of(entry.index);
    while (entries_.size() >= least_pictures_ && !entries_.empty() && held > budget_) {
        held -= bytes_of(entries_.back().index);
        entries_.pop_back();
    }
}

} // namespace panoval::cli
