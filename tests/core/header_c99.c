/* Compiled with -std=c99 -pedantic -Werror: the public headers are plain C99. */
#include "pvxcore.h"
#include "pvxi.h"

/* Takes the address of a few exports so that their prototypes are used. */
int pvxHeaderC99Probe(void);
int pvxHeaderC99Probe(void)
{
    PvxStatus (PVX_CALL *copy)(const Pvx8u*, int, Pvx8u*, int, PvxiSize) = pvxiCopy_8u_C1R;
    const PvxLibraryVersion* (PVX_CALL *version)(void) = pvxiGetLibVersion;
    PvxiSize roi = {1, 1};
    return (copy != 0) + (version != 0) + roi.width + (int)sizeof(Pvx32fc) + pvxStsSizeErr;
}
