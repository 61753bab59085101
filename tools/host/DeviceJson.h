// The `device` command's JSON: a Device's names, facts and every predicate as one compact object.
#pragma once

#include <string>

#include "DeviceCatalog/Device.h"

namespace zelnora_host {

// {"description":…,"safeDescription":…,"cpu":…,"diagonal":…,"ppi":…|null,"screenRatio":[w,h],
//  "cameras":[case names],"applePencilSupport":raw value, then one Boolean per predicate}.
// The predicates isPhone and isPad may read the platform's interface idiom.
std::string deviceJson(const DeviceCatalog::Device& device);

}  // namespace zelnora_host
