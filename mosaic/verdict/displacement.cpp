// SPDX-License-Identifier: MIT
// The vote. Blocks whose displacements agree within their uncertainty form a party; the heaviest one wins, and the
// others count against its confidence, as do blocks that show something which the other picture has nowhere.
#include "mosaic/verdict/displacement.h"

#include <algorithm>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr double kFinest = 0.05; // pixels: no block is believed to be more exact
constexpr double kTelling = 4;   // times chance: what a correlation must lack to be noticed
constexpr double kLoose = 0.3;   // pixels by which blocks of one displacement may differ beyond their uncertainty

struct Voter {
    double x = 0; // pixels
    double y = 0;
    double weight = 0; // 0 to 1
    Information information;
    Information loose; // the same, for comparing voters with each other
    Information exact; // and for their mean, in which reduced copies count less

    double length() const { return std::sqrt(x * x + y * y); }
    // 0 where that may as well be none.
    double certain_length() const
    {
        constexpr double kCertain = 9; // three standard deviations, squared
        return information.distance(x, y) > kCertain ? length() : 0;
    }
};

// What is left of it after an error of that covariance.
Information blur(const Information& information, Information covariance)
{
    Information sharp = information;
    sharp.xx += 1e-4; // nothing is known: 100 pixels
    sharp.yy += 1e-4;
    covariance.add(sharp.inverse());
    return covariance.inverse();
}

Information soften(const Information& information, double by)
{
    return blur(information, {by * by, 0, by * by});
}

// Rounding, coding and light that changed leave errors that go together with the slopes of a soft scene, however many
// pixels it has. Where slopes are that gentle they say nothing about places.
double believed_slopes(const BlockShift& block)
{
    constexpr double kGentle = 0.02; // levels squared / pixel^2, of prepared patches
    constexpr double kClear = 0.06;  // likewise: 1 pixel changes a quarter of a level
    const double slopes = (block.fit.gradients.xx + block.fit.gradients.yy) / (block.step * block.step);
    return std::clamp((slopes - kGentle) / (kClear - kGentle), 0.0, 1.0);
}

// How far what uneven light leaves in a block moves it, as a covariance in pixels squared: its errors go together with
// the slopes however many pixels there are.
Information moved_by_light(const BlockShift& block, double unevenness)
{
    constexpr double kLeft = 0.03; // of the unevenness: light multiplies, and a smooth surface was subtracted
    constexpr double kFlat = 1e-6; // levels squared / pixel^2
    Information slopes{kFlat, 0, kFlat};
    slopes.add(block.fit.gradients, 1 / (block.step * block.step));
    Information covariance;
    if (slopes.weaker() > 0)
        covariance.add(slopes.inverse(), kLeft * unevenness * kLeft * unevenness);
    return covariance;
}

Voter make_voter(const BlockShift& block, double unevenness)
{
    Voter voter;
    voter.x = block.fit.x * block.step;
    voter.y = block.fit.y * block.step;
    Information information;
    information.add(block.fit.information, believed_slopes(block) / (block.step * block.step));
    if (information.weaker() < 0) // gradients that do not go together say nothing
        information = {};
    const double stronger = information.xx + information.yy - information.weaker();
    voter.weight = stronger / (stronger + 1 / (kLoose * kLoose)); // it shows places, wherever light moves them
    information = blur(information, moved_by_light(block, unevenness));
    voter.information = soften(information, kFinest);
    voter.loose = soften(information, kLoose);
    voter.exact = soften(information, 2 * kFinest * block.step);
    return voter;
}

struct Party {
    double weight = 0;
    double x = 0;
    double y = 0;
    Information information;
};

bool agree(const Voter& a, const Voter& b)
{
    constexpr double kWithin = 9; // three standard deviations, squared
    return std::min(a.loose.distance(a.x - b.x, a.y - b.y), b.loose.distance(a.x - b.x, a.y - b.y)) < kWithin;
}

