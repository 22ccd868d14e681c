// The arguments, one a line, and the files that they name: a command file is "@NAME" and a part
// of that name. The part "stdin" is the standard input.
#include "fuzz/harness.h"

namespace kv::fuzz {

program_run plan_run(input_parts input) {
  input.add_default("in.c",
                    "#include \"a.h\"\n#include <b.h>\n#define q(n) n #n n##1 A\n"
                    "A B(x) x G(x,y) 'c' \"s\" 0x1F // c\n#if A + sizeof(int*) // d\n"
                    "__FILE__ __LINE__ __DATE__ __STDC__\n#else\n#error A\n#endif\n"
                    "#define A 2\n#asm\n ; c\n#endasm\n\?\?= \?\?/ q(B)\n#pragma p\n");
  input.add_default("a.h", "#ifndef G\n#define G(x,y) y x\n#endif\n#define A 1\n");
  input.add_default("sub/b.h", "#warning b\nb \"open\n");
  program_run run;
  run.arguments = split_lines(input.first);
  run.standard_input = input.take_file("stdin");
  run.files = std::move(input.files);
  return run;
}

}  // namespace kv::fuzz
