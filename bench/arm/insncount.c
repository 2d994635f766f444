/* insncount.c - a qemu TCG plugin (qemu-user 7.2, plugin API version 1) that counts the guest
 * instructions a program executes, for scripts/bench-arm.sh.
 *
 *   qemu-aarch64 -plugin ./insncount.so -d plugin PROGRAM ARGS
 *       prints "insns N" on the qemu log (stderr) when the program exits;
 *   qemu-aarch64 -plugin ./insncount.so,arg=profile=FILE -d plugin PROGRAM ARGS
 *       also writes one line per translated block start address: "vaddr insns executions"
 *       (hex address, instructions of the block, times it ran), for a per-function profile.
 *
 * Each translated block adds its instruction count to a counter every time it runs (an inline
 * add, no call per block), so the count is exact and costs little. The plugin declares the few
 * entry points it uses itself: Debian ships no qemu-plugin.h, and version 1 of the API is
 * stable in qemu 7.2. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
typedef struct qemu_info_t qemu_info_t;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };
typedef void (*tb_trans_cb)(qemu_plugin_id_t, struct qemu_plugin_tb*);
typedef void (*udata_cb)(qemu_plugin_id_t, void*);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t, tb_trans_cb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb*, enum qemu_plugin_op, void*,
                                              uint64_t);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb*);
uint64_t qemu_plugin_tb_vaddr(const struct qemu_plugin_tb*);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t, udata_cb, void*);
void qemu_plugin_outs(const char*);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static uint64_t count;

/* Profile: one record per translation (a block translated again gets a record of its own; the
 * script adds records of one address up). */
struct block {
  uint64_t vaddr, insns, executions;
  struct block* next;
};
static struct block* blocks;
static FILE* profile;

static void on_tb(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
  (void)id;
  const size_t n = qemu_plugin_tb_n_insns(tb);
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &count, n);
  if (profile != NULL) {
    struct block* b = calloc(1, sizeof *b);
    if (b == NULL) return;
    b->vaddr = qemu_plugin_tb_vaddr(tb);
    b->insns = n;
    b->next = blocks;
    blocks = b;
    qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &b->executions, 1);
  }
}

static void on_exit_cb(qemu_plugin_id_t id, void* p) {
  (void)id;
  (void)p;
  char line[64];
  snprintf(line, sizeof line, "insns %llu\n", (unsigned long long)count);
  qemu_plugin_outs(line);
  if (profile != NULL) {
    for (const struct block* b = blocks; b != NULL; b = b->next)
      if (b->executions != 0)
        fprintf(profile, "%llx %llu %llu\n", (unsigned long long)b->vaddr,
                (unsigned long long)b->insns, (unsigned long long)b->executions);
    fclose(profile);
    profile = NULL;
  }
}

__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id,
                                                               const qemu_info_t* info, int argc,
                                                               char** argv) {
  (void)info;
  for (int i = 0; i < argc; ++i)
    if (strncmp(argv[i], "profile=", 8) == 0) {
      profile = fopen(argv[i] + 8, "w");
      if (profile == NULL) return -1;
    }
  qemu_plugin_register_vcpu_tb_trans_cb(id, on_tb);
  qemu_plugin_register_atexit_cb(id, on_exit_cb, NULL);
  return 0;
}
