#include "zelnora_core/Version.h"

extern "C" {
// Constant-initialised: readable from any static initialiser.
constinit const double zelnora_coreVersionNumber = 1.0;
constinit const unsigned char zelnora_coreVersionString[] =
    "@(#)PROGRAM:zelnora_core  PROJECT:zelnora-core-1\n";
}
