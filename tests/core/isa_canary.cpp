// Deliberately uses MOVBE and an SSE4.1 instruction: the instruction-set check
// must reject this object, which shows that it can fail.
#include <smmintrin.h>

#include <cstring>

unsigned pvxIsaCanaryLoadBigEndian(const void* p)
{
    unsigned v;
    std::memcpy(&v, p, sizeof v);
    return __builtin_bswap32(v);
}

__m128i pvxIsaCanaryMultiply(__m128i a, __m128i b)
{
    return _mm_mullo_epi32(a, b);
}
