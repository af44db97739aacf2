#include <tools/Errors.h>

#include <system_error>

namespace tool {

std::string systemErrorText(int errorNumber) { return std::generic_category().message(errorNumber); }

}  // namespace tool
