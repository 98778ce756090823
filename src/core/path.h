// Code-path namespaces.
//
// Kernel sources are compiled once per code path (v8: SSSE3 for mainstream
// cores; s8: SSSE3 + MOVBE, tuned for low-power cores) with PVX_PATH set to
// the path's name. Everything such a translation unit defines — templates and
// inline helpers from shared headers included — must live in pvx::PVX_PATH:
// otherwise the linker would fold identical-looking inline functions from the
// two paths into one copy, and the v8 path could end up running MOVBE code.
// Code built only once (the core, the dispatch) uses the path name "base".
#pragma once

#ifndef PVX_PATH
#define PVX_PATH base
#endif

#define PVX_BEGIN namespace pvx { namespace PVX_PATH {
#define PVX_END } }

#define PVX_CAT_(a, b) a##b
#define PVX_CAT(a, b) PVX_CAT_(a, b)
// Symbol of one export's implementation in this path: pvx_v8_pvxiCopy_8u_C1R.
#define PVX_IMPL(name) PVX_CAT(PVX_CAT(pvx_, PVX_PATH), PVX_CAT(_, name))
