// SPDX-License-Identifier: MIT
// Compares the elementary functions with MPFR, rounded to nearest with the exponents of a double:
//     elementary_check COUNT [FUNCTION]
// COUNT arguments a function, dealt out evenly over its ranges, besides a fixed list: every power of two and its
// neighbours, multiples of pi / 2 and their neighbours, and for pow the results that are exact or exact middles. Prints
// a line a range; ends with 1 if anything differs.
#include "core/elementary.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <mpfr.h>
#include <string>
#include <vector>

namespace
{

// The xorshift generator: the same arguments everywhere.
class Random
{
public:
    std::uint64_t bits()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return state_ * 0x2545F4914F6CDD1Du;
    }

    double within(double low, double high)
    {
        return low + (high - low) * (static_cast<double>(bits() >> 11) * 0x1p-53);
    }

    double whole(double low, double high) { return std::floor(within(low, high + 1)); }

    // Any bit pattern: every exponent alike, infinities and not-a-numbers among them.
    double any() { return std::bit_cast<double>(bits()); }

    double any_positive() { return std::fabs(any()); }

private:
    std::uint64_t state_ = 88172645463325252u;
};

struct Arguments {
    double a;
    double b = 0;
};

using Own = double (*)(double, double);
using Correct = int (*)(mpfr_t, const mpfr_t, const mpfr_t);

struct Range {
    std::string name;
    std::function<Arguments(Random&)> next;
};

struct Function {
    const char* name;
    Own own;
    Correct correct;
    std::vector<Range> ranges;
    std::vector<Arguments> listed;
};

class Comparison
{
public:
    Comparison()
    {
        mpfr_set_default_prec(53);
        mpfr_inits2(53, a_, b_, result_, nullptr);
        mpfr_set_emin(-1073);
        mpfr_set_emax(1024);
    }
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;
    ~Comparison() { mpfr_clears(a_, b_, result_, nullptr); }

    double correct(const Function& function, const Arguments& x)
    {
        mpfr_set_d(a_, x.a, MPFR_RNDN);
        mpfr_set_d(b_, x.b, MPFR_RNDN);
        const int inexact = function.correct(result_, a_, b_);
        mpfr_subnormalize(result_, inexact, MPFR_RNDN);
        return mpfr_get_d(result_, MPFR_RNDN);
    }

    bool agrees(const Function& function, const Arguments& x)
    {
        const double own = function.own(x.a, x.b);
        const double expected = correct(function, x);
        if (std::bit_cast<std::uint64_t>(own) == std::bit_cast<std::uint64_t>(expected) ||
            (std::isnan(own) && std::isnan(expected)))
            return true;
        if (shown_++ < 20)
            std::printf("%s(%a, %a) = %a, expected %a\n", function.name, x.a, x.b, own, expected);
        return false;
    }

private:
    mpfr_t a_;
    mpfr_t b_;
    mpfr_t result_;
    int shown_ = 0;
};

Range uniform(double low, double high)
{
    std::array<char, 64> name = {};
    std::snprintf(name.data(), name.size(), "%g to %g", low, high);
    return {name.data(), [=](Random& random) { return Arguments{random.within(low, high)}; }};
}

Range uniform_pairs(double low_a, double high_a, double low_b, double high_b)
{
    std::array<char, 96> name = {};
    std::snprintf(name.data(), name.size(), "%g to %g with %g to %g", low_a, high_a, low_b, high_b);
    return {name.data(), [=](Random& random) {
                return Arguments{random.within(low_a, high_a), random.within(low_b, high_b)};
            }};
}

Range everything()
{
    return {"every bit pattern", [](Random& random) { return Arguments{random.any(), random.any()}; }};
}

// A double near a multiple of pi / 2, up to so many multiples.
Range near_quarter_turns(double largest)
{
    return {"near multiples of pi / 2", [=](Random& random) {
                const double k = random.whole(-largest, largest);
                const double near = k * 0x1.921fb54442d18p0;
                const double step = static_cast<double>(random.bits() % 17) - 8;
                return Arguments{near + step * 0x1p-52 * near};
            }};
}

