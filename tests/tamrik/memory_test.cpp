#include "tamrik/tamrik.h"

#include "tests/support/guarded.h"

#include <doctest/doctest.h>

TEST_CASE("memset_s fills the whole buffer and returns 162 when count is above destMax")
{
    const Guarded buffer(10);
    CHECK(memset_s(buffer.Bytes(), 10, 'x', 11) == 162);
    CHECK(buffer.Held() == "xxxxxxxxxx");
    CHECK(buffer.FrontIntact());
}
