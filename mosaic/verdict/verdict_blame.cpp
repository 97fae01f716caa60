// SPDX-License-Identifier: MIT
// A set of misfits costs something for each of them, for each overlap that does not fit but has no misfit, and for each
// that fits though it has one. The cheapest set is looked for step by step: pictures alone, and whole groups that fit
// each other.
#include "mosaic/verdict/verdict_blame.h"

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace panoval::mosaic
{

namespace
{

constexpr double kOfEach = 0.3;      // for each misfit
constexpr double kFitsAnyhow = 0.75; // for an overlap of a misfit that fits
constexpr double kNotTheSuspect = 0.5;

class Court
{
public:
    Court(std::size_t pictures, const std::vector<Evidence>& evidence)
        : evidence_(evidence), of_picture_(pictures), is_misfit_(pictures)
    {
        for (std::size_t i = 0; i < evidence.size(); ++i) {
            of_picture_[evidence[i].first].push_back(i);
            of_picture_[evidence[i].second].push_back(i);
        }
    }

    std::size_t pictures() const { return of_picture_.size(); }
    bool is_misfit(std::size_t picture) const { return is_misfit_[picture] != 0; }

    // By how much the costs grow when these pictures change sides.
    double change(const std::vector<std::size_t>& changing)
    {
        const std::vector<std::size_t> touched = touched_by(changing);
        double difference = -cost_of(touched);
        for (const std::size_t picture : changing)
            difference += is_misfit_[picture] != 0 ? -kOfEach : kOfEach;
        flip(changing);
        difference += cost_of(touched);
        flip(changing);
        return difference;
    }

    void flip(const std::vector<std::size_t>& changing)
    {
        for (const std::size_t picture : changing)
            is_misfit_[picture] ^= 1;
    }

    // Pictures that hang together with this one by overlaps that fit.
    std::vector<std::size_t> friends_of(std::size_t picture) const
    {
        std::vector<std::uint8_t> seen(pictures());
        std::vector<std::size_t> found{picture};
        seen[picture] = 1;
        for (std::size_t k = 0; k < found.size(); ++k)
            for (const std::size_t i : of_picture_[found[k]]) {
                const Evidence& e = evidence_[i];
                const std::size_t other = e.first == found[k] ? e.second : e.first;
                if (e.in_favour > e.against && e.in_favour > 0.3 && seen[other] == 0) {
                    seen[other] = 1;
                    found.push_back(other);
                }
            }
        std::sort(found.begin(), found.end());
        return found;
    }

    // The other picture of an overlap that does not fit, where it would explain everything just as well.
    std::optional<std::size_t> equally_suspect(std::size_t misfit)
    {
        for (const std::size_t i : of_picture_[misfit]) {
            const Evidence& e = evidence_[i];
            const std::size_t other = e.first == misfit ? e.second : e.first;
            if (e.against > 0 && is_misfit_[other] == 0 && change({misfit, other}) < 0.02)
                return other;
        }
        return std::nullopt;
    }

private:
    std::vector<std::size_t> touched_by(const std::vector<std::size_t>& changing) const
    {
        std::vector<std::size_t> touched;
        for (const std::size_t picture : changing)
            touched.insert(touched.end(), of_picture_[picture].begin(), of_picture_[picture].end());
        std::sort(touched.begin(), touched.end());
        touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
        return touched;
    }

    double cost_of(const std::vector<std::size_t>& touched) const
    {
        double cost = 0;
        for (const std::size_t i : touched) {
            const Evidence& e = evidence_[i];
            const bool first = is_misfit_[e.first] != 0;
            const bool second = is_misfit_[e.second] != 0;
            if (!first && !second)
                cost += e.against;
            else if (first != second) {
                cost += kFitsAnyhow * e.in_favour;
                if (e.suspect && *e.suspect != (first ? e.first : e.second))
                    cost += kNotTheSuspect * e.against;
            }
        }
        return cost;
    }

    const std::vector<Evidence>& evidence_;
    std::vector<std::vector<std::size_t>> of_picture_;
    std::vector<std::uint8_t> is_misfit_;
};

// Groups that fit each other, but for the largest one. There is a picture at least.
std::vector<std::vector<std::size_t>> smaller_groups(const Court& court)
{
    std::vector<std::uint8_t> seen(court.pictures());
    std::vector<std::vector<std::size_t>> groups;
    for (std::size_t picture = 0; picture < court.pictures(); ++picture) {
        if (seen[picture] != 0)
            continue;
        groups.push_back(court.friends_of(picture));
        for (const std::size_t member : groups.back())
            seen[member] = 1;
    }
    groups.erase(std::max_element(groups.begin(), groups.end(),
                                  [](const auto& a, const auto& b) { return a.size() < b.size(); }));
    std::erase_if(groups, [](const auto& group) { return group.size() < 2; });
    return groups;
}

void settle(Court& court)
{
    constexpr double kWorthIt = -1e-9;
    std::vector<std::vector<std::size_t>> moves = smaller_groups(court);
    for (std::size_t picture = 0; picture < court.pictures(); ++picture)
        moves.push_back({picture});
    const std::size_t most = 2 * court.pictures() + 2;
    for (std::size_t round = 0; round < most; ++round) { // COUNT_EXCL_BRANCH: costs hardly ever fall so often
        double best = kWorthIt;
        const std::vector<std::size_t>* best_move = nullptr;
        for (const std::vector<std::size_t>& move : moves) {
            const double change = court.change(move);
            if (change < best - 1e-9) {
                best = change;
                best_move = &move;
            }
        }
        if (best_move == nullptr)
            return;
        court.flip(*best_move);
    }
}

} // namespace

std::vector<std::size_t> find_misfits(std::size_t pictures, const std::vector<Evidence>& evidence)
{
    if (std::none_of(evidence.begin(), evidence.end(), [](const Evidence& e) { return e.against > 0; }))
        return {};
    Court court(pictures, evidence);
    settle(court);
    std::vector<std::size_t> misfits;
    for (std::size_t picture = 0; picture < pictures; ++picture)
        if (court.is_misfit(picture))
            misfits.push_back(picture);
    if (misfits.size() > 1 && 2 * misfits.size() > pictures)
        return {};
    std::vector<std::size_t> doubtful;
    for (const std::size_t misfit : misfits)
        if (const auto other = court.equally_suspect(misfit))
            doubtful.push_back(*other);
    misfits.insert(misfits.end(), doubtful.begin(), doubtful.end());
    std::sort(misfits.begin(), misfits.end());
    misfits.erase(std::unique(misfits.begin(), misfits.end()), misfits.end());
    return misfits;
}

} // namespace panoval::mosaic
