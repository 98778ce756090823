// Shared pieces of the statistics tests: elements read and written as
// doubles, the start of every member record, the per-member fixture and the
// names for the registration checks.
#pragma once

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "support/harness.h"

namespace statstest {

using namespace pvxtest;

template <class T>
double readAs(const unsigned char* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return static_cast<double>(v);
}

template <class T>
void writeAs(unsigned char* p, double v)  // NaN: a quiet NaN with a payload
{
    const T t = static_cast<T>(v);
    std::memcpy(p, std::isnan(v) ? static_cast<const void*>(&floatEdgeCases()[1]) : &t, sizeof t);
}

// What every member record starts with; each test adds its own fields.
template <class Kind>
struct MemberId {
    const char* name;
    const char* descriptor;
    Kind kind;
    std::size_t elem;
};

// A test of one member on one code path.
template <class Member>
class MemberTest : public ::testing::TestWithParam<PathCase<Member>> {
protected:
    const Member& member() const { return *this->GetParam().member; }
    int path() const { return this->GetParam().path; }
};

template <class Member>
std::vector<std::string> namesOf(const std::vector<Member>& members)
{
    std::vector<std::string> names;
    for (const Member& m : members)
        names.push_back(m.name);
    return names;
}

}  // namespace statstest
