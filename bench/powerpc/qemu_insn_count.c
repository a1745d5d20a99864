/*
 * A qemu-user plugin that counts the guest instructions executed between marks that the guest
 * sets with write() calls on no file (see op_count.cpp): length 0x4841 begins a window, 0x4842
 * ends it, 0x4843 prints the instructions per window since the last report. Each translated block
 * adds its instruction count to a counter when it runs (inline, so the count is exact to the
 * block); the system-call callback reads the counter at each mark.
 *
 * Built for the host by ./run-benchmarks.sh --powerpc and loaded with qemu-ppc -plugin. The
 * declarations are those of the plugin interface of qemu 7 (interface version 1).
 */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t qemu_plugin_id_t;
typedef struct qemu_info_t qemu_info_t;
struct qemu_plugin_tb;

enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb* tb);
typedef void (*qemu_plugin_vcpu_syscall_cb_t)(qemu_plugin_id_t id, unsigned int vcpu_index,
                                              int64_t num, uint64_t a1, uint64_t a2, uint64_t a3,
                                              uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7,
                                              uint64_t a8);

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
void qemu_plugin_register_vcpu_syscall_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_syscall_cb_t cb);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* tb, enum qemu_plugin_op op,
                                              void* ptr, uint64_t imm);

#define EXPORTED __attribute__((visibility("default")))

EXPORTED int qemu_plugin_version = 1;

enum { kWrite = 4, kBegin = 0x4841, kEnd = 0x4842, kReport = 0x4843 }; /* write is 4 on PowerPC */

static uint64_t executed;
static uint64_t windowStart;
static uint64_t inWindows;
static uint64_t windows;

static void Translated(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &executed,
                                           qemu_plugin_tb_n_insns(tb));
}

static void SystemCall(qemu_plugin_id_t id, unsigned int vcpu, int64_t num, uint64_t fd,
                       uint64_t buffer, uint64_t length, uint64_t a4, uint64_t a5, uint64_t a6,
                       uint64_t a7, uint64_t a8) {
  (void)id, (void)vcpu, (void)fd, (void)buffer, (void)a4, (void)a5, (void)a6, (void)a7, (void)a8;
  if (num != kWrite)
    return;
  if (length == kBegin) {
    windowStart = executed;
  } else if (length == kEnd) {
    inWindows += executed - windowStart;
    ++windows;
  } else if (length == kReport) {
    fprintf(stderr, "%" PRIu64 " windows, %.1f instructions per window\n", windows,
            windows ? (double)inWindows / (double)windows : 0.0);
    inWindows = windows = 0;
  }
}

EXPORTED int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info, int argc,
                                 char** argv) {
  (void)info, (void)argc, (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, Translated);
  qemu_plugin_register_vcpu_syscall_cb(id, SystemCall);
  return 0;
}
