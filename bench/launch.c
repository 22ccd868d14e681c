/* Runs one command and prints what it cost: nanoseconds of wall time, microseconds of processor time
   in the program and in the kernel, peak memory in KiB, status.

   The measuring must not be part of what is measured. A script interpreter that starts a child
   forks a large process first and notices late that the child has ended; this launcher is small,
   static, starts the child without copying itself and reads the clock right before and after.
   The child's standard streams are the null device. */

#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>

extern char** environ;

static long long microseconds(struct timeval t) { return t.tv_sec * 1000000LL + t.tv_usec; }

int main(int argc, char** argv) {
  if (argc < 2) {
    fputs("usage: launch program [argument...]\n", stderr);
    return 2;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int fd = 0; fd < 3; fd++)
    posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", fd == 0 ? O_RDONLY : O_WRONLY, 0);

  struct timespec before, after;
  pid_t child;
  clock_gettime(CLOCK_MONOTONIC, &before);
  if (posix_spawn(&child, argv[1], &actions, 0, argv + 1, environ) != 0) {
    perror(argv[1]);
    return 2;
  }
  int status;
  struct rusage usage;
  if (wait4(child, &status, 0, &usage) != child) {
    perror("wait4");
    return 2;
  }
  clock_gettime(CLOCK_MONOTONIC, &after);
  long long ns = (after.tv_sec - before.tv_sec) * 1000000000LL + after.tv_nsec - before.tv_nsec;
  printf("%lld %lld %lld %ld %d\n", ns, microseconds(usage.ru_utime), microseconds(usage.ru_stime),
         usage.ru_maxrss,
         WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
  return 0;
}
