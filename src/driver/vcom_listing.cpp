#include "driver/vcom_listing.h"

#include <atomic>
#include <cctype>
#include <cstdarg>
#include <cstdlib>

#include "format/console_log.h"

namespace portwren {

namespace {

std::atomic<bool> g_printed{false};

void ListingLine(const char* format, ...) {
  if (!g_printed.load()) return;
  va_list args;
  va_start(args, format);
  NestedFormat nested;
  LogPrint("%w", MakeNestedFormat(&nested, format, &args));
  va_end(args);
}

bool EqualsIgnoringCase(const std::string& a, const char* b) {
  size_t i = 0;
  for (; i < a.size() && b[i] != '\0'; ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  }
  return i == a.size() && b[i] == '\0';
}

}  // namespace

bool IsOurService(const std::string& service) {
  return EqualsIgnoringCase(service, "Qdx_trellis");
}

void SetListingPrinted(bool on) {
  g_printed.store(on);
}

void PrintPortBlock(int number, const PortFacts& facts) {
  ListingLine("<#%d>", number);
  if (!facts.detail_ok) {
    ListingLine("    Unexpect: SetupDiGetDeviceInterfaceDetail() fail.");
    return;
  }
  if (facts.friendly_name) {
    ListingLine("    Friendly name: %s", facts.friendly_name->c_str());
  } else if (facts.description) {
    ListingLine("    Device name  : %s", facts.description->c_str());
  }
  if (!facts.has_port_name) ListingLine("Warning! No PortName regitem in this VCOM hwkey.");
  if (facts.service) {
    ListingLine("  %c Service name : %s", IsOurService(*facts.service) ? '*' : ' ', facts.service->c_str());
  }
  ListingLine("    DevOpenPath  : \"%s\"", facts.open_path.c_str());
  if (facts.instance_id) ListingLine("    Devinstpath  : %s", facts.instance_id->c_str());
  if (facts.hardware_path) ListingLine("    HwDevinstpath: %s", facts.hardware_path->c_str());
  for (const auto& [label, value] : facts.extra_lines) {
    ListingLine("    %-13s: %s", label.c_str(), value.c_str());
  }
}

void PrintListingTotal(int count) {
  ListingLine("Total %d VCOM devices found.", count);
  ListingLine("");
}

std::string DialogQuestion(int count) {
  char text[100];
  if (count > 1) {
    FormatToBuffer(text, sizeof text, "Want to view VCOM device property dialog(input number %d-%d)? ", 1,
                   count);
  } else {
    FormatToBuffer(text, sizeof text, "Want to view VCOM device property dialog(input number 1)? ");
  }
  return text;
}

int DialogChoice(const char* answer, int count) {
  const int chosen = answer != nullptr ? std::atoi(answer) : 0;
  return chosen >= 1 && chosen <= count ? chosen : 0;
}

}  // namespace portwren
