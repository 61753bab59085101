#include "zelnora_core/Version.h"

extern "C" {
__attribute__((visibility("default"))) const double zelnora_coreVersionNumber = 1.0;
__attribute__((visibility("default"))) const unsigned char zelnora_coreVersionString[] =
    "@(#)PROGRAM:zelnora_core  PROJECT:zelnora-core-1\n";
}
