// The range products against direct sums. (Storage, the quadratic form and allocation failure
// inside MatAlloc are exercised through the least-squares, recursive least-squares brute-force
// and fault-injection tests.)
#include <gtest/gtest.h>

#include <cmath>

#include "matrix/matrix.h"
#include "matrix/ops.h"

namespace {

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
                    ab += (long double)A.get()[i][t] * B.get()[j % k][t],
                        aa += (long double)A.get()[i][t] * A.get()[j][t];
                if (j < k) {
                    EXPECT_NEAR(C.get()[i][j], (double)ab, 1e-15);
                }
                EXPECT_NEAR(D.get()[i][j], (double)aa, 1e-15);
            }
    }
}

} // namespace
