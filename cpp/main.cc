#include "cpp/driver.h"

int main(int argc, char** argv) {
  kv::cpp::run(argc, argv);
}
