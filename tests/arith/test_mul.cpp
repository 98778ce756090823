// Mul, MulC, MulScale, MulCScale: every member on every code path against the
// scalar reference of arith_rig.h, and the argument checks (MulScale checks
// steps before the ROI size).
#include "arith_rig.h"

namespace {

using namespace arithtest;

const std::vector<ArithMember>& mulMembers()
{
    static const std::vector<ArithMember> members = [] {
        std::vector<ArithMember> v = {
#define PVX_ARITH_OP Op::Mul
        PVX_MEMBERS_Mul(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
#define PVX_ARITH_OP Op::MulC
        PVX_MEMBERS_MulC(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
#define PVX_ARITH_OP Op::MulScale
        PVX_MEMBERS_MulScale(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
#define PVX_ARITH_OP Op::MulCScale
        PVX_MEMBERS_MulCScale(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
        };
        return v;
    }();
    return members;
}

class MulTest : public ::testing::TestWithParam<PathCase<ArithMember>> {};

TEST_P(MulTest, MatchesReference)
{
    runReference(*GetParam().member, GetParam().path);
}

TEST_P(MulTest, ArgumentChecks)
{
    GetParam().member->checkArguments(*GetParam().member, GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(Arith, MulTest, ::testing::ValuesIn(onEveryPath(mulMembers())), CaseName());

TEST(MulRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Mul(PVX_NAME_OF_ARITH) PVX_MEMBERS_MulC(PVX_NAME_OF_ARITH) PVX_MEMBERS_MulScale(PVX_NAME_OF_ARITH) PVX_MEMBERS_MulCScale(PVX_NAME_OF_ARITH)};
    EXPECT_EQ(names.size(), 2u * 50u + 2u * 16u);
    expectEveryCaseRegistered("Arith/MulTest", {"MatchesReference", "ArgumentChecks"}, names);
}

}  // namespace
