// The server of plain runs: the program without fast paths and without instrumentation.
#include "fuzz/server.h"

int main(int argc, char** argv) {
  if (argc == 2) kv::fuzz::serve(argv[1]);
  return 2;
}
