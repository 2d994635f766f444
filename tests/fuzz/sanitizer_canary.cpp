// sanitizer_canary.cpp - shows that a sanitizer build stops at a report: a
// child process commits one error of the kind named by argv[1] and must not
// end normally with status 0. Were reports only printed, every test that
// provokes one would still pass (the kernel checks, the fuzz targets).
//   undefined: a signed overflow   address: a read past a heap block
//   thread:    a data race (reported when the process exits)
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

volatile int gShared = 0;

void commit(const char* kind) {
  if (std::strcmp(kind, "undefined") == 0) {
    volatile int big = INT_MAX;
    volatile int sum = big + 1;
    (void)sum;
  } else if (std::strcmp(kind, "address") == 0) {
    char* block = static_cast<char*>(std::malloc(16));
    volatile char past = block[16];
    (void)past;
    std::free(block);
  } else if (std::strcmp(kind, "thread") == 0) {
    std::thread other([] { gShared = gShared + 1; });
    gShared = gShared + 1;
    other.join();
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s undefined|address|thread\n", argv[0]);
    return 2;
  }
  const pid_t child = fork();
  if (child == 0) {
    commit(argv[1]);
    std::exit(0);  // an ordinary exit: TSan sets its status here
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return 2;
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    std::fprintf(stderr, "the %s sanitizer reported and went on: its reports pass unseen\n",
                 argv[1]);
    return 1;
  }
  std::printf("the %s report failed the process\n", argv[1]);
  return 0;
}
