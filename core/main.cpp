#include "core/startup.h"

int main(int argc, char** argv) {
  return rcmd::run_daemon(argc, argv);
}
