// Argument-check helpers shared by every family. Each family still writes its
// own checks in its own order; these only name the individual tests.
#pragma once

#include "pvxtypes.h"
#include "core/path.h"

PVX_BEGIN

// True when any of the pointers is null.
template <class... P>
inline bool anyNull(const P*... pointers)
{
    return ((pointers == nullptr) || ...);
}

// A ROI needs at least one row of at least one pixel.
inline bool roiEmpty(PvxiSize roi)
{
    return roi.width < 1 || roi.height < 1;
}

PVX_END
