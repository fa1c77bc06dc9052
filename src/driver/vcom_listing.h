// The listing of serial-port interfaces as it is printed: one block per interface, the total,
// and the property-dialog question. Lines go out only while the listing switch is on.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace portwren {

// What the enumeration found out about one interface. An empty optional is a property that
// could not be read; its line is left out.
struct PortFacts {
  bool detail_ok = false;  // false: nothing else was asked
  std::string open_path;
  std::optional<std::string> friendly_name;
  std::optional<std::string> description;
  bool has_port_name = false;
  std::optional<std::string> service;
  std::optional<std::string> instance_id;
  std::optional<std::string> hardware_path;
  std::vector<std::pair<std::string, std::string>> extra_lines;  // the system's own, label and value
};

// The driver package's VCOM service, whatever the letter case.
bool IsOurService(const std::string& service);

// The switch keeps its value until the next call.
void SetListingPrinted(bool on);

// "<#n>" and the interface's lines.
void PrintPortBlock(int number, const PortFacts& facts);
// "Total n VCOM devices found." and an empty line.
void PrintListingTotal(int count);

// The question for `count` listed ports (count >= 1).
std::string DialogQuestion(int count);
// The port number an answer chooses (1 .. count), or 0 for anything else.
int DialogChoice(const char* answer, int count);

}  // namespace portwren
