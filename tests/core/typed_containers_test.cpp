// SPDX-License-Identifier: MIT
// The five typed containers: one behaviour, five element types.
#include "panoval.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace
{

using panoval::test::FailingHeap;
using panoval::test::for_each_failing_allocation;

template <class Container, auto Reset, class Element>
struct Kind {
    using Record = Container;
    using Value = Element;
    static void reset(Record* m, std::int32_t width, std::int32_t height, std::int32_t channels)
    {
        Reset(m, width, height, channels);
    }
    static bool is_zero(const Record& m, std::size_t count)
    {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(m.data);
        for (std::size_t i = 0; i < count * sizeof(Element); ++i)
            if (bytes[i] != 0)
                return false;
        return true;
    }
};

using Kinds =
    testing::Types<Kind<Matb, MatbReset, std::uint8_t>, Kind<Mats, MatsReset, std::int16_t>,
                   Kind<Matf, MatfReset, float>, Kind<Mati, MatiReset, std::int32_t>, Kind<Matd, MatdReset, double>>;

template <class K>
class TypedReset : public testing::Test
{
};
TYPED_TEST_SUITE(TypedReset, Kinds);

TYPED_TEST(TypedReset, StoresTheShapeAndClearsEveryElement)
{
    static_assert(std::is_same_v<decltype(TypeParam::Record::data), typename TypeParam::Value*>);
    typename TypeParam::Record m = {};
    TypeParam::reset(&m, 5, 4, 3);
    EXPECT_EQ(m.width, 5);
    EXPECT_EQ(m.height, 4);
    EXPECT_EQ(m.channels, 3);
    EXPECT_TRUE(TypeParam::is_zero(m, 60));
    std::free(m.data);
}

TYPED_TEST(TypedReset, AllocatesTheElementWidthTimesTheCount)
{
    FailingHeap heap;
    typename TypeParam::Record m = {};
    TypeParam::reset(&m, 5, 4, 3);
    EXPECT_EQ(heap.largest(), 60 * sizeof(typename TypeParam::Value));
    std::free(m.data);
}

TYPED_TEST(TypedReset, FormsTheByteCountIn64Bits)
{
    FailingHeap heap(0); // the request is seen, and refused
    typename TypeParam::Record m = {};
    TypeParam::reset(&m, 32768, 32768, 1);
    EXPECT_EQ(heap.largest(), (std::size_t{1} << 30) * sizeof(typename TypeParam::Value));
    EXPECT_EQ(m.data, nullptr);
}

TYPED_TEST(TypedReset, WrapsAnElementCountThatLeaves32Bits)
{
    FailingHeap heap;
    typename TypeParam::Record m = {};
    TypeParam::reset(&m, 65536, 65536, 1);
    EXPECT_EQ(m.width, 65536);
    std::free(m.data);
    m = {};
    TypeParam::reset(&m, 65537, 65536, 1); // 2^32 + 2^16
    EXPECT_EQ(heap.largest(), 65536 * sizeof(typename TypeParam::Value));
    EXPECT_TRUE(TypeParam::is_zero(m, 65536));
    std::free(m.data);
}

TYPED_TEST(TypedReset, ClearsOldContentsForTheSameALargerAndASmallerShape)
{
    typename TypeParam::Record m = {};
    for (const std::int32_t width : {20, 20, 300, 7, 7, 20}) {
        TypeParam::reset(&m, width, 2, 1);
        const std::size_t count = static_cast<std::size_t>(width) * 2;
        EXPECT_TRUE(TypeParam::is_zero(m, count)) << width;
        std::memset(static_cast<void*>(m.data), 0xFF, count * sizeof(typename TypeParam::Value));
    }
    std::free(m.data);
}

TYPED_TEST(TypedReset, NeverKeepsMoreThanOneBlock)
{
    FailingHeap heap;
    typename TypeParam::Record m = {};
    for (const std::int32_t width : {20, 300, 7, 0, 5})
        TypeParam::reset(&m, width, 2, 1);
    EXPECT_EQ(heap.live_blocks(), 1);
    std::free(m.data);
    EXPECT_EQ(heap.live_blocks(), 0);
}

TYPED_TEST(TypedReset, ToNoElementsKeepsTheGivenShapeAndHoldsNoBlock)
{
    for (const std::int32_t height : {0, -3})
        for (const bool is_fresh : {true, false}) {
            FailingHeap heap;
            typename TypeParam::Record m = {};
            if (!is_fresh)
                TypeParam::reset(&m, 6, 6, 1);
            TypeParam::reset(&m, 5, height, 2);
            EXPECT_EQ(m.width, 5);
            EXPECT_EQ(m.height, height);
            EXPECT_EQ(m.channels, 2);
            EXPECT_EQ(m.data, nullptr);
            EXPECT_EQ(heap.live_blocks(), 0);
        }
}

TYPED_TEST(TypedReset, OfTwoNegativeSizesTakesTheirPositiveProduct)
{
    FailingHeap heap;
    typename TypeParam::Record m = {};
    TypeParam::reset(&m, -2, -3, 4);
    EXPECT_EQ(m.width, -2);
    EXPECT_EQ(m.height, -3);
    EXPECT_EQ(heap.largest(), 24 * sizeof(typename TypeParam::Value));
    EXPECT_TRUE(TypeParam::is_zero(m, 24));
    std::free(m.data);
}

TYPED_TEST(TypedReset, WithoutMemoryLeavesTheRecordEmptyAndFreesTheOldBlock)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        typename TypeParam::Record m = {};
        TypeParam::reset(&m, 2, 2, 1);
        TypeParam::reset(&m, 30, 30, 1);
        if (m.data == nullptr) {
            EXPECT_EQ(m.width, 0);
            EXPECT_EQ(m.height, 0);
            EXPECT_EQ(m.channels, 0);
        } else {
            EXPECT_EQ(m.width, 30);
            EXPECT_TRUE(TypeParam::is_zero(m, 900));
        }
        std::free(m.data);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

TEST(MatfReset, IsTheSameRoutineAsMatiReset)
{
    // Volatile, because a compiler may take two names for two addresses.
    void (*volatile f)(Matf*, std::int32_t, std::int32_t, std::int32_t) = &MatfReset;
    void (*volatile i)(Mati*, std::int32_t, std::int32_t, std::int32_t) = &MatiReset;
    EXPECT_EQ(reinterpret_cast<void*>(f), reinterpret_cast<void*>(i));
}

TEST(MatfReset, MakesTheSameRecordAsMatiReset)
{
    Matf f = {};
    Mati i = {};
    MatfReset(&f, 3, 4, 5);
    MatiReset(&i, 3, 4, 5);
    EXPECT_EQ(f.width, i.width);
    EXPECT_EQ(f.height, i.height);
    EXPECT_EQ(f.channels, i.channels);
    EXPECT_EQ(std::memcmp(f.data, i.data, 60 * sizeof(float)), 0);
    std::free(f.data);
    std::free(i.data);
}

} // namespace
