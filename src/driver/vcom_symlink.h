// The check that a VCOM's DOS name (COM7) leads to the VCOM itself. A link left behind by an
// earlier device is a problem the user must hear of on every run, so its messages go straight
// to standard output, listing or not.
#pragma once

#include <cstdint>

#include "driver/vcom_record.h"

namespace portwren {

inline constexpr char kVcomIdPrefix[] = "QDX_VBUS\\Qdx_vcom\\";

// Asks the bus for the VCOM's names (filling portName, fdoName, pdoName, kernelLinkTarget),
// resolves the DOS name and reports a wrong or missing link. True: the link is correct.
bool CheckVcomSymlink(VcomRecord* record);

// The report of a resolved link: dos_count is what QueryDosDeviceA returned, target what it
// wrote. Silent and true when the link leads to fdoName.
bool ReportVcomSymlink(const VcomRecord& record, uint32_t dos_count, const char* target);

}  // namespace portwren
