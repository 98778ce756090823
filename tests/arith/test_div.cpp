// Div, Div_Round, DivC: every member on every code path against the scalar
// reference of arith_rig.h (zero divisors and the warning, rounding modes,
// scale factors -40..40), and the argument checks.
#include "arith_rig.h"

namespace {

using namespace arithtest;

PVX_ARITH_SUITE(Div, 2u * 50u + 24u, PVX_MEMBERS_Div(PVX_ARITH_ENTRY) PVX_MEMBERS_DivC(PVX_ARITH_ENTRY))

}  // namespace
