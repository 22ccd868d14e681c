// A process that leaves without the exit handlers would not write its counters: a test's child, and
// the program whose memory has run out. In a build that counts, the linker leads both through here.
extern "C" {

void __gcov_dump();
[[gnu::weak]] void cpp_faults_end();  // there when calls can be made to fail

[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status) {
  if (cpp_faults_end != nullptr) cpp_faults_end();
  __gcov_dump();
  __real__exit(status);
}
[[noreturn]] void __wrap__Exit(int status) {
  __wrap__exit(status);
}
}
