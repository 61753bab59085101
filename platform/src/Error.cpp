#include "platform/Error.h"

namespace platform {

std::string Error::localizedDescription() const {
  if (description) return *description;
  // U+2019 RIGHT SINGLE QUOTATION MARK, as the phone writes "couldn’t".
  return "The operation couldn\xE2\x80\x99t be completed. (" + domain + " error " +
         std::to_string(code) + ".)";
}

}  // namespace platform
