/* armhf-run PROGRAM [ARGUMENT...]: runs a 32-bit ARM program of this build on this machine, under qemu-arm.
 *
 * Why not qemu-arm itself: Qt 5.15's QProcess asks clone() for a process descriptor and waits for the child with
 * waitid(P_PIDFD). qemu-arm 7.2 does not know the flag of clone(), returns no child number, and passes the wait on to the
 * kernel, which accepts it. So QProcess works with the child number -1. When it kills that child, it calls
 * kill(-1, SIGKILL), which kills every process that this user may signal.
 *
 * So the kernel refuses two system calls to this program and to all its children: waitid(P_PIDFD) fails with EINVAL, as
 * before Linux 5.4, where QProcess uses fork() instead; and kill(-1, ...) fails with EPERM, in case another program calls it.
 *
 * The compiler gets the sysroot and the path of qemu-arm, so each build serves one of them.
 */
#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifndef SYSROOT
#error "-DSYSROOT='\"FOLDER\"' is missing: the folder with the ARM libraries"
#endif
#ifndef EMULATOR
#define EMULATOR "/usr/bin/qemu-arm"
#endif

enum { wrongUsage = 64, noFilter = 71, noEmulator = 127 };

enum { waitForDescriptor = 3 /* P_PIDFD, which older headers lack */ };

#define LOAD(field) BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, field))
/* Goes on with the next line when equal, and skips that many lines when not. */
#define EXPECT(value, skipped) BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (value), 0, (skipped))
#define ANSWER(what) BPF_STMT(BPF_RET | BPF_K, (what))

static int refuseWhatKillsTheMachine(void) {
    struct sock_filter lines[] = {
        LOAD(arch),
        EXPECT(AUDIT_ARCH_X86_64, 8), /* the numbers below are this architecture's */
        LOAD(nr),
        EXPECT(__NR_waitid, 3),
        LOAD(args[0]),
        EXPECT(waitForDescriptor, 4),
        ANSWER(SECCOMP_RET_ERRNO | EINVAL),
        EXPECT(__NR_kill, 2),
        LOAD(args[0]), /* its lower half: the number is an int */
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (unsigned)-1, 1, 0),
        ANSWER(SECCOMP_RET_ALLOW),
        ANSWER(SECCOMP_RET_ERRNO | EPERM),
    };
    struct sock_fprog filter = {sizeof lines / sizeof *lines, lines};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

int main(int count, char** arguments) {
    const char* const start[] = {EMULATOR, "-L", SYSROOT};
    enum { startCount = sizeof start / sizeof *start };
    char** line;
    int index;

    if (count < 2) {
        fprintf(stderr, "usage: %s PROGRAM [ARGUMENT...]\n", arguments[0]);
        return wrongUsage;
    }
    if (!refuseWhatKillsTheMachine()) {
        perror("armhf-run: cannot protect this machine from '" EMULATOR "'; nothing was started");
        return noFilter;
    }
    line = calloc((size_t)(startCount + count), sizeof *line); /* this program's own name is left out: room for the null */
    if (!line) {
        perror("armhf-run");
        return noEmulator;
    }
    for (index = 0; index < startCount; ++index)
        line[index] = (char*)start[index];
    for (index = 1; index < count; ++index)
        line[startCount - 1 + index] = arguments[index];
    execv(EMULATOR, line);
    perror("armhf-run: cannot run '" EMULATOR "'");
    return noEmulator;
}
