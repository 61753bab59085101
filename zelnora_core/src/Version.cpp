#include "zelnora_core/Version.h"

extern "C" {
const double zelnora_coreVersionNumber = 1.0;
const unsigned char zelnora_coreVersionString[] =
    "@(#)PROGRAM:zelnora_core  PROJECT:zelnora-core-1\n";
}
