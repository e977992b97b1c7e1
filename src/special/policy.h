// The one Boost.Math policy of the library: every error becomes a value (NaN for domain errors
// and failed evaluations, infinity for poles and overflow, zero or a subnormal on underflow) and
// no call ever throws. Root searches are capped so that a quantile that cannot converge returns
// its last iterate instead of looping. Every Boost.Math call in src/special/ passes this policy;
// nothing outside src/special/ includes Boost.
#ifndef KAVREL_SPECIAL_POLICY_H
#define KAVREL_SPECIAL_POLICY_H

#include <boost/math/policies/policy.hpp>

namespace kvspecial {

namespace bmp = boost::math::policies;

// Underflow, denormal and indeterminate-result errors are ignored by Boost's defaults already
// (Boost recognises a policy of at most eleven parameters, so only the changes are listed).
// Doubles are promoted to long double inside the incomplete gamma and beta functions: in double
// they lose up to 1e-12 relative (ibetac(1/2, 1/2, 1e-10), gamma_p(5e9, 5e9), measured).
typedef bmp::policy<bmp::domain_error<bmp::ignore_error>, bmp::pole_error<bmp::ignore_error>,
                    bmp::overflow_error<bmp::ignore_error>, bmp::evaluation_error<bmp::ignore_error>,
                    bmp::rounding_error<bmp::ignore_error>, bmp::max_root_iterations<200>>
    Policy;

// The same without promotion, for erfc and its inverse only: their double rational
// approximations are within 2 ulps (measured) and twice as fast, which matters for the normal
// distribution function inside per-observation likelihood loops.
typedef bmp::policy<bmp::domain_error<bmp::ignore_error>, bmp::pole_error<bmp::ignore_error>,
                    bmp::overflow_error<bmp::ignore_error>, bmp::evaluation_error<bmp::ignore_error>,
                    bmp::rounding_error<bmp::ignore_error>, bmp::promote_float<false>, bmp::promote_double<false>,
                    bmp::max_root_iterations<200>>
    PolicyDouble;

} // namespace kvspecial

#endif
