// Mul, MulC, MulScale, MulCScale: every member on every code path against the
// scalar reference of arith_rig.h, and the argument checks (MulScale checks
// steps before the ROI size).
#include "arith_rig.h"

namespace {

using namespace arithtest;

PVX_ARITH_SUITE(Mul, 2u * 50u + 2u * 16u,
                PVX_MEMBERS_Mul(PVX_ARITH_ENTRY) PVX_MEMBERS_MulC(PVX_ARITH_ENTRY)
                    PVX_MEMBERS_MulScale(PVX_ARITH_ENTRY) PVX_MEMBERS_MulCScale(PVX_ARITH_ENTRY))

}  // namespace
