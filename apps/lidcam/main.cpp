#include "apps/lidcam/program.h"

int main(int argc, char** argv) {
  return lidcam::app::RunProgram(argc, argv);
}
