#include "console/startup.h"

int main(int argc, char** argv) {
  return portwren::RunProgram(argc, argv);
}
