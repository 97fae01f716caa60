// SPDX-License-Identifier: MIT
// The model: a pixel's light s, of whatever distribution, makes samples of mean s u in the first and s v in the second
// picture, where u / v is the ratio and u^2 + v^2 = 1; each with normal noise whose variance is a constant plus a share
// of its mean, rounded and cut off. (Kiefer and Wolfowitz, Consistency of the maximum likelihood estimator in the
// presence of infinitely many incidental parameters, 1956.) The lights' distribution is found on a grid by steps of
// expectation and maximization, the other five unknowns by Fisher's scoring, in turns. With these u and v a change of
// the ratio moves a pixel's mean at right angles to a change of its light, so that both hardly wait for each other.
#include "mosaic/gains/gain_noise.h"

#include "core/elementary.h"
#include "mosaic/base/small_solve.h"
#include "mosaic/gains/rounded_normal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace panoval::mosaic
{

namespace
{

constexpr std::size_t kSide = SamplePairs::kSide;
constexpr double kStep = 0.5;            // between lights, in samples
constexpr double kLeastVariance = 0.06;  // finer than the grid of lights it cannot be
constexpr double kMostDeviation = 8;     // samples
constexpr double kElsewhere = 1e-7;      // chance of a pair that has nothing to do with the model
constexpr double kFewest = 500;          // samples
constexpr double kMostBright = 0.25;     // share of the samples that are too bright to be modelled
constexpr double kMostUnexplained = 1.5; // standard errors
constexpr double kVagueCut = 0.5;        // of what is cut off at black
constexpr double kMargin = 3;            // standard deviations between the brightest light and the last sample
constexpr int kFirstSteps = 10;
constexpr int kSteps = 4;
constexpr int kRounds = 5;

enum Unknown : std::size_t { kTurn, kFirstConstant, kSecondConstant, kFirstShare, kSecondShare, kUnknowns };
using Unknowns = std::array<double, kUnknowns>;

// One picture of the two.
struct Side {
    double factor = 1;   // of the light
    double constant = 1; // of the variance of its noise
    double share = 0;    //
    std::vector<double> means{};
    std::vector<double> variances{};
    SampleChances chances{kSide};

    void compute(const std::vector<double>& lights, const NormalTable& normal)
    {
        means.clear();
        variances.clear();
        for (const double light : lights) {
            means.push_back(light * factor);
            variances.push_back(constant + share * means.back());
        }
        chances.compute(means, variances, normal);
    }
};

struct Means {
    double first = 0;
    double second = 0;
    double count = 0;

    void add(std::size_t a, std::size_t b, double weight)
    {
        first += weight * static_cast<double>(a);
        second += weight * static_cast<double>(b);
        count += weight;
    }
    bool are_known() const { return first > 0 && second > 0; }
    double log_ratio() const { return log(first / second); }
};

class NoiseModel
{
public:
    NoiseModel(const SamplePairs& pairs, double ratio) : pairs_(pairs) { turn_to(ratio); }

    // False where there is too little that can be modelled.
    bool begin()
    {
        const double deviation = first_deviation();
        if (!(deviation <= kMostDeviation))
            return false;
        const double steepest = std::max(first_.factor, second_.factor);
        brightest_ = (static_cast<double>(kSide) - 1.5 - kMargin * deviation) / steepest;
        take_samples();
        if (samples_.count < kFewest || bright_ > kMostBright * samples_.count || !samples_.are_known())
            return false;
        const double variance = std::max(deviation * deviation, kLeastVariance);
        constexpr double kShare = 0.3; // that grows with the light, to begin with
        for (Side* side : {&first_, &second_}) {
            const double mean = (side == &first_ ? samples_.first : samples_.second) / samples_.count;
            side->constant = std::max((1 - kShare) * variance, kLeastVariance);
            side->share = kShare * variance / mean;
        }
        for (double light = 0.25 * kStep; light < highest_ + 2 * deviation + 1; light += kStep)
            lights_.push_back(light);
        share_of_light_.assign(lights_.size(), 1 / static_cast<double>(lights_.size()));
        return true;
    }

    void fit()
    {
        for (int round = 0; round <= kRounds; ++round) {
            first_.compute(lights_, normal_);
            second_.compute(lights_, normal_);
            for (int step = 0; step < (round == 0 ? kFirstSteps : kSteps); ++step)
                improve_lights();
            score();
            if (round < kRounds)
                improve_unknowns();
        }
    }

    NoisyRatio result() const
    {
        const double log_ratio = log(first_.factor / second_.factor);
        const double turn = equations_.solve(Unknowns{1})[kTurn]; // variance
        return {log_ratio, std::sqrt(std::max(turn, 0.0)) / (first_.factor * second_.factor), modelled_.log_ratio()};
    }

    // What the samples' sums say must be what the model says of them.
    bool explains_sums() const
    {
        if (!modelled_.are_known()) // COUNT_EXCL_BRANCH: as below
            return false;           // COUNT_EXCL: lights of the model's that make no samples, though it began with some
        const auto relative = [&](const Side& side, double sum) {
            constexpr double kRounding = 1.0 / 12;
            const double mean = sum / samples_.count;
            return (side.constant + side.share * mean + kRounding) / (mean * mean);
        };
        const double error =
            std::sqrt((relative(first_, samples_.first) + relative(second_, samples_.second)) / samples_.count);
        // The lights' distribution is not found to the end, which matters where much is cut off.
        const double cut_off = std::fabs(modelled_.log_ratio() - log(first_.factor / second_.factor));
        return std::fabs(samples_.log_ratio() - modelled_.log_ratio()) <=
               kMostUnexplained * error + kVagueCut * cut_off;
    }

private:
    void turn_to(double ratio)
    {
        const double length = std::sqrt(1 + ratio * ratio);
        first_.factor = ratio / length;
        second_.factor = 1 / length;
    }

    // From how far the pairs lie off the line, but those that lie very far.
    double first_deviation() const
    {
        double limit = 1e9;
        double variance = 0;
        for (int round = 0; round < 4; ++round) {
            double sum = 0;
            double count = 0;
            for (std::size_t i = 1; i < pairs_.count.size(); ++i) {
                const std::size_t in_first = i / kSide;
                const std::size_t in_second = i % kSide;
                const double off =
                    static_cast<double>(in_first) * second_.factor - static_cast<double>(in_second) * first_.factor;
                if (pairs_.count[i] == 0 || off * off > limit)
                    continue;
                sum += pairs_.count[i] * off * off;
                count += pairs_.count[i];
            }
            variance = count > 0 ? sum / count : 0.0;
            limit = 12 * variance;
        }
        return std::sqrt(variance);
    }

    // A limit across the line of lights: what is beyond it on the one side misses the same on the other.
    bool is_used(std::size_t a, std::size_t b) const
    {
        return static_cast<double>(a) * first_cut_ + static_cast<double>(b) * second_cut_ <= brightest_;
    }

    void take_samples()
    {
        first_cut_ = first_.factor;
        second_cut_ = second_.factor;
        for (std::size_t a = 0; a < kSide; ++a)
            for (std::size_t b = 0; b < kSide; ++b) {
                const double count = pairs_.count[a * kSide + b];
                if (count <= 0)
                    continue;
                if (!is_used(a, b)) {
                    bright_ += count;
                    continue;
                }
                counts_[a * kSide + b] = count;
                samples_.add(a, b, count);
                first_end_ = std::max(first_end_, a + 1);
                second_end_ = std::max(second_end_, b + 1);
                highest_ =
                    std::max(highest_, static_cast<double>(a) * first_cut_ + static_cast<double>(b) * second_cut_);
            }
    }

    void predict()
    {
        std::fill(chances_.begin(), chances_.end(), kElsewhere);
        for (std::size_t k = 0; k < lights_.size(); ++k) {
            const double* const first = first_.chances.chance(k);
            const double* const second = second_.chances.chance(k);
            const std::size_t end = std::min(second_.chances.end(k), second_end_);
            for (std::size_t a = first_.chances.begin(k); a < std::min(first_.chances.end(k), first_end_); ++a) {
                const double weight = share_of_light_[k] * first[a];
                double* const row = chances_.data() + a * kSide;
                for (std::size_t b = second_.chances.begin(k); b < end; ++b)
                    row[b] += weight * second[b];
            }
        }
    }

    void improve_lights()
    {
        predict();
        for (std::size_t a = 0; a < first_end_; ++a)
            for (std::size_t b = 0; b < second_end_; ++b)
                excess_[a * kSide + b] = counts_[a * kSide + b] / chances_[a * kSide + b];
        for (std::size_t k = 0; k < lights_.size(); ++k)
            share_of_light_[k] *= excess_of_light(k) / samples_.count;
    }

    double excess_of_light(std::size_t k) const
    {
        const double* const first = first_.chances.chance(k);
        const double* const second = second_.chances.chance(k);
        const std::size_t begin = second_.chances.begin(k);
        const std::size_t end = std::min(second_.chances.end(k), second_end_);
        std::array<double, kSide> column{};
        for (std::size_t a = first_.chances.begin(k); a < std::min(first_.chances.end(k), first_end_); ++a)
            for (std::size_t b = begin; b < end; ++b)
                column[b] += first[a] * excess_[a * kSide + b];
        double sum = 0;
        for (std::size_t b = begin; b < end; ++b)
            sum += column[b] * second[b];
        return sum;
    }

    // The chances of all pairs and their derivatives; from these the equations.
    void score()
    {
        predict();
        for (auto& slopes : slopes_)
            slopes.fill(0);
        for (std::size_t k = 0; k < lights_.size(); ++k)
            add_slopes(k);
        equations_ = {};
        modelled_ = {};
        for (std::size_t a = 0; a < first_end_; ++a)
            for (std::size_t b = 0; b < second_end_; ++b)
                if (is_used(a, b))
                    add_equation(a, b);
    }

    void add_slopes(std::size_t k)
    {
        const double* const first = first_.chances.chance(k);
        const double* const second = second_.chances.chance(k);
        const double* const first_by_variance = first_.chances.by_variance(k);
        const double* const second_by_variance = second_.chances.by_variance(k);
        const double* const second_by_mean = second_.chances.by_mean(k);
        const std::size_t begin = second_.chances.begin(k);
        const std::size_t end = std::min(second_.chances.end(k), second_end_);
        const double along_first = share_of_light_[k] * second_.means[k]; // a turn moves the means by that
        const double along_second = -share_of_light_[k] * first_.means[k];
        for (std::size_t a = first_.chances.begin(k); a < std::min(first_.chances.end(k), first_end_); ++a) {
            const double turned = along_first * (first_.chances.by_mean(k)[a] + first_.share * first_by_variance[a]);
            const double noisier = share_of_light_[k] * first_by_variance[a];
            const double itself = share_of_light_[k] * first[a];
            const double across = along_second * first[a];
            const std::size_t row = a * kSide;
            for (std::size_t b = begin; b < end; ++b) {
                const double by_variance = itself * second_by_variance[b];
                slopes_[kTurn][row + b] +=
                    turned * second[b] + across * (second_by_mean[b] + second_.share * second_by_variance[b]);
                slopes_[kFirstConstant][row + b] += noisier * second[b];
                slopes_[kFirstShare][row + b] += noisier * first_.means[k] * second[b];
                slopes_[kSecondConstant][row + b] += by_variance;
                slopes_[kSecondShare][row + b] += by_variance * second_.means[k];
            }
        }
    }

    void add_equation(std::size_t a, std::size_t b)
    {
        const std::size_t at = a * kSide + b;
        modelled_.add(a, b, chances_[at] - kElsewhere);
        Unknowns slopes{};
        for (std::size_t i = 0; i < kUnknowns; ++i)
            slopes[i] = slopes_[i][at] / chances_[at];
        equations_.add(slopes, 0, chances_[at] * samples_.count);
        for (std::size_t i = 0; i < kUnknowns; ++i)
            equations_.right[i] += slopes[i] * counts_[at];
    }

    void improve_unknowns()
    {
        constexpr double kLargestTurn = 0.1;
        NormalEquations<kUnknowns> damped = equations_;
        for (std::size_t i = 0; i < kUnknowns; ++i)
            damped.add_prior(i, 1e-4 * equations_.matrix[i][i]);
        const Unknowns step = damped.solve();
        // A turn by an angle changes the ratio's logarithm by that over u v.
        const double turn = std::clamp(step[kTurn], -kLargestTurn, kLargestTurn);
        const double change = turn / (first_.factor * second_.factor);
        turn_to(first_.factor / second_.factor * exp(std::clamp(change, -0.5, 0.5)));
        const auto improve = [](Side& side, double constant, double share) {
            side.constant = std::clamp(side.constant + constant, std::max(kLeastVariance, 0.4 * side.constant),
                                       2.5 * side.constant);
            side.share = std::clamp(side.share + share, 0.0, 2.5 * side.share + 0.1);
        };
        improve(first_, step[kFirstConstant], step[kFirstShare]);
        improve(second_, step[kSecondConstant], step[kSecondShare]);
    }

    using Table = std::array<double, kSide * kSide>; // [first * kSide + second]

    const SamplePairs& pairs_;
    NormalTable normal_;
    Side first_;
    Side second_;
    double first_cut_ = 0;
    double second_cut_ = 0;
    double brightest_ = 0; // light that counts
    double highest_ = 0;   // that occurs
    double bright_ = 0;    // number of samples beyond
    Means samples_;
    Means modelled_;
    std::size_t first_end_ = 0; // larger samples do not occur
    std::size_t second_end_ = 0;
    Table counts_{};
    Table chances_{};
    Table excess_{};
    std::array<Table, kUnknowns> slopes_{};
    std::vector<double> lights_;
    std::vector<double> share_of_light_;
    NormalEquations<kUnknowns> equations_;
};

} // namespace

std::optional<NoisyRatio> find_noisy_ratio(const SamplePairs& pairs, double log_ratio)
{
    const auto model = std::make_unique<NoiseModel>(pairs, exp(log_ratio));
    if (!model->begin())
        return std::nullopt;
    model->fit();
    if (!model->explains_sums())
        return std::nullopt;
    return model->result();
}

} // namespace panoval::mosaic
