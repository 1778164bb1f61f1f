// What keeps a phone running: boots it, again after each reboot, holds what is its own, and ends with it.
#pragma once

#include "files.h"

namespace host
{

// The names in a phone's folder (build/phone/NAME). All are made and written by the workstation alone; the
// phone has nothing of the folder but the two sockets it listens at and cannot name them, and the one that it
// gets its log from.
constexpr char PORT[] = "port";
constexpr char SHELL[] = "shell";
constexpr char CONTROL[] = "control"; // of the launcher: a line of REQUEST_... below
constexpr char STATE[] = "state";     // "booting N", "ready N": the how-manieth boot; none while it is down
constexpr char CONSOLE[] =
    "console"; // what the phone's programs wrote to standard error; the older half is console.1
constexpr char LOG[] = "log"; // of the phone that is down
constexpr char LOG_GIVER[] =
    "log.ring"; // of the launcher, which hands the log out to the phone's programs there
constexpr char KEPT[] =
    "kept.tar"; // /data, /mnt/vendor/persist, /sdcard and the partitions of the phone that is down
constexpr char STAGING[] = "staging"; // how it differs (phone/staging.h), bound into the phone
constexpr char INSIDE[] = "inside";   // where the launcher, and it alone, sees the phone's file systems

constexpr char REQUEST_DOWN = 'd'; // no answer but the end of the connection
constexpr char REQUEST_LOG = 'l';  // answered by the log's descriptor; the connection ends with the phone

// Begins the launcher in the background. `path` is that of the folder, `image` has the folders of a new
// phone, `arguments` are bubblewrap's, each ended by a NUL. Returns a pipe that gets a byte when the phone is
// ready, and ends with the launcher.
Fd launch(const Fd &state, const std::string &path, Fd lock, const std::string &image,
          const std::string &arguments);

} // namespace host
