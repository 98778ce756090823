// Add, AddC, Sub, SubC: every member on every code path against the scalar
// reference of arith_rig.h (scale factors -40..40, in-place forms, guard
// pages), and the argument checks.
#include "arith_rig.h"

namespace {

using namespace arithtest;

const std::vector<ArithMember>& addSubMembers()
{
    static const std::vector<ArithMember> members = {
#define PVX_ARITH_OP Op::Add
        PVX_MEMBERS_Add(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
#define PVX_ARITH_OP Op::AddC
        PVX_MEMBERS_AddC(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
#define PVX_ARITH_OP Op::Sub
        PVX_MEMBERS_Sub(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
#define PVX_ARITH_OP Op::SubC
        PVX_MEMBERS_SubC(PVX_ARITH_ENTRY)
#undef PVX_ARITH_OP
    };
    return members;
}

class AddSubTest : public ::testing::TestWithParam<PathCase<ArithMember>> {};

TEST_P(AddSubTest, MatchesReference)
{
    runReference(*GetParam().member, GetParam().path);
}

TEST_P(AddSubTest, ArgumentChecks)
{
    GetParam().member->checkArguments(*GetParam().member, GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(Arith, AddSubTest, ::testing::ValuesIn(onEveryPath(addSubMembers())), CaseName());

TEST(AddSubRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Add(PVX_NAME_OF_ARITH) PVX_MEMBERS_AddC(PVX_NAME_OF_ARITH)
                                                PVX_MEMBERS_Sub(PVX_NAME_OF_ARITH) PVX_MEMBERS_SubC(PVX_NAME_OF_ARITH)};
    EXPECT_EQ(names.size(), 4u * 50u);
    expectEveryCaseRegistered("Arith/AddSubTest", {"MatchesReference", "ArgumentChecks"}, names);
}

}  // namespace
