// SPDX-License-Identifier: MIT
#include "tests/mosaic/verdict/verdict_cases.h"

#include "mosaic/gains/gain_measure.h"
#include "mosaic/seams/seam_find.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace panoval::mosaic::test
{

namespace
{

struct SceneKind {
    const char* name;
    SceneOptions options;
    double noise; // of the camera
    int bits;
    bool shows_nothing; // neither places nor sharpness can be told
    bool is_soft;       // nothing fine: a lack of sharpness cannot be told
};

const std::array<SceneKind, 8> kScenes = {{
    {"town", {3, 0.4, 0.3, 0.6, 60, 1}, 1.0, 8, false, false},
    {"meadow", {3, 0.35, 0.7, 0.3, 5, 1}, 1.5, 8, false, false},
    {"soft", {3, 0.5, 0.03, 0.5, 0, 1}, 0.7, 8, false, true},
    {"fog", {3, 0.6, 0.0, 0.03, 0, 1}, 1.0, 8, true, true},
    {"night", {3, 0.03, 0.5, 0.8, 40, 1}, 0.8, 8, false, false},
    {"grey", {1, 0.4, 0.25, 0.5, 40, 1}, 1.0, 8, false, false},
    {"deep", {3, 0.3, 0.3, 0.5, 40, 1}, 0.3, 16, false, false},
    {"grainy", {3, 0.4, 0.3, 0.6, 60, 1}, 6.0, 8, false, false},
}};

const SceneKind& kind_of(const std::string& scene)
{
    for (const SceneKind& kind : kScenes)
        if (scene == kind.name)
            return kind;
    throw std::invalid_argument("no scene " + scene);
}

// Where pictures lie, and which of them is at fault.
struct Arrangement {
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::vector<Rect> rects;
    std::size_t culprit = 1;
};

Arrangement arrange(bool is_grid, Random& random)
{
    Arrangement made;
    const std::int64_t width = random.integer(220, 320);
    const std::int64_t height = random.integer(200, 280);
    const std::int64_t lap = random.integer(60, 110);
    const std::int64_t columns = is_grid ? 3 : 4;
    const std::int64_t rows = is_grid ? 2 : 1;
    for (std::int64_t row = 0; row < rows; ++row)
        for (std::int64_t column = 0; column < columns; ++column)
            made.rects.push_back({column * (width - lap), row * (height - lap), width, height});
    made.width = made.rects.back().right();
    made.height = made.rects.back().bottom();
    made.culprit = static_cast<std::size_t>(is_grid ? random.integer(0, 5) : random.integer(1, 2));
    return made;
}

void spread_apart(Arrangement& made, std::int64_t from_x, std::int64_t by)
{
    for (Rect& rect : made.rects)
        if (rect.x >= from_x)
            rect.x += by;
    made.width += by;
}

void fill(MemoryPicture& picture, double value)
{
    std::fill(picture.samples.begin(), picture.samples.end(),
              static_cast<std::uint16_t>(value * (picture.bits == 8 ? 255 : 65535)));
}

void invert(MemoryPicture& picture)
{
    for (std::uint16_t& sample : picture.samples)
        sample = static_cast<std::uint16_t>((picture.bits == 8 ? 255 : 65535) - sample);
}

constexpr Expected only_good()
{
    return {true, false, false, {}, true};
}

// A case in the making.
class Maker
{
public:
    Maker(const std::string& scene, const std::string& fault, std::uint64_t seed)
        : kind_(kind_of(scene)), fault_(fault), random_(seed),
          made_(arrange(fault == "swapped" || random_.integer(0, 1) == 1, random_))
    {
        result_.scene = scene;
        result_.fault = fault;
        if (fault == "gap")
            spread_apart(made_, made_.rects[2].x, 120);
        for (const Rect& rect : made_.rects) {
            Cut cut;
            cut.rect = rect;
            cut.bits = kind_.bits;
            cut.noise = kind_.noise;
            cut.seed = random_.next();
            cuts_.push_back(cut);
        }
        expect();
        apply_to_cuts();
        SceneOptions options = kind_.options;
        options.seed = seed;
        scene_ = make_scene(made_.width, made_.height, options);
    }

    VerdictCase make()
    {
        std::vector<MemoryPicture> pictures;
        for (const Cut& cut : cuts_)
            pictures.push_back(take_picture(scene_, cut));
        apply_to_pictures(pictures);
        result_.reader = std::make_shared<MemoryReader>(made_.width, made_.height);
        for (std::size_t i = 0; i < pictures.size(); ++i)
            result_.reader->add(made_.rects[i].x, made_.rects[i].y, std::move(pictures[i]));
        return result_;
    }

private:
    bool is_fault(const char* name) const { return fault_ == name; }
    Cut& culprit() { return cuts_[made_.culprit]; }
    std::size_t other() const { return made_.culprit < 3 ? made_.culprit + 3 : made_.culprit - 3; }

    void expect()
    {
        Expected& expected = result_.expected;
        expected = {false, true, true, {made_.culprit}, true};
        for (const char* harmless : {"none", "noise", "unequal", "dim", "exposures", "coding", "coarse", "masks"})
            if (is_fault(harmless))
                expected = only_good();
        if (is_fault("vignetting"))
            expected = {true, true, false, {}, true};
        if (is_fault("thing") || is_fault("moved"))
            expected = {false, true, false, {}, true};
        if (is_fault("gap"))
            expected = {false, false, true, {}, true};
        if (is_fault("swapped"))
            expected.misfits = {std::min(made_.culprit, other()), std::max(made_.culprit, other())};
        const bool is_about_brightness =
            is_fault("black") || is_fault("blank") || is_fault("white") || is_fault("negative");
        const bool can_be_hidden = fault_.rfind("shift", 0) == 0 || is_fault("swapped") || is_fault("twice") ||
                                   is_fault("turned") || is_fault("gamma") || is_about_brightness;
        if (kind_.shows_nothing && can_be_hidden) // brightness is what gains are for
            expected = {true, true, true, {}, false};
        if (kind_.is_soft && is_fault("blur"))
            expected = {true, true, false, {}, false};
        if (is_fault("gamma") && kind_.options.mean < 0.1) // a dark scene's gamma is a gain
            expected = {true, true, true, expected.misfits, false};
    }

    void apply_to_cuts()
    {
        if (fault_.rfind("shift", 0) == 0) {
            const double by = std::stod(fault_.substr(5));
            const bool is_across = random_.integer(0, 1) == 1;
            result_.shift_x = culprit().shift_x = is_across ? by : 0;
            result_.shift_y = culprit().shift_y = is_across ? 0 : -by;
        } else if (is_fault("thing")) {
            const Rect& rect = culprit().rect;
            const std::int64_t into = made_.rects[1].x - made_.rects[0].x;
            const bool at_left = rect.x > 0;
            result_.thing = {at_left ? rect.x + 18 : rect.x + into + 18, rect.y + random_.integer(20, 90), 24, 90};
            culprit().things.push_back({result_.thing, kind_.options.mean * 1.9});
        } else if (is_fault("moved")) { // from one place of the overlap to another one
            const Rect& rect = culprit().rect;
            const bool at_left = rect.x > 0;
            const std::int64_t x = (at_left ? rect.x : made_.rects[1].x) + 18;
            culprit().things.push_back({{x, rect.y + 5, 24, 90}, kind_.options.mean * 1.9});
            Cut& neighbour = cuts_[at_left ? made_.culprit - 1 : made_.culprit + 1];
            neighbour.things.push_back({{x, rect.y + 105, 24, 90}, kind_.options.mean * 1.9});
        } else if (is_fault("gamma")) {
            culprit().gamma = 0.8;
        } else if (is_fault("blur")) {
            culprit().blur = 2.5;
        }
        for (std::size_t i = 0; i < cuts_.size(); ++i) {
            Cut& cut = cuts_[i];
            if (is_fault("dim")) { // and every other one exposed longer, with noise that black ends
                cut.gain = i % 2 == 1 ? 0.16 : 0.1;
                cut.noise = 1.5;
            }
            if (is_fault("noise"))
                cut.noise = 12;
            if (is_fault("unequal")) // the noise of the pictures
                cut.noise = std::array<double, 4>{0.5, 2, 4, 8}[static_cast<std::size_t>(random_.integer(0, 3))];
            if (is_fault("coding"))
                cut.coding = 6;
            if (is_fault("coarse")) { // what is faint is left out, and blocks begin at other places in each picture
                cut.coding = 10;
                cut.noise = 2;
            }
            if (is_fault("exposures"))
                cut.gain = random_.real(0.75, 1.2);
            if (is_fault("vignetting"))
                cut.falloff.c = {-0.3, 0, 0};
        }
    }

    void apply_to_pictures(std::vector<MemoryPicture>& pictures)
    {
        MemoryPicture& picture = pictures[made_.culprit];
        if (is_fault("swapped"))
            std::swap(picture, pictures[other()]);
        else if (is_fault("twice"))
            picture = pictures[made_.culprit == 0 ? 1 : made_.culprit - 1];
        else if (is_fault("black"))
            fill(picture, 0);
        else if (is_fault("blank"))
            fill(picture, 0.5);
        else if (is_fault("white"))
            fill(picture, 1);
        else if (is_fault("turned"))
            picture.turn();
        else if (is_fault("negative"))
            invert(picture);
        else if (is_fault("masks"))
            for (MemoryPicture& masked : pictures)
                give_ragged_mask(masked, random_.next());
    }

    const SceneKind& kind_;
    std::string fault_;
    Random random_;
    Arrangement made_;
    std::vector<Cut> cuts_;
    Scene scene_;
    VerdictCase result_;
};

} // namespace

std::vector<std::string> verdict_scenes()
{
    std::vector<std::string> names;
    for (const SceneKind& kind : kScenes)
        names.emplace_back(kind.name);
    return names;
}

std::vector<std::string> verdict_faults()
{
    return {"none",    "noise",  "unequal", "dim",    "exposures", "coding", "coarse",  "masks", "vignetting",
            "shift1",  "shift2", "shift3",  "shift6", "thing",     "moved",  "gap",     "gamma", "blur",
            "swapped", "twice",  "black",   "blank",  "white",     "turned", "negative"};
}

VerdictCase make_verdict_case(const std::string& scene, const std::string& fault, std::uint64_t seed)
{
    return Maker(scene, fault, seed).make();
}

Verdict judge_case(const VerdictCase& made)
{
    NoProgress progress;
    MemoryReader& reader = *made.reader;
    const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
    const Corrections corrections =
        solve_gains(reader.layout, overlaps, measure_overlaps(reader.layout, overlaps, reader, {}, progress), {})
            .corrections;
    const SeamMap seams = find_seams(reader.layout, overlaps, corrections, reader, {}, progress);
    return judge_all(reader, overlaps, corrections, seams);
}

Verdict judge_all(MemoryReader& reader, const std::vector<Overlap>& overlaps, const Corrections& corrections,
                  const SeamMap& seams, const VerdictOptions& options)
{
    NoProgress progress;
    OverlapLooks looks(reader.layout, overlaps, corrections, reader, options);
    return judge(looks, seams, progress);
}

bool is_right(const VerdictCase& made, const Verdict& verdict)
{
    const Expected& expected = made.expected;
    const bool word = (verdict.word == Word::Good && expected.may_be_good) ||
                      (verdict.word == Word::Look && expected.may_be_look) ||
                      (verdict.word == Word::Bad && expected.may_be_bad);
    if (!word || (expected.misfits_matter && verdict.misfits != expected.misfits))
        return false;
    if (!expected.misfits_matter && !verdict.misfits.empty() && verdict.misfits != expected.misfits &&
        !expected.misfits.empty())
        return false;
    return true;
}

} // namespace panoval::mosaic::test
