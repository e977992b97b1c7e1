// Matrix storage, the missing value and the range products against direct sums. (The quadratic
// form, and allocation failure inside MatAlloc, are exercised through the recursive least-squares
// brute-force and fault-injection tests.)
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "matrix/matrix.h"
#include "matrix/ops.h"

namespace {

TEST(Matrix, AllocShapesAndMissingValue) {
    // No rows: null. No columns: row pointers (and the hidden block entry) null. Otherwise rows
    // contiguous and in order in one block.
    const struct { int rows, cols; } shapes[] = {{0, 3}, {-2, 3}, {3, 0}, {2, -1}, {3, 4}};
    for (const auto &s : shapes) {
        MatOwner m(s.rows, s.cols);
        EXPECT_EQ(m.get() == nullptr, s.rows <= 0) << s.rows << "x" << s.cols;
        for (int i = -1; m.get() && i < s.rows; ++i)
            EXPECT_EQ(m.get()[i], s.cols > 0 ? m.get()[-1] + std::max(i, 0) * s.cols : nullptr) << i;
    }
    MatFree(nullptr);
    MatOwner m(3, 5);
    MatSetMissing(m, 3, 5);
    for (int i = 0; i < 15; ++i) {
        uint64_t bits;
        std::memcpy(&bits, &m.get()[0][i], sizeof bits);
        EXPECT_EQ(bits, UINT64_C(0x7FF8000000000000));
    }
    MatZero(m, 2, 5);
    EXPECT_TRUE(m.get()[1][4] == 0.0 && std::isnan(m.get()[2][0]));
    EXPECT_EQ(MatCopy(nullptr, m, 1, 1), nullptr);
}

TEST(Matrix, RangeProductsAgainstDirectSums) {
    const int n = 3, k = 2, T = 7;
    MatOwner A(n, T), B(k, T), C(n, k), D(n, n);
    for (int t = 0; t < T; ++t) {
        for (int i = 0; i < n; ++i) A.get()[i][t] = std::sin(1.0 + i * T + t);
        for (int j = 0; j < k; ++j) B.get()[j][t] = std::cos(2.0 + j * T + t);
    }
    for (auto r : {std::pair<int, int>{0, 6}, {2, 4}, {3, 3}, {5, 2}}) { // inclusive; {5, 2} is empty
        MatMulABtRange(A, n, r.first, r.second, B, k, C);
        MatMulAAtRange(A, n, r.first, r.second, D);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                long double ab = 0, aa = 0;
                for (int t = r.first; t <= r.second; ++t)
                    ab += (long double)A.get()[i][t] * B.get()[j % k][t], aa += (long double)A.get()[i][t] * A.get()[j][t];
                if (j < k) { EXPECT_NEAR(C.get()[i][j], (double)ab, 1e-15); }
                EXPECT_NEAR(D.get()[i][j], (double)aa, 1e-15);
                EXPECT_EQ(D.get()[i][j], D.get()[j][i]);
            }
    }
}

} // namespace
