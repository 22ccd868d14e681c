/* Tasks that run in turns. */
#include "scheduler.h"

static task *tasks[MAX_TASKS];
static unsigned count;

void scheduler_add(task *t) {
  if (count < MAX_TASKS) tasks[count++] = t;
}

void scheduler_run(unsigned rounds) {
  unsigned i;
  for (; rounds > 0; --rounds) {
    for (i = 0; i < count; ++i) tasks[i]();
  }
}
