// The enumeration of every present serial-port interface at start-up: one record each, the
// link check of the driver package's VCOMs, and with -l / --list-vcoms the listing and the
// offer of the device property dialog.
#pragma once

#include "driver/vcom_record.h"

namespace portwren {

// Reads one line of at most capacity - 1 characters; false at the end of input.
using AnswerReader = bool (*)(char* buffer, int capacity);

// print: -l and --list-vcoms; offer_dialog: --list-vcoms only. The answer to the dialog
// question is read from the console unless a reader is given.
void EnumerateVcoms(VcomRecordList& list, bool print, bool offer_dialog, AnswerReader read_answer = nullptr);

// Opens the device manager's property dialog of a device; false, silently, when it cannot.
bool ShowDeviceProperties(const char* devinst_id);

}  // namespace portwren
