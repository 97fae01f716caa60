// SPDX-License-Identifier: MIT
// std::to_string, in a build with the memory sanitizer, in place of libc++'s: the sanitizer takes what code sets that
// it has not compiled for never set. What the C run-time library sets, it knows.
#include <cstdio>
#include <string>

_LIBCPP_BEGIN_NAMESPACE_STD

namespace
{

template <class Number>
string text_of(const char* format, Number value)
{
    char text[32];
    const int length = std::snprintf(text, sizeof text, format, value);
    return string(text, static_cast<size_t>(length));
}

} // namespace

string to_string(int value)
{
    return text_of("%d", value);
}

string to_string(unsigned value)
{
    return text_of("%u", value);
}

string to_string(long value)
{
    return text_of("%ld", value);
}

string to_string(unsigned long value)
{
    return text_of("%lu", value);
}

_LIBCPP_END_NAMESPACE_STD
