// Starting a child process.
#ifndef KORVANDIS_PROCESS_H
#define KORVANDIS_PROCESS_H

// Modes of spawnv. P_NOWAIT returns at once and the child runs on. The others (wait for the child,
// replace the caller, a child that is never collected) are refused here with EINVAL: no program of
// ours uses them.
#define P_WAIT 0
#define P_NOWAIT 1
#define P_OVERLAY 2
#define P_NOWAITO 3

// Starts the program at `path` with the argument vector `argv` (ended by a null pointer). An
// absolute path lies below HEADUNIT_ROOT. The child inherits standard input, output and error, the
// environment and the working directory, no other descriptor, and starts with no signal blocked or
// ignored. Returns the process id, or -1 with errno: ENOENT, EACCES and the like when the program
// cannot be run, EINVAL for another mode than P_NOWAIT. The caller collects the child with waitpid.
int spawnv(int mode, const char* path, char* const argv[]);

#endif  // KORVANDIS_PROCESS_H
