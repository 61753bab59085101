// The kit's internal headers that the API tests exercise directly (pure request, dump and report
// formatting steps). The test target's include path does not reach the kit's private sources.
#pragma once

#include "../../zelnora_core/src/APIServiceDetail.h"
#include "../../zelnora_core/src/ReportDetail.h"
#include "../../zelnora_core/src/RequestUrl.h"
#include "../../zelnora_core/src/TrafficLog.h"
