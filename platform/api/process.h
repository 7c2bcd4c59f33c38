// The router's command-line tools, run as child processes.
#pragma once

extern "C" {

/// Starts the tool `argv[0]` (found in the device's tool folders) with the null-ended list `argv`.
/// @param output     ">PATH" sends standard output and error there; null leaves them alone
/// @param timeout_s  seconds after which a tool that is waited for is killed; 0 waits for its end
/// @param pid        null: the tool is waited for. Otherwise receives the child's process id, the
///                   tool runs on and the caller collects it with wait_process
/// @return waited for: the tool's exit status, 0 being success. Not waited for: 0 once started.
/// A tool that cannot be found or started gives a non-zero value in both cases.
int _eval(char* const argv[], const char* output, int timeout_s, int* pid);

/// Collects a child that _eval started. @return its exit status, or -1 when there is no such child
int wait_process(int pid);
}
