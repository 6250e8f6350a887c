#pragma once

#include "host/caller.h"

#include <string>
#include <string_view>

namespace host {

// What lastFailure() of caller.h answers, kept by the operations of platform/. They throw nothing; where no memory is
// left the reason is missing.

void keepFailure(Failure::Kind kind, int status, std::string_view reason) noexcept;

/// Does nothing for the result 0. @param result, errors  of runChild().
void keepProgramFailure(const char* path, int result, std::string_view errors) noexcept;

std::string errorText(int error);

} // namespace host
