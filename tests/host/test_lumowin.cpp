// The reference host and the shared export frame: the guard keeps failures in, and values refuse
// what they cannot hold. The frame's checks are exercised through every estimator export in
// tests/estimators/test_exports.cpp.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <stdexcept>

#include "host/frame.h"
#include "kavrel/lumohost.h"

namespace {

TEST(LumoHost, GuardKeepsExceptionsInside) {
    LumoValue result;
    std::memset(&result, 0, sizeof result);
    int hits = 0;
    FrameGuard([] { throw std::bad_alloc(); }, [&] { ++hits; });
    FrameGuard([] { throw std::runtime_error("x"); }, [&] { ++hits; });
    FrameGuard([] {}, [&] { ++hits; });
    EXPECT_EQ(hits, 2);
}

TEST(LumoHost, ValuesRefuseWhatTheyCannotHold) {
    // Arrays, strings, copies and zero-sized matrices are made through every export; here the
    // requests a value refuses (LeakSanitizer checks that the array is freed with its elements).
    LumoValue arr, m;
    std::memset(&arr, 0, sizeof arr);
    std::memset(&m, 0, sizeof m);
    ASSERT_TRUE(LumoLibValArrayCalloc(&arr, 3));
    EXPECT_TRUE(LumoValSetString(LumoValGetArrayVal(&arr, 0), "realgdp"));
    EXPECT_EQ(LumoValGetArrayVal(&arr, 3), nullptr);
    EXPECT_EQ(LumoValGetArrayVal(&arr, -1), nullptr);
    EXPECT_EQ(LumoValGetString(LumoValGetArrayVal(&arr, 2)), nullptr); // an element without a string
    EXPECT_FALSE(LumoLibValMatMalloc(&m, -1, 2));
    LumoFreeByValue(&arr);
    EXPECT_EQ(LumoValGetType(&arr), LUMO_EMPTY);
}

} // namespace
