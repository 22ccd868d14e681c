/* Writes COUNT names that fall on one slot of the macro index of a program that does not seed it.

       collide COUNT

   The hash is the one of cpp/symtab.cc from a seed of 0; the names are found by trying. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { LENGTH = 8, SLOT_BITS = 15 };

static uint64_t mix(uint64_t h, uint64_t v) {
  h = (h ^ v) * 0x9E3779B97F4A7C15U;
  h ^= h >> 32;
  h *= 0xD6E8FEB86659FD93U;
  return h ^ (h >> 32);
}

int main(int argc, char** argv) {
  long wanted = argc > 1 ? atol(argv[1]) : 0;
  for (uint64_t number = 0; wanted > 0; ++number) {
    char name[LENGTH + 1] = "";
    uint64_t rest = number, word;
    for (int i = 0; i < LENGTH; ++i, rest /= 26) name[i] = (char)('a' + rest % 26);
    memcpy(&word, name, sizeof word);
    if ((mix(LENGTH, word) & ((1U << SLOT_BITS) - 1)) != 0) continue;
    puts(name);
    --wanted;
  }
  return 0;
}
