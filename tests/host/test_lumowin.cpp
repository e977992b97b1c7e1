// The reference host and the shared export frame: checks abandon the call, values own and free
// what they hold, optional outputs exist only behind references, and the guard keeps failures in.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <new>
#include <stdexcept>

#include "host/frame.h"
#include "kavrel/lumohost.h"

namespace {

// A stand-in export with a typical frame: arguments 0-1 matrices, 2 int, 3 an optional output.
void probeExport(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
            LumoLibCheckType(LUMO_INT, args, 2, 2);
            LumoLibCheckMatrixSize(args, 1, 1, FrameRows(args, 0), 1);
            FrameOutputs outputs;
            MATRIX out = outputs.matrix(args, 3, FrameRows(args, 0), 2);
            if (outputs.failed()) {
                FrameSetInt(result, 0);
                return;
            }
            if (out)
                for (int i = 0; i < FrameRows(args, 0); ++i) out[i][0] = out[i][1] = FrameInt(args, 2);
            outputs.publish();
            FrameSetDouble(result, out ? 1.5 : 2.5);
        },
        [&] { FrameSetInt(result, -1); });
}

struct Args {
    LumoValue v[4];
    LumoValue target;
    LumoValue result;
    Args() { std::memset(this, 0, sizeof *this); }
    ~Args() {
        for (auto &x : v) LumoFreeByValue(&x);
        LumoFreeByValue(&target);
        LumoFreeByValue(&result);
    }
};

TEST(LumoHost, ChecksAbandonTheCallAndReport) {
    const double a[3] = {1, 2, 3};
    struct Case {
        int kind;
        const char *message;
    } cases[] = {
        // clang-format off
        {0, ""},
        // valid call
        {1, "argument 2: int expected, double found"},
        // wrong scalar type
        {2, "argument 1: matrix expected, int found"},
        // wrong matrix type
        {3, "argument 1: 3 x 1 matrix expected, 2 x 1 found"}, // wrong shape
        // clang-format on
    };
    for (const auto &c : cases) {
        Args x;
        LumoValSetMatrix(&x.v[0], 3, 1, a);
        LumoValSetMatrix(&x.v[1], c.kind == 3 ? 2 : 3, 1, a);
        if (c.kind == 2) LumoValSetInt(&x.v[1], 4);
        if (c.kind == 1)
            LumoValSetDouble(&x.v[2], 4.0);
        else
            LumoValSetInt(&x.v[2], 4);
        LumoValSetRef(&x.v[3], &x.target);
        LumoValSetInt(&x.result, 99);
        int ok = LumoHostInvoke(probeExport, &x.result, x.v, 4);
        EXPECT_EQ(ok, c.kind == 0);
        EXPECT_STREQ(LumoHostLastError(), c.message);
        if (c.kind == 0) {
            EXPECT_EQ(LumoValGetDouble(&x.result), 1.5);
            int r, k;
            MATRIX m = LumoValGetMatrix(&x.target, &r, &k);
            ASSERT_TRUE(m);
            EXPECT_EQ(r, 3);
            EXPECT_EQ(k, 2);
            EXPECT_EQ(m[2][1], 4.0);
        } else {
            // An abandoned call leaves the return value and the outputs as they were.
            EXPECT_EQ(LumoValGetType(&x.result), LUMO_INT);
            EXPECT_EQ(LumoValGetInt(&x.result), 99);
            EXPECT_EQ(LumoValGetType(&x.target), LUMO_EMPTY);
        }
    }
}

TEST(LumoHost, GuardKeepsExceptionsInside) {
    LumoValue result;
    std::memset(&result, 0, sizeof result);
    int hits = 0;
    FrameGuard([] { throw std::bad_alloc(); }, [&] { ++hits; });
    FrameGuard([] { throw std::runtime_error("x"); }, [&] { ++hits; });
    FrameGuard([] {}, [&] { ++hits; });
    EXPECT_EQ(hits, 2);
}

TEST(LumoHost, ValuesOwnWhatTheyHold) {
    // Arrays of strings and matrices are freed recursively (LeakSanitizer checks the rest).
    LumoValue arr;
    std::memset(&arr, 0, sizeof arr);
    ASSERT_TRUE(LumoLibValArrayCalloc(&arr, 3));
    EXPECT_EQ(LumoValGetArrayCount(&arr), 3);
    EXPECT_TRUE(LumoValSetString(LumoValGetArrayVal(&arr, 0), "realgdp"));
    const double m[4] = {1, 2, 3, 4};
    EXPECT_TRUE(LumoValSetMatrix(LumoValGetArrayVal(&arr, 1), 2, 2, m));
    EXPECT_EQ(LumoValGetArrayVal(&arr, 3), nullptr);
    EXPECT_EQ(LumoValGetArrayVal(&arr, -1), nullptr);
    EXPECT_STREQ(LumoValGetString(LumoValGetArrayVal(&arr, 0)), "realgdp");
    EXPECT_EQ(LumoValGetString(LumoValGetArrayVal(&arr, 2)), nullptr);

    LumoValue dup;
    std::memset(&dup, 0, sizeof dup);
    ASSERT_TRUE(LumoLibValMatDup(&dup, LumoValGetArrayVal(&arr, 1)));
    int r, c;
    MATRIX d = LumoValGetMatrix(&dup, &r, &c);
    ASSERT_TRUE(d);
    EXPECT_EQ(d[1][0], 3.0);
    EXPECT_NE(d[0], LumoValGetMatrix(LumoValGetArrayVal(&arr, 1), nullptr, nullptr)[0]);

    // Zero-sized matrices: 0 x 0 is empty; rows without columns keep null row pointers.
    EXPECT_TRUE(LumoLibValMatMalloc(&dup, 0, 0));
    EXPECT_EQ(LumoValGetMatrix(&dup, &r, &c), nullptr);
    EXPECT_TRUE(LumoLibValMatMalloc(&dup, 4, 0));
    d = LumoValGetMatrix(&dup, &r, &c);
    ASSERT_TRUE(d);
    EXPECT_EQ(d[3], nullptr);
    EXPECT_FALSE(LumoLibValMatMalloc(&dup, -1, 2));

    LumoFreeByValue(&dup);
    LumoFreeByValue(&arr);
    EXPECT_EQ(LumoValGetType(&arr), LUMO_EMPTY);
}

} // namespace
