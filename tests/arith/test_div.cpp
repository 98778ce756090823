// Div, Div_Round, DivC: every member on every code path against the scalar
// reference of arith_rig.h (zero divisors and the warning, rounding modes,
// scale factors -40..40), and the argument checks.
#include "arith_rig.h"

namespace {

using namespace arithtest;

const std::vector<ArithMember>& divMembers()
{
    static const std::vector<ArithMember> members = [] {
        std::vector<ArithMember> v = {
#define PVX_ARITH_OP Op::Div
        PVX_MEMBERS_Div(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
#define PVX_ARITH_OP Op::DivC
        PVX_MEMBERS_DivC(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
        };
        for (ArithMember& m : v)  // Div_Round members share the family list
            if (std::string(m.name).rfind("pvxiDiv_Round_", 0) == 0)
                m.op = Op::DivRound;
        return v;
    }();
    return members;
}

class DivTest : public ::testing::TestWithParam<PathCase<ArithMember>> {};

TEST_P(DivTest, MatchesReference)
{
    runReference(*GetParam().member, GetParam().path);
}

TEST_P(DivTest, ArgumentChecks)
{
    GetParam().member->checkArguments(*GetParam().member, GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(Arith, DivTest, ::testing::ValuesIn(onEveryPath(divMembers())), CaseName());

TEST(DivRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Div(PVX_NAME_OF_ARITH) PVX_MEMBERS_DivC(PVX_NAME_OF_ARITH)};
    EXPECT_EQ(names.size(), 2u * 50u + 24u);
    expectEveryCaseRegistered("Arith/DivTest", {"MatchesReference", "ArgumentChecks"}, names);
}

}  // namespace
