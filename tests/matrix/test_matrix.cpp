// Matrix storage, the missing value and the range products against direct sums.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "matrix/alloc.h"
#include "matrix/matrix.h"
#include "matrix/ops.h"

namespace {

uint64_t bitsOf(double d) {
    uint64_t b;
    std::memcpy(&b, &d, sizeof b);
    return b;
}

TEST(Matrix, AllocShapes) {
    struct Row { int rows, cols; bool null; bool hasBlock; } rows[] = {
        {0, 3, true, false}, {-2, 3, true, false}, {3, 0, false, false}, {2, -1, false, false}, {3, 4, false, true}};
    for (const auto &r : rows) {
        MATRIX m = MatAlloc(r.rows, r.cols);
        EXPECT_EQ(m == nullptr, r.null) << r.rows << "x" << r.cols;
        if (m) {
            EXPECT_EQ(m[-1] != nullptr, r.hasBlock);
            if (r.hasBlock) {
                // Rows are contiguous and in order in one block.
                for (int i = 0; i < r.rows; ++i) EXPECT_EQ(m[i], m[-1] + i * r.cols);
            } else {
                for (int i = -1; i < r.rows; ++i) EXPECT_EQ(m[i], nullptr);
            }
        }
        MatFree(m);
    }
    MatFree(nullptr);
}

TEST(Matrix, MissingValueBitsAndFill) {
    MatOwner m(3, 5);
    ASSERT_TRUE(m.get());
    MatSetMissing(m, 3, 5);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(bitsOf(m.get()[0][i]), UINT64_C(0x7FF8000000000000));
    MatZero(m, 2, 5);
    EXPECT_EQ(m.get()[1][4], 0.0);
    EXPECT_TRUE(std::isnan(m.get()[2][0]));
    EXPECT_EQ(MatCopy(nullptr, m, 1, 1), nullptr);
}

TEST(Matrix, AllocationFailureFreesPointerArray) {
    // First allocation is the pointer array, second the block: failing either yields null.
    for (long n = 1; n <= 2; ++n) {
        KvAllocFailAt(n);
        EXPECT_EQ(MatAlloc(4, 4), nullptr);
    }
    KvAllocFailAt(0);
}

TEST(Matrix, RangeProductsAgainstDirectSums) {
    const int n = 3, k = 2, T = 7;
    MatOwner A(n, T), B(k, T), C(n, k), D(n, n);
    for (int i = 0; i < n; ++i)
        for (int t = 0; t < T; ++t) A.get()[i][t] = std::sin(1.0 + i * T + t);
    for (int j = 0; j < k; ++j)
        for (int t = 0; t < T; ++t) B.get()[j][t] = std::cos(2.0 + j * T + t);
    struct Range { int lo, hi; } ranges[] = {{0, 6}, {2, 4}, {3, 3}, {5, 2}};
    for (auto r : ranges) {
        MatMulABtRange(A, n, r.lo, r.hi, B, k, C);
        MatMulAAtRange(A, n, r.lo, r.hi, D);
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < k; ++j) {
                long double s = 0;
                for (int t = r.lo; t <= r.hi; ++t) s += (long double)A.get()[i][t] * B.get()[j][t];
                EXPECT_NEAR(C.get()[i][j], (double)s, 1e-15);
            }
            for (int j = 0; j < n; ++j) {
                long double s = 0;
                for (int t = r.lo; t <= r.hi; ++t) s += (long double)A.get()[i][t] * A.get()[j][t];
                EXPECT_NEAR(D.get()[i][j], (double)s, 1e-15);
                EXPECT_EQ(D.get()[i][j], D.get()[j][i]);
            }
        }
    }
}

TEST(Matrix, QuadFormUsesUpperTriangle) {
    const int k = 3;
    MatOwner X(k, 2), P(k, k);
    double x[k] = {1.5, -2.0, 0.25};
    double p[k][k] = {{2, 0.5, -1}, {999, 3, 0.25}, {999, 999, 1}}; // lower triangle ignored
    for (int i = 0; i < k; ++i) {
        X.get()[i][1] = x[i];
        for (int j = 0; j < k; ++j) P.get()[i][j] = p[i][j];
    }
    double expect = 0;
    for (int i = 0; i < k; ++i)
        for (int j = 0; j < k; ++j) expect += x[i] * x[j] * (j >= i ? p[i][j] : p[j][i]);
    EXPECT_NEAR(MatQuadFormCol(1, X, P, k), expect, 1e-14);
    EXPECT_EQ(MatQuadFormCol(1, X, P, 0), 0.0);
}

} // namespace