Party party_of(const Voter& leader, const std::vector<Voter>& voters)
{
    constexpr double kNowhere = 1.0 / 64; // directions of which nothing is known are taken to be right: 8 pixels
    Party party;
    Information sum{kNowhere, 0, kNowhere};
    double right = 0;
    double down = 0;
    for (const Voter& voter : voters)
        if (agree(leader, voter)) {
            party.weight += voter.weight;
            party.information.add(voter.information);
            sum.add(voter.exact);
            right += voter.exact.xx * voter.x + voter.exact.xy * voter.y;
            down += voter.exact.xy * voter.x + voter.exact.yy * voter.y;
        }
    const Information inverse = sum.inverse();
    party.x = inverse.xx * right + inverse.xy * down;
    party.y = inverse.xy * right + inverse.yy * down;
    return party;
}

// total: of their weights
double median_length(std::vector<Voter> voters, double total)
{
    std::stable_sort(voters.begin(), voters.end(),
                     [](const Voter& a, const Voter& b) { return a.certain_length() < b.certain_length(); });
    std::size_t middle = 0;
    for (double sum = voters[middle].weight; 2 * sum < total; sum += voters[middle].weight)
        ++middle;
    return voters[middle].certain_length();
}

// The variance of what is seen beyond noise, of both patches.
struct Seen {
    double first;
    double second;
};

Seen seen_in(const BlockShift& block, const KnownNoise& noise)
{
    constexpr double kFineDetail = 2; // at most so much of what is seen is too fine to be certain of
    const auto beyond = [&](double variance, double own_noise, double known_noise, double certain) {
        // Means over cells have less of it.
        const double noise_left =
            block.step > 1 ? known_noise / (block.step * block.step) : std::min(own_noise, known_noise);
        const double clean = variance - std::min(noise_left, variance);
        return std::max(0.0, certain < 0 ? clean : std::min(clean, kFineDetail * certain));
    };
    return {beyond(block.fit.variance_first, block.noise_first, noise.first, block.seen_first),
            beyond(block.fit.variance_second, block.noise_second, noise.second, block.seen_second)};
}

// Of brightness, without the darkest and brightest sixth: something small that moved has no say.
double spread_of(const Patch& patch)
{
    constexpr std::size_t kMost = 4096;                                                  // cells to look at
    const std::size_t stride = std::max<std::size_t>(1, patch.value.size() / kMost) | 1; // odd: no grid is met
    std::vector<float> values;
    for (std::size_t i = 0; i < patch.value.size(); i += stride)
        if (patch.known[i] != 0)
            values.push_back(patch.value[i]);
    if (values.size() < 6)
        return 0;
    const auto sixth = static_cast<std::ptrdiff_t>(values.size() / 6);
    std::nth_element(values.begin(), values.begin() + sixth, values.end());
    const float low = values[static_cast<std::size_t>(sixth)];
    std::nth_element(values.begin(), values.end() - 1 - sixth, values.end());
    return static_cast<double>(*(values.end() - 1 - sixth) - low);
}

// Whether one side has nothing where the other one shows something clearly.
bool is_empty_beside(double seen, double noise, double other_seen, double other_noise)
{
    constexpr double kClearly = 4;    // times the noise
    constexpr double kVisible = 0.25; // levels squared
    constexpr double kNothing = 0.02; // of what the other one shows
    return other_seen > std::max(kVisible, kClearly * other_noise) && seen < kNothing * other_seen + 0.25 * noise;
}

Emptiness emptiness(double spread, double other_spread)
{
    constexpr double kHardly = 0.2;
    constexpr double kVisible = 1; // level
    return other_spread > kVisible && spread < kHardly * other_spread ? Emptiness::Possible : Emptiness::No;
}

bool has_one_value(const Patch& patch)
{
    constexpr float kSame = 0.25f; // level
    float low = 1e9f;
    float high = -1e9f;
    for (std::size_t i = 0; i < patch.value.size(); ++i)
        if (patch.known[i] != 0) {
            low = std::min(low, patch.value[i]);
            high = std::max(high, patch.value[i]);
            if (high - low > kSame)
                return false;
        }
    return true;
}

