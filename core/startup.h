// Start-up: from the command line to the event loop.
#pragma once

namespace rcmd {

/// The whole life of the daemon; `main` does nothing else. Reads the identity from nvram and the
/// options, resolves the server, opens the local servers and the management client, and runs the
/// event loop. A port that cannot be opened leaves the rest running.
/// @return 0 if the event loop ever ends, -1 when an allocation fails; a wrong command line and a
/// server that cannot be resolved end the process with status 1
int run_daemon(int argc, char** argv);

/// The fatal exit of start-up: status 1, and not a word.
[[noreturn]] void act_exit();

} // namespace rcmd
