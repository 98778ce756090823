// The version record. Built once per code path, so each path's slot returns
// the record that names that path.
#include "core/path.h"
#include "pvxtypes.h"

PVX_BEGIN

namespace {

#if PVX_PATH_INDEX == 1
constexpr PvxLibraryVersion kRecord = {8, 2, 3, 48108, {'s', '8', 0, 0},
                                       "pvxIP Ovon (s8)", "8.2.3 (r48108)", "Jul 23 2015"};
#else
constexpr PvxLibraryVersion kRecord = {8, 2, 3, 48108, {'v', '8', 0, 0},
                                       "pvxIP SSSE3 (v8)", "8.2.3 (r48108)", "Jul 23 2015"};
#endif

const PvxLibraryVersion* libraryVersion()
{
    return &kRecord;
}

}  // namespace

PVX_END

#include "core/version.inc"