// Whether most cells differ though samples at the end of their range would not explain it, as they do a sky that is
// white in one picture only.
bool differ_beyond_range(const OverlapCells& cells)
{
    constexpr double kVisible = 1; // level
    std::size_t differing = 0;
    std::size_t known = 0;
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        if (cells.known[i] == 0)
            continue;
        double most = 0;
        for (std::size_t c = 0; c < cells.channels; ++c)
            most = std::max(most, std::fabs(cells.difference(i, c)));
        ++known;
        differing += most > kVisible ? 1 : 0;
    }
    return 2 * differing > known;
}

} // namespace

bool is_coding_alone(const BlockShift& block)
{
    constexpr double kFaint = 3;     // levels squared
    constexpr double kTheSame = 0.9; // correlation that squares which begin elsewhere in each picture do not reach
    return block.is_coded && block.fit.correlation < kTheSame &&
           std::min(block.fit.variance_first, block.fit.variance_second) < kFaint;
}

EmptySides find_empty(const OverlapCells& cells)
{
    const Patch first = brightness_of_cells(cells, false);
    const Patch second = brightness_of_cells(cells, true);
    const double in_first = spread_of(first);
    const double in_second = spread_of(second);
    EmptySides sides{emptiness(in_first, in_second), emptiness(in_second, in_first)};
    const auto look_at = [&](const Patch& patch, const Patch& other, Emptiness& side) {
        if (!has_one_value(patch))
            return;
        if (side == Emptiness::Possible && differ_beyond_range(cells))
            side = Emptiness::Certain;
        else if (!has_one_value(other)) // as of a few stars, most of which the spread leaves out
            side = Emptiness::Possible;
    };
    look_at(first, second, sides.first);
    look_at(second, first, sides.second);
    return sides;
}

