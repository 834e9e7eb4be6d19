#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"

#include <doctest/doctest.h>

TEST_CASE("strncpy_s empties the buffer when the string and count do not fit")
{
    const Guarded buffer(8);
    CHECK(strncpy_s(buffer.Text(), 8, "abcdefgh", 8) == 162);
    CHECK(buffer.Held() == '\0' + Canaries(7));
    CHECK(strncpy_s(buffer.Text(), 8, "abcdefgh", 7) == 0);
    CHECK(buffer.Held() == WithTerminator("abcdefg"));
    CHECK(buffer.FrontIntact());
}
