// SPDX-License-Identifier: MIT
// MatReset into the block that the record already owns, against a plain memset of the same bytes.
#include "bench/support/routine.h"
#include "panoval.h"

#include <cstring>
#include <memory>
#include <string>

namespace
{

using namespace panoval::bench;

struct Destroy {
    void operator()(Mat* m) const
    {
        MatDestroy(m);
        delete m;
    }
};

Case make_reset(std::int32_t width, std::int32_t height)
{
    const std::shared_ptr<Mat> m(new Mat, Destroy());
    MatInit(m.get());
    MatReset(m.get(), width, height, 3, 1);
    const auto bytes = static_cast<std::size_t>(m->size);
    Case c;
    c.size = std::to_string(width) + "x" + std::to_string(height);
    c.content = "3 x 8 bit";
    c.pixels = static_cast<double>(width) * height;
    c.fast = [m, width, height] { MatReset(m.get(), width, height, 3, 1); };
    c.twin = [m, bytes] { std::memset(m->data, 0, bytes); };
    return c;
}

void add_reset(std::int32_t width, std::int32_t height)
{
    add_case("MatReset (twin: memset)", [=] { return make_reset(width, height); });
}

const Registration registration([] {
    add_reset(64, 64);
    add_reset(640, 480);
    add_reset(3000, 2000);
});

} // namespace
