// Add, AddC, Sub, SubC: every member on every code path against the scalar
// reference of arith_rig.h (scale factors -40..40, in-place forms, guard
// pages), and the argument checks.
#include "arith_rig.h"

namespace {

using namespace arithtest;

PVX_ARITH_SUITE(AddSub, 4u * 50u, PVX_MEMBERS_Add(PVX_ARITH_ENTRY) PVX_MEMBERS_AddC(PVX_ARITH_ENTRY)
                                      PVX_MEMBERS_Sub(PVX_ARITH_ENTRY) PVX_MEMBERS_SubC(PVX_ARITH_ENTRY))

}  // namespace