// Every power of two and the six doubles next to it, of either sign, and the special ones.
std::vector<double> landmarks()
{
    std::vector<double> values = {0.0, 1.0, std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::max()};
    for (int e = -1074; e <= 1023; ++e)
        for (std::int64_t step = -3; step <= 3; ++step) {
            const auto bits = std::bit_cast<std::int64_t>(std::ldexp(1.0, e)) + step;
            if (bits >= 0)
                values.push_back(std::bit_cast<double>(bits));
        }
    const std::size_t count = values.size();
    for (std::size_t i = 0; i < count; ++i)
        values.push_back(-values[i]);
    return values;
}

std::vector<Arguments> single_landmarks()
{
    std::vector<Arguments> list;
    for (const double value : landmarks())
        list.push_back({value});
    return list;
}

// Pairs of landmarks, thinned out.
std::vector<Arguments> paired_landmarks()
{
    const std::vector<double> values = landmarks();
    std::vector<Arguments> list;
    for (std::size_t i = 0; i < values.size(); i += 7)
        for (std::size_t j = i % 199; j < values.size(); j += 199)
            list.push_back({values[i], values[j]});
    for (std::size_t i = 0; i < values.size(); ++i)
        for (const double other : {0.0, 1.0, -1.0, 2.0, 0.5, 3.0, -1074.0, 53.0})
            list.insert(list.end(), {{values[i], other}, {other, values[i]}});
    return list;
}

// Powers whose result is a double, or just between two.
std::vector<Arguments> exact_powers()
{
    std::vector<Arguments> list = paired_landmarks();
    for (double x = -200; x <= 200; ++x)
        for (double y = -40; y <= 40; ++y)
            list.push_back({x, y});
    for (double e = -1080; e <= 1030; e += 0.25)
        list.insert(list.end(), {{2.0, e}, {16.0, e / 4}, {0.5, e}});
    Random random;
    for (int i = 0; i < 40000; ++i) {
        const double root = random.whole(1, 0x1p26);
        const double odd = random.whole(0x1p26, 0x1p27) + 0.5;
        const double small = random.whole(1, 0x1p13) / 64;
        list.insert(list.end(), {{root * root, 0.5},
                                 {odd, 2.0},
                                 {root, 2.0},
                                 {small * small, 1.5},
                                 {small * small * small * small, 0.75},
                                 {small * small * small * small, -0.25}});
    }
    return list;
}

Function exponential()
{
    return {"exp",
            [](double x, double) { return panoval::exp(x); },
            [](mpfr_t r, const mpfr_t a, const mpfr_t) { return mpfr_exp(r, a, MPFR_RNDN); },
            {uniform(-1, 1), uniform(-40, 0), uniform(-746, 711), uniform(-0x1p-20, 0x1p-20), everything()},
            single_landmarks()};
}

Function logarithm()
{
    return {"log",
            [](double x, double) { return panoval::log(x); },
            [](mpfr_t r, const mpfr_t a, const mpfr_t) { return mpfr_log(r, a, MPFR_RNDN); },
            {uniform(0.5, 2),
             uniform(0.99, 1.01),
             {"whole numbers to 2^31", [](Random& random) { return Arguments{random.whole(1, 0x1p31)}; }},
             {"every positive pattern", [](Random& random) { return Arguments{random.any_positive()}; }}},
            single_landmarks()};
}

Function power()
{
    return {"pow",
            [](double x, double y) { return panoval::pow(x, y); },
            [](mpfr_t r, const mpfr_t a, const mpfr_t b) { return mpfr_pow(r, a, b, MPFR_RNDN); },
            {{"2.71828 to the -40 to 0",
              [](Random& random) {
                  return Arguments{2.71828, random.within(-40, 0)};
              }},
             uniform_pairs(0, 1, 0.1, 3),
             uniform_pairs(0, 100, -150, 150),
             uniform_pairs(0.99, 1.01, -60000, 60000),
             {"floats, squared",
              [](Random& random) {
                  return Arguments{static_cast<double>(static_cast<float>(random.within(1, 2))), 2.0};
              }},
             everything()},
            exact_powers()};
}

