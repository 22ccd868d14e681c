/* Tasks that run in turns. */
#ifndef SCHEDULER_H
#define SCHEDULER_H

#define MAX_TASKS 4

typedef void task(void);

void scheduler_add(task *t);
void scheduler_run(unsigned rounds);

#endif
