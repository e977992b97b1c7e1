/* Forced into every library folder but special/: Boost is used behind the distribution layer
 * alone, with its no-throw policy, so any other use of it must fail to compile. */
#pragma GCC poison boost