std::vector<Range> angles()
{
    return {uniform(-7, 7),         uniform(-1e-6, 1e-6),    uniform(-20000, 20000),
            near_quarter_turns(64), near_quarter_turns(1e9), everything()};
}

Function sine()
{
    return {"sin", [](double x, double) { return panoval::sin(x); },
            [](mpfr_t r, const mpfr_t a, const mpfr_t) { return mpfr_sin(r, a, MPFR_RNDN); }, angles(),
            single_landmarks()};
}

Function cosine()
{
    return {"cos", [](double x, double) { return panoval::cos(x); },
            [](mpfr_t r, const mpfr_t a, const mpfr_t) { return mpfr_cos(r, a, MPFR_RNDN); }, angles(),
            single_landmarks()};
}

Function arctangent()
{
    return {"atan",
            [](double x, double) { return panoval::atan(x); },
            [](mpfr_t r, const mpfr_t a, const mpfr_t) { return mpfr_atan(r, a, MPFR_RNDN); },
            {uniform(-1, 1), uniform(-100, 100), uniform(-1e-6, 1e-6), everything()},
            single_landmarks()};
}

Function arctangent_of_two()
{
    return {"atan2",
            [](double y, double x) { return panoval::atan2(y, x); },
            [](mpfr_t r, const mpfr_t a, const mpfr_t b) { return mpfr_atan2(r, a, b, MPFR_RNDN); },
            {uniform_pairs(-1, 1, -1, 1),
             uniform_pairs(-3000, 3000, -3000, 3000),
             uniform_pairs(-1e-9, 1e-9, -1, 1),
             {"whole numbers",
              [](Random& random) {
                  return Arguments{random.whole(-1000, 1000), random.whole(-1000, 1000)};
              }},
             everything()},
            paired_landmarks()};
}

void report(const char* function, const std::string& range, std::int64_t count, std::int64_t different)
{
    std::printf("%-6s %-36s %10lld arguments, %lld different\n", function, range.c_str(), static_cast<long long>(count),
                static_cast<long long>(different));
    std::fflush(stdout);
}

std::int64_t compare(Comparison& comparison, const Function& function, std::int64_t count)
{
    std::int64_t all = 0;
    std::int64_t different = 0;
    for (const Arguments& x : function.listed)
        different += comparison.agrees(function, x) ? 0 : 1;
    report(function.name, "landmarks", static_cast<std::int64_t>(function.listed.size()), different);
    all += different;
    Random random;
    const std::int64_t each = count / static_cast<std::int64_t>(function.ranges.size());
    for (const Range& range : function.ranges) {
        different = 0;
        for (std::int64_t i = 0; i < each; ++i)
            different += comparison.agrees(function, range.next(random)) ? 0 : 1;
        report(function.name, range.name, each, different);
        all += different;
    }
    return all;
}

} // namespace

int main(int argc, char** argv)
{
    const std::int64_t count = argc > 1 ? std::atoll(argv[1]) : 0;
    if (count <= 0) {
        std::fprintf(stderr, "usage: elementary_check COUNT [FUNCTION]\n");
        return 2;
    }
    Comparison comparison;
    std::int64_t different = 0;
    bool is_known = false;
    for (const Function& function :
         {exponential(), logarithm(), power(), sine(), cosine(), arctangent(), arctangent_of_two()}) {
        if (argc > 2 && std::strcmp(argv[2], function.name) != 0)
            continue;
        is_known = true;
        different += compare(comparison, function, count);
    }
    if (!is_known) {
        std::fprintf(stderr, "elementary_check: no function named %s\n", argv[2]);
        return 2;
    }
    return different == 0 ? 0 : 1;
}