namespace
{

// What nobody would miss is not said to be missing: levels squared, of prepared patches. Where the whole overlap fits,
// coding may have left more of the fine detail out.
double plain_variance(const std::vector<BlockShift>& blocks, const KnownNoise& noise)
{
    constexpr double kPlain = 0.5;
    constexpr double kCoded = 2.5;
    constexpr double kOfNoise = 0.1;
    constexpr double kFits = 0.8; // correlation
    constexpr double kNear = 1.5; // pixels
    for (const BlockShift& block : blocks)
        if (block.step > 1 && is_matched(block) && block.fit.correlation > kFits &&
            std::max(std::fabs(block.fit.x), std::fabs(block.fit.y)) * block.step < kNear)
            return kCoded + kOfNoise * std::max(noise.first, noise.second);
    return kPlain + kOfNoise * std::max(noise.first, noise.second);
}

// What all blocks say together.
struct Poll {
    std::vector<Voter> voters;
    double matched = 0;    // weight of the voters
    double mismatched = 0; // blocks that are found nowhere
    double textured = 0;   // blocks that show anything
    double empty_first = 0;
    double empty_second = 0;
};

void count_empty(const BlockShift& block, const KnownNoise& noise, const Seen& seen, double expected, Poll& poll)
{
    const bool is_empty_first = is_empty_beside(seen.first, noise.first, seen.second, noise.second);
    const bool is_empty_second = is_empty_beside(seen.second, noise.second, seen.first, noise.first);
    poll.textured += is_empty_first || is_empty_second || expected > kTelling * block.chance ? 1 : 0;
    poll.empty_first += is_empty_first ? 1 : 0;
    poll.empty_second += is_empty_second ? 1 : 0;
}

// Whether most of what the block shows differs at the best place that was found. Lines of text and rows of windows go
// together somewhere, wherever they come from, and by chance as well as they do there.
bool differs_by_area(const BlockShift& block, double expected)
{
    constexpr double kFewest = 6;       // squares
    constexpr double kOfExpected = 0.6; // correlation
    constexpr double kClear = 0.5;      // expected correlation: squares of what is mostly noise differ, too
    return block.step <= 1 && expected > kClear && block.strange >= std::max(kFewest, block.agreeing) &&
           (is_of_a_part(block) || block.fit.correlation < kOfExpected * expected);
}

// strange  what the block counts where it shows something that is found nowhere
void ask(const BlockShift& block, const KnownNoise& noise, double unevenness, double plain, double strange, Poll& poll)
{
    constexpr double kVisible = 0.25; // levels squared, of prepared patches: less has no say; coding may be all of it
    constexpr double kOfExpected = 0.3;
    constexpr double kOfNoise = 0.08; // of as little as that chance alone may make some
    const Seen seen = seen_in(block, noise);
    const double seen_in_both = std::min(seen.first, seen.second);
    const double variances = block.fit.variance_first * block.fit.variance_second;
    const double expected = variances > 0 ? std::sqrt(seen.first * seen.second / variances) : 0;
    const bool is_unlike = expected - std::max(block.fit.correlation, 0.0) > kTelling * chance_at(block);
    const bool is_telling = (is_unlike || differs_by_area(block, expected)) && seen_in_both > plain;
    if (is_matched(block) && block.fit.correlation > kOfExpected * expected &&
        std::min(block.fit.variance_first, block.fit.variance_second) > kVisible &&
        seen_in_both > kOfNoise * std::max(noise.first, noise.second)) {
        poll.voters.push_back(make_voter(block, unevenness));
        poll.matched += poll.voters.back().weight;
    } else if (is_telling && block.strange >= block.agreeing) {
        poll.mismatched += strange;
    }
    count_empty(block, noise, seen, expected, poll);
}

Poll ask_all(const std::vector<BlockShift>& blocks, const KnownNoise& noise, double unevenness)
{
    const double plain = plain_variance(blocks, noise);
    Poll poll;
    for (const BlockShift& block : blocks)
        if (block.fit.is_valid && !is_coding_alone(block)) // reduced, what moved reaches farther
            ask(block, noise, unevenness, plain, block.step > 1 && blocks.size() > 2 ? 0.5 : 1, poll);
    return poll;
}

// false: the first picture, true: the second.
std::optional<bool> empty_side(const Poll& poll, const EmptySides& sides)
{
    const auto is_empty = [&](Emptiness side, double blocks) {
        return side == Emptiness::Certain || (side == Emptiness::Possible && blocks > 0.6 * poll.textured);
    };
    if (is_empty(sides.first, poll.empty_first))
        return false;
    if (is_empty(sides.second, poll.empty_second))
        return true;
    return std::nullopt;
}

Party heaviest_party(const std::vector<Voter>& voters)
{
    Party winner;
    for (const Voter& voter : voters) {
        const Party party = party_of(voter, voters);
        if (party.weight > winner.weight)
            winner = party;
    }
    return winner;
}

void tell_displacement(const Poll& poll, const Party& winner, ShiftVote& result)
{
    constexpr double kUncertain = 0.25; // pixels: halves the confidence
    constexpr double kLeast = 0.3;
    const double length = std::sqrt(winner.x * winner.x + winner.y * winner.y);
    result.displaced_by = 2 * winner.weight > poll.matched ? length : median_length(poll.voters, poll.matched);
    if (length > 0) // a direction of which nothing is known does not make the other one less certain
        result.uncertainty = length / std::sqrt(soften(winner.information, 0.01).distance(winner.x, winner.y));
    const double variance = 1 / std::max(winner.information.weaker(), 1e-9);
    const double total = poll.matched + poll.mismatched;
    const double confidence = winner.weight / total / (1 + variance / (kUncertain * kUncertain));
    if (confidence >= kLeast)
        result.displacement = Displacement{winner.x, winner.y, confidence};
}

} // namespace

ShiftVote vote(const std::vector<BlockShift>& blocks, const KnownNoise& noise, const EmptySides& empty_sides,
               double unevenness)
{
    const Poll poll = ask_all(blocks, noise, unevenness);
    ShiftVote result;
    result.empty = empty_side(poll, empty_sides);
    const double total = poll.matched + poll.mismatched;
    result.weight = total / (total + 0.5);
    if (total <= 0)
        return result;
    result.mismatch = poll.mismatched / total;
    const Party winner = heaviest_party(poll.voters);
    if (winner.weight > 0)
        tell_displacement(poll, winner, result);
    return result;
}

} // namespace panoval::mosaic
