#include "format/error_names.h"

#include <iterator>

namespace portwren {

namespace {

struct CodeName {
  uint32_t code;
  const char* name;
  const char16_t* wide_name;
};

#define PW_ROW(code, name) \
  { code, name, u"" name }

// Searched in this order; the order is part of the output contract.
constexpr CodeName kErrorNames[] = {
    PW_ROW(0, "ERROR_SUCCESS"),
    PW_ROW(1, "ERROR_INVALID_FUNCTION"),
    PW_ROW(2, "ERROR_FILE_NOT_FOUND"),
    PW_ROW(3, "ERROR_PATH_NOT_FOUND"),
    PW_ROW(5, "ERROR_ACCESS_DENIED"),
    PW_ROW(6, "ERROR_INVALID_HANDLE"),
    PW_ROW(21, "ERROR_NOT_READY"),
    PW_ROW(995, "ERROR_OPERATION_ABORTED"),
    PW_ROW(997, "ERROR_IO_PENDING"),
    PW_ROW(8, "ERROR_NOT_ENOUGH_MEMORY"),
    PW_ROW(14, "ERROR_OUTOFMEMORY"),
    PW_ROW(22, "ERROR_BAD_COMMAND"),
    PW_ROW(87, "ERROR_INVALID_PARAMETER"),
    PW_ROW(1460, "ERROR_TIMEOUT"),
    PW_ROW(1167, "ERROR_DEVICE_NOT_CONNECTED"),
    PW_ROW(55, "ERROR_DEV_NOT_EXIST"),
    PW_ROW(122, "ERROR_INSUFFICIENT_BUFFER"),
    PW_ROW(998, "ERROR_NOACCESS"),
    PW_ROW(31, "ERROR_GEN_FAILURE"),
    PW_ROW(121, "ERROR_SEM_TIMEOUT"),
    PW_ROW(123, "ERROR_INVALID_NAME"),
};

constexpr CodeName kProblemNames[] = {
    PW_ROW(1, "CM_PROB_NOT_CONFIGURED"),  PW_ROW(10, "CM_PROB_FAILED_START"),
    PW_ROW(18, "CM_PROB_REINSTALL"),      PW_ROW(22, "CM_PROB_DISABLED"),
    PW_ROW(47, "CM_PROB_HELD_FOR_EJECT"), PW_ROW(52, "CM_PROB_UNSIGNED_DRIVER"),
};

#undef PW_ROW

template <size_t N>
const CodeName* Find(const CodeName (&table)[N], uint32_t code) {
  for (const CodeName& row : table) {
    if (row.code == code) return &row;
  }
  return nullptr;
}

}  // namespace

const char* WinErrName(uint32_t code) {
  const CodeName* row = Find(kErrorNames, code);
  return row ? row->name : "UnknownWinErrCode";
}

const char16_t* WinErrNameW(uint32_t code) {
  const CodeName* row = Find(kErrorNames, code);
  return row ? row->wide_name : u"UnknownWinErrCode";
}

const char* ProblemCodeName(uint32_t code) {
  const CodeName* row = Find(kProblemNames, code);
  return row ? row->name : "UnknownProblemCode";
}

const char16_t* ProblemCodeNameW(uint32_t code) {
  const CodeName* row = Find(kProblemNames, code);
  return row ? row->wide_name : u"UnknownProblemCode";
}

}  // namespace portwren
