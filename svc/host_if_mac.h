// MAC addresses of host interfaces, in a JSON file that the agent reads at its next start.

#pragma once

#include <string>

#include "agent_api/sdk_ret.h"

// Path of the file. To be set, if at all, before any service is called.
extern std::string g_host_if_mac_file;

// Stores the MAC address of one host interface, or removes its record when the address is all zero. `name` is
// zero-terminated, `mac` 6 bytes, most significant first. The order of the other records stays; a missing file is
// made, and one with other content is replaced, with a line in the log.
//
// Updates are serialised, between threads and between processes, by a lock file beside it that stays. They wait for
// each other for at most 5 seconds. A name that has been cut within a character counts without that character. The file is replaced whole: whoever reads it, at
// any time and after any crash, finds the old or the new content.
//
// SDK_RET_INVALID_ARG for a null or empty name; SDK_RET_GENERIC_ERROR, with a line in the log, when the file can't
// be written, is no regular file, or can't be read for a reason that is not its own: it then stays as it was.
sdk::sdk_ret_t host_if_mac_update(char *name, unsigned char *mac);
