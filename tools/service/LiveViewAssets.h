// The inspector's page, script and style sheet (tools/service/inspector/), built into the program
// so that the installed service needs no files beside it.
#pragma once

#include <string_view>

namespace zelnora_tools::inspector_assets {

extern const std::string_view kPage;    // index.html
extern const std::string_view kScript;  // page.js
extern const std::string_view kStyle;   // page.css

}  // namespace zelnora_tools::inspector_assets
