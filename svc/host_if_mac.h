// MAC addresses of host interfaces, in a JSON file that the agent reads at its next start.

#pragma once

#include <string>

#include "agent_api/sdk_ret.h"

// Path of the file. To be set, if at all, before any service is called.
extern std::string g_host_if_mac_file;

// Stores the MAC address of one host interface, or removes its record when the address is all zero. `name` is
// zero-terminated; a UTF-8 character that was cut at its end is dropped. `mac` is 6 bytes, most significant first. The
// order of the other records stays. A file that is missing, can't be read or holds anything else is replaced by one
// with the new record only; the reason is logged and written to stderr.
//
// Updates wait for each other, also those of other processes, for at most 5 seconds. The file is replaced whole:
// readers find the old or the new content at any time and after any crash. Only where it can't be replaced is it
// written in place, for example when it is a mount point.
//
// SDK_RET_INVALID_ARG for a null or empty name. SDK_RET_GENERIC_ERROR, with a line in the log, when the file can't be
// written, is not a regular file, or can't be read for want of memory or descriptors; it then stays as it was. A file
// above the process's RLIMIT_FSIZE can't be written either; SIGXFSZ is held off meanwhile.
sdk::sdk_ret_t host_if_mac_update(char *name, unsigned char *mac);
