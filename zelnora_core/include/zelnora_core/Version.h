/// \file
/// The kit's exported version constants (C symbols, as the phone's framework exports them).
#pragma once

#include "zelnora_core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// 1.0
extern ZELNORA_CORE_EXPORT const double zelnora_coreVersionNumber;
/// "@(#)PROGRAM:zelnora_core  PROJECT:zelnora-core-1" followed by a line feed.
extern ZELNORA_CORE_EXPORT const unsigned char zelnora_coreVersionString[];

#ifdef __cplusplus
}
#endif
