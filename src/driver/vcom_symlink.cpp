#include "driver/vcom_symlink.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "driver/driver_link.h"
#include "driver/driver_records.h"
#include "driver/driver_requests.h"

namespace portwren {

namespace {

bool SameIgnoringCase(const char* a, const char* b, size_t limit) {
  for (size_t i = 0; i < limit; ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
      return false;
    if (a[i] == '\0') return true;
  }
  return true;
}

}  // namespace

bool ReportVcomSymlink(const VcomRecord& record, uint32_t dos_count, const char* target) {
  if (dos_count != 0 && SameIgnoringCase(target, record.fdoName, sizeof record.fdoName)) return true;
  std::printf("    !!!\n");
  if (dos_count != 0) {
    std::printf("    Warning: %s does not point to the correct VCOM device.\n", record.portName);
    std::printf("    * Wrong symlink target(session): %s\n", target);
    if (!SameIgnoringCase(record.kernelLinkTarget, record.fdoName, sizeof record.fdoName)) {
      std::printf("    * Wrong symlink target (kernel): %s\n", record.kernelLinkTarget);
    }
    std::printf("    * Correct symlink target       : %s\n", record.fdoName);
  } else {
    std::printf("    Warning: %s symlink is missing from system.\n", record.portName);
    std::printf("    * Correct symlink target: %s\n", record.fdoName);
  }
  std::printf("    -- You may need to reboot Windows to solve this problem.\n");
  return false;
}

bool CheckVcomSymlink(VcomRecord* record) {
  constexpr size_t kPrefixChars = sizeof kVcomIdPrefix - 1;
  if (!SameIgnoringCase(record->devinstId, kVcomIdPrefix, kPrefixChars)) {
    // The DOS name is not known yet at this point: the message shows it empty.
    std::printf("    Unexpect! For %s, VCOM DeviceId does not start with %s\n", record->portName,
                "QDX_VBUS\\Qdx_vcom");
    return false;
  }
  VcomFdoPdoQuery query;
  WideField(record->devinstId + kPrefixChars, query.szInstanceSuffix, 128);
  VcomFdoPdoInfo info;
  std::memset(&info, 0, sizeof info);
  uint32_t returned = 0;
  const uint32_t result = QueryVcomFdoPdo(query, &info, &returned);
  if (result == 1) {
    std::printf("    TRELLIS kernel does not support IOCTL_TRELLIS_QueryVcomFdoPdo, version too old.\n");
    return false;
  }
  if (result != 0) return false;
  NarrowField(info.szPortName, 16, record->portName, sizeof record->portName);
  NarrowField(info.szFdoName, 40, record->fdoName, sizeof record->fdoName);
  NarrowField(info.szPdoName, 40, record->pdoName, sizeof record->pdoName);
  NarrowField(info.szKernelLinkTarget, 40, record->kernelLinkTarget, sizeof record->kernelLinkTarget);

  char target[260] = {};
  const uint32_t count = Driver().QueryDosDevice(record->portName, target, sizeof target);
  target[sizeof target - 1] = '\0';
  return ReportVcomSymlink(*record, count, target);
}

}  // namespace portwren
