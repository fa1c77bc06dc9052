// Names of the Windows error codes and device problem codes the program reports.
#pragma once

#include <cstdint>

namespace portwren {

const char* WinErrName(uint32_t code);
const char16_t* WinErrNameW(uint32_t code);
const char* ProblemCodeName(uint32_t code);
const char16_t* ProblemCodeNameW(uint32_t code);

}  // namespace portwren
