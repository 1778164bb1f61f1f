// The shell service of the phone's init: what `script/phone shell` talks to.
#pragma once

#include <functional>

// Takes the station's user who waits at `listener`, a listening socket, and gives them a shell
// (phone/shell_wire.h), served by a process of its own. `prepare` is called in every process that is to run
// what the user wants, before it does.
void serve_shell(int listener, const std::function<void()> &prepare);
